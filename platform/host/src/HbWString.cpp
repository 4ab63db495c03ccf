#include "HbFramework/HbWString.h"

wchar_t* hb_wcscpy(wchar_t* dst, uint32 limit, const wchar_t* src) {
    if (dst == nullptr) {
        return dst;
    }
    const uint32 capacity = limit / static_cast<uint32>(sizeof(wchar_t));
    if (capacity == 0) {
        return dst;
    }
    uint32 i = 0;
    if (src != nullptr) {
        for (; i + 1 < capacity && src[i] != L'\0'; ++i) {
            dst[i] = src[i];
        }
    }
    dst[i] = L'\0';
    return dst;
}
