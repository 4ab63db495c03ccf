#include "HbFramework/HbString.h"

namespace {

void appendUtf8(std::string& out, uint32 cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool isHigh(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLow(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

HbString::HbString() {}

HbString::~HbString() {}

bool HbString::Copy(const unsigned short* text, uint32 codePage) {
    mText.clear();
    mNarrow.clear();
    if (text == nullptr || codePage != en_CODE_PAGE_UTF16) {
        return false;
    }
    for (const unsigned short* p = text; *p != 0; ++p) {
        mText.push_back(static_cast<char16_t>(*p));
    }
    return true;
}

const char* HbString::ToCHAR(uint32 codePage) {
    mNarrow.clear();
    if (codePage != en_CODE_PAGE_UTF8) {
        return mNarrow.c_str();
    }
    for (size_t i = 0; i < mText.size(); ++i) {
        char16_t unit = mText[i];
        if (isHigh(unit) && i + 1 < mText.size() && isLow(mText[i + 1])) {
            uint32 cp = 0x10000 + ((static_cast<uint32>(unit) - 0xD800) << 10) +
                        (static_cast<uint32>(mText[i + 1]) - 0xDC00);
            appendUtf8(mNarrow, cp);
            ++i;
        } else if (isHigh(unit) || isLow(unit)) {
            appendUtf8(mNarrow, 0xFFFD);
        } else {
            appendUtf8(mNarrow, unit);
        }
    }
    return mNarrow.c_str();
}
