#include "TocInput.h"

#include "TextEscape.h"
#include "moxdb/TocText.h"

namespace {

const uint32 FIRST_FRAME_OFFSET = 150;      // frame offset of LBA 0
const uint32 LAST_FRAME_OFFSET = 0xFFFFFF;  // six hexadecimal digits
const size_t ENTRY_DIGITS = 6;

bool upperCaseHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

// "character 3 ('a')", the character escaped as on a terminal.
std::string characterAt(const std::string& text, size_t at) {
    return "character " + std::to_string(at + 1) + " ('" +
           escapeControlCharacters(text.substr(at, 1)) + "')";
}

// Checks the shape of the text: its length and its characters.
bool checkTocTextShape(const std::string& text, std::string* why) {
    if (text.empty()) {
        *why = "the TOC text is empty";
        return false;
    }
    if (text.size() > MAX_TOC_TEXT_CHARACTERS) {
        *why = "the TOC text has " + std::to_string(text.size()) + " characters; at most " +
               std::to_string(MAX_TOC_TEXT_CHARACTERS) + " (99 tracks and the lead-out)";
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (!upperCaseHexDigit(text[i])) {
            *why = "the TOC text's " + characterAt(text, i) +
                   " is not an upper-case hexadecimal digit (0-9, A-F)";
            return false;
        }
    }
    if (text.size() % ENTRY_DIGITS != 0) {
        *why = "the TOC text has " + std::to_string(text.size()) + " characters, not six per entry";
        return false;
    }
    if (text.size() < 2 * ENTRY_DIGITS) {
        *why = "the TOC text has one entry; it needs at least one track and the lead-out";
        return false;
    }
    return true;
}

}  // namespace

bool offsetsFromTocText(const std::string& text, std::vector<uint32>* offsets, std::string* why) {
    if (!checkTocTextShape(text, why)) {
        return false;
    }
    std::vector<uint32> read;
    for (size_t at = 0; at < text.size(); at += ENTRY_DIGITS) {
        read.push_back(static_cast<uint32>(std::stoul(text.substr(at, ENTRY_DIGITS), nullptr, 16)));
    }
    std::string made;
    if (!tocFromOffsets(read, &made, why)) {
        *why = "the TOC text's " + *why;
        return false;
    }
    *offsets = read;
    return true;
}

bool tocFromOffsets(const std::vector<uint32>& offsets, std::string* toc, std::string* why) {
    if (offsets.size() < 2) {
        *why = "give the offsets of at least one track and of the lead-out";
        return false;
    }
    if (offsets.size() - 1 > MAX_CD_TRACKS) {
        *why = std::to_string(offsets.size() - 1) + " tracks: a CD holds at most 99";
        return false;
    }
    std::vector<uint32_t> lbas;
    for (size_t i = 0; i < offsets.size(); ++i) {
        if (offsets[i] < FIRST_FRAME_OFFSET || offsets[i] > LAST_FRAME_OFFSET) {
            *why = "offset " + std::to_string(offsets[i]) + " lies outside 150.." +
                   std::to_string(LAST_FRAME_OFFSET);
            return false;
        }
        if (i > 0 && offsets[i] <= offsets[i - 1]) {
            *why = "offsets do not increase: " + std::to_string(offsets[i - 1]) + " then " +
                   std::to_string(offsets[i]);
            return false;
        }
        lbas.push_back(offsets[i] - FIRST_FRAME_OFFSET);
    }
    const uint32_t leadOut = lbas.back();
    lbas.pop_back();
    *toc = moxdb::makeTocText(lbas, leadOut);
    return true;
}
