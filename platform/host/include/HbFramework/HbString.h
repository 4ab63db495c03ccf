// A framework string that converts between code pages.
// - Copy() takes a zero-terminated string in the given code page (36: UTF-16
//   code units in host order); the copy stops at the first zero unit.
// - ToCHAR() converts to the given code page (32: UTF-8). Surrogate pairs
//   combine; an unpaired surrogate becomes U+FFFD. The returned pointer stays
//   valid, and its text unchanged, while this HbString lives and is not given
//   a new value.
// One thread at a time: an HbString belongs to the code that declares it.
#ifndef HB_FRAMEWORK_HBSTRING_H
#define HB_FRAMEWORK_HBSTRING_H

#include <string>

#include "HbFramework/HbTypes.h"

class HbString {
public:
    enum EN_CODE_PAGE {
        en_CODE_PAGE_UTF8 = 32,
        en_CODE_PAGE_UTF16 = 36,
    };

    HbString();
    ~HbString();

    // Returns false (and holds an empty text) for a null pointer or a code page
    // other than UTF-16.
    bool Copy(const unsigned short* text, uint32 codePage);
    // Returns "" for a code page other than UTF-8.
    const char* ToCHAR(uint32 codePage);

private:
    std::u16string mText;  // the copied UTF-16 units, without the terminator
    std::string mNarrow;   // mText as UTF-8, rebuilt only by Copy()
};

#endif  // HB_FRAMEWORK_HBSTRING_H
