#include "HbFramework/HbString.h"

#include "HbUtf8.h"

namespace {

bool isHigh(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLow(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// UTF-16 to UTF-8: a high surrogate directly followed by a low one makes one
// code point; any other surrogate becomes U+FFFD.
std::string toUtf8(const std::u16string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char16_t unit = text[i];
        if (isHigh(unit) && i + 1 < text.size() && isLow(text[i + 1])) {
            uint32 cp = 0x10000 + ((static_cast<uint32>(unit) - 0xD800) << 10) +
                        (static_cast<uint32>(text[i + 1]) - 0xDC00);
            hbAppendUtf8(out, cp);
            ++i;
        } else if (isHigh(unit) || isLow(unit)) {
            hbAppendUtf8(out, 0xFFFD);
        } else {
            hbAppendUtf8(out, unit);
        }
    }
    return out;
}

}  // namespace

HbString::HbString() {}

HbString::~HbString() {}

bool HbString::Copy(const unsigned short* text, uint32 codePage) {
    mText.clear();
    mNarrow.clear();
    if (text == nullptr || codePage != en_CODE_PAGE_UTF16) {
        return false;
    }
    const unsigned short* end = text;
    while (*end != 0) {
        ++end;
    }
    mText.assign(text, end);
    // Converted once here, so every ToCHAR() hands out the same buffer.
    mNarrow = toUtf8(mText);
    return true;
}

const char* HbString::ToCHAR(uint32 codePage) {
    static const char kEmpty[] = "";
    if (codePage != en_CODE_PAGE_UTF8) {
        return kEmpty;
    }
    return mNarrow.c_str();
}
