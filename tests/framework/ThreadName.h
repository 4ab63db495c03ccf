// The name of the calling thread, as set with pthread_setname_np.
#ifndef MOX_TESTS_FRAMEWORK_THREADNAME_H
#define MOX_TESTS_FRAMEWORK_THREADNAME_H

#include <pthread.h>

#include <string>

inline std::string currentThreadName() {
    char buffer[32] = {0};
    pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
    return buffer;
}

#endif  // MOX_TESTS_FRAMEWORK_THREADNAME_H
