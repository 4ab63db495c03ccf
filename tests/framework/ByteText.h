// Renders bytes as text for test logs and messages: "[01 ff 00]".
#ifndef MOX_TESTS_FRAMEWORK_BYTETEXT_H
#define MOX_TESTS_FRAMEWORK_BYTETEXT_H

#include <cstddef>
#include <cstdio>
#include <string>

inline std::string byteText(const void* data, size_t size) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    std::string text = "[";
    for (size_t i = 0; i < size; ++i) {
        char hex[4];
        std::snprintf(hex, sizeof(hex), "%02x", bytes[i]);
        text += (i == 0 ? "" : " ") + std::string(hex);
    }
    return text + "]";
}

#endif  // MOX_TESTS_FRAMEWORK_BYTETEXT_H
