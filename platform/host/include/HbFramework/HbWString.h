// Wide-string helpers of the framework.
#ifndef HB_FRAMEWORK_HBWSTRING_H
#define HB_FRAMEWORK_HBWSTRING_H

#include <cwchar>

#include "HbFramework/HbTypes.h"

// Copies `src` into `dst`, whose size is `limit` bytes; the copy is cut to fit
// and always terminated (nothing is written when `limit` holds no character).
// Returns `dst`. A null `src` copies an empty string.
wchar_t* hb_wcscpy(wchar_t* dst, uint32 limit, const wchar_t* src);

#endif  // HB_FRAMEWORK_HBWSTRING_H
