// Writes the current call stack to the framework's debug output.
#ifndef HB_FRAMEWORK_HBCALLSTACK_H
#define HB_FRAMEWORK_HBCALLSTACK_H

class HbCallStack {
public:
    // `depth` is the number of frames to write; -1 writes all of them. The
    // stack is written as one debug record that starts with "call stack:\n".
    static void dumpDirectly(int depth);
};

#endif  // HB_FRAMEWORK_HBCALLSTACK_H
