#include "SheetText.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace {

const char* const BLANKS = " \t\v\f";

// The lines of `text`, each ended by a line feed or a carriage return.
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = text.find_first_of("\r\n", start);
        lines.push_back(text.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return lines;
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos) {
        return "";
    }
    const size_t last = text.find_last_not_of(BLANKS);
    return text.substr(first, last - first + 1);
}

// The line's first word (up to a blank or a quote), and in `rest` what
// follows it, blanks before it taken off.
std::string keywordOf(const std::string& line, std::string* rest) {
    const std::string text = trimmed(line);
    const size_t end = text.find_first_of(" \t\v\f\"");
    *rest = end == std::string::npos ? "" : trimmed(text.substr(end));
    return text.substr(0, end);
}

bool isKeyword(const std::string& word, const char* keyword) {
    return ::strcasecmp(word.c_str(), keyword) == 0;
}

bool isFileKeyword(const std::string& word) {
    return isKeyword(word, "FILE") || isKeyword(word, "AUDIOFILE") || isKeyword(word, "DATAFILE");
}

void addName(const std::string& name, std::vector<std::string>* names) {
    if (!name.empty() && std::find(names->begin(), names->end(), name) == names->end()) {
        names->push_back(name);
    }
}

// The names a FILE line's rest may stand for.
void namesOfRest(const std::string& rest, std::vector<std::string>* names) {
    addName(rest, names);
    if (!rest.empty() && rest[0] == '"') {
        const std::string quoted = rest.substr(1);
        addName(quoted.substr(0, quoted.find('"')), names);
        addName(trimmed(quoted), names);
    }
    size_t start = rest.find_first_not_of(BLANKS);
    while (start != std::string::npos) {
        const size_t end = rest.find_first_of(BLANKS, start);
        std::string word = rest.substr(start, end == std::string::npos ? end : end - start);
        addName(word, names);
        const size_t firstKept = word.find_first_not_of('"');
        const size_t lastKept = word.find_last_not_of('"');
        if (firstKept != std::string::npos) {
            addName(word.substr(firstKept, lastKept - firstKept + 1), names);
        }
        start = end == std::string::npos ? end : rest.find_first_not_of(BLANKS, end);
    }
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// False with a reason when `path` exists and is not a regular file.
bool regularIfThere(const std::string& path, std::string* why) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode)) {
        return true;
    }
    *why = path + ": not a regular file";
    return false;
}

// The number a TRACK line gives, or -1 when its first word is no decimal
// number of one or two digits (leading zeros aside).
int trackNumber(const std::string& rest) {
    const std::string word = rest.substr(0, rest.find_first_of(BLANKS));
    const size_t digits = word.find_first_not_of('0');
    if (word.empty() || word.find_first_not_of("0123456789") != std::string::npos) {
        return -1;
    }
    if (digits == std::string::npos) {
        return 0;
    }
    return word.size() - digits > 2 ? -1 : std::stoi(word.substr(digits));
}

// A word of the sheet for a message: `ifEmpty` when empty, at most 16
// characters, anything but printable ASCII as '?'.
std::string shown(const std::string& word, const char* ifEmpty) {
    if (word.empty()) {
        return ifEmpty;
    }
    std::string text = word.substr(0, 16);
    for (char& c : text) {
        c = c >= 0x20 && c < 0x7F ? c : '?';
    }
    return word.size() > 16 ? text + "..." : text;
}

}  // namespace

bool SheetText::read(const std::string& path, std::string* text, std::string* why) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        *why = path + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *why = path + ": not a regular file";
        return false;
    }
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        *why = path + ": " + std::strerror(errno);
        return false;
    }
    text->clear();
    char chunk[4096];
    size_t got = 0;
    while (text->size() <= kMaxBytes && (got = std::fread(chunk, 1, sizeof(chunk), file)) > 0) {
        text->append(chunk, got);
    }
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        *why = path + ": read error";
        return false;
    }
    if (text->size() > kMaxBytes) {
        *why =
            path + ": larger than " + std::to_string(kMaxBytes) + " bytes, too large for a sheet";
        return false;
    }
    const size_t nul = text->find('\0');
    if (nul != std::string::npos) {
        *why = path + ": not a text file (NUL byte at offset " + std::to_string(nul) + ")";
        return false;
    }
    return true;
}

size_t SheetText::fileLines(const std::string& text) {
    size_t count = 0;
    std::string rest;
    for (const std::string& line : linesOf(text)) {
        count += isFileKeyword(keywordOf(line, &rest)) ? 1 : 0;
    }
    return count;
}

std::vector<std::string> SheetText::fileNames(const std::string& text) {
    std::vector<std::string> names;
    std::string rest;
    for (const std::string& line : linesOf(text)) {
        if (isFileKeyword(keywordOf(line, &rest))) {
            namesOfRest(rest, &names);
        }
    }
    return names;
}

bool SheetText::checkFileNames(const std::string& sheetPath, const std::string& text,
                               std::string* why) {
    const std::string directory = directoryOf(sheetPath);
    for (const std::string& name : fileNames(text)) {
        if (!regularIfThere(name, why) ||
            (name[0] != '/' && !directory.empty() && !regularIfThere(directory + name, why))) {
            return false;
        }
    }
    return true;
}

bool SheetText::checkTrackNumbers(const std::string& sheetPath, const std::string& text,
                                  std::string* why) {
    int expected = 1;
    std::string rest;
    for (const std::string& line : linesOf(text)) {
        const std::string keyword = keywordOf(line, &rest);
        if (!isKeyword(keyword, "TRACK")) {
            continue;
        }
        if (trackNumber(rest) != expected) {
            *why = sheetPath + ": " + keyword + " " +
                   shown(rest.substr(0, rest.find_first_of(BLANKS)), "without a number") +
                   " where track " + std::to_string(expected) +
                   " should be (track numbers start at 1 and rise by 1)";
            return false;
        }
        ++expected;
    }
    return true;
}

bool SheetText::checkTrackModes(const std::string& tocPath, const std::string& text,
                                std::string* why) {
    static const char* const MODES[] = {"AUDIO", "MODE1", "MODE1_RAW", "MODE2_FORM_MIX",
                                        "MODE2_RAW"};
    std::string rest;
    for (const std::string& line : linesOf(text)) {
        const std::string keyword = keywordOf(line, &rest);
        if (!isKeyword(keyword, "TRACK")) {
            continue;
        }
        const std::string mode = rest.substr(0, rest.find_first_of(BLANKS));
        if (std::none_of(std::begin(MODES), std::end(MODES),
                         [&mode](const char* known) { return mode == known; })) {
            *why = tocPath + ": " + keyword + " " + shown(mode, "without a mode") +
                   ": not a track mode that is read (AUDIO, MODE1, MODE1_RAW, MODE2_FORM_MIX, "
                   "MODE2_RAW)";
            return false;
        }
    }
    return true;
}

namespace {

// The reason a CUE time "mm:ss:ff" is out of range or malformed; "" when it
// is good.
std::string timeProblem(const std::string& time) {
    unsigned minutes = 0;
    unsigned seconds = 0;
    unsigned frames = 0;
    char end = 0;
    if (std::sscanf(time.c_str(), "%u:%u:%u%c", &minutes, &seconds, &frames, &end) != 3) {
        return "not a time mm:ss:ff";
    }
    if (seconds > 59) {
        return "seconds above 59";
    }
    if (frames > 74) {
        return "frames above 74";
    }
    return std::string();
}

// The time of an INDEX line (after its number) or of a PREGAP or POSTGAP line.
std::string timeWord(const std::string& keyword, const std::string& rest) {
    std::string words = rest;
    if (isKeyword(keyword, "INDEX")) {
        const size_t gap = words.find_first_of(BLANKS);
        words = gap == std::string::npos ? std::string() : trimmed(words.substr(gap));
    }
    return words.substr(0, words.find_first_of(BLANKS));
}

}  // namespace

bool SheetText::checkTimes(const std::string& sheetPath, const std::string& text,
                           std::string* why) {
    std::string rest;
    size_t lineNumber = 0;
    size_t openTrackLine = 0;  // line of a TRACK still waiting for its INDEX 01
    std::string openTrack;
    std::istringstream in(text);
    std::string line;
    const auto noIndex = [&]() {
        *why =
            sheetPath + ":" + std::to_string(openTrackLine) + ": " + openTrack + " has no INDEX 01";
        return false;
    };
    while (std::getline(in, line)) {
        ++lineNumber;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const std::string keyword = keywordOf(line, &rest);
        if (isKeyword(keyword, "TRACK")) {
            if (openTrackLine != 0) {
                return noIndex();
            }
            openTrackLine = lineNumber;
            openTrack = "TRACK " + rest.substr(0, rest.find_first_of(BLANKS));
            continue;
        }
        if (!isKeyword(keyword, "INDEX") && !isKeyword(keyword, "PREGAP") &&
            !isKeyword(keyword, "POSTGAP")) {
            continue;
        }
        const std::string time = timeWord(keyword, rest);
        const std::string problem = timeProblem(time);
        if (!problem.empty()) {
            *why = sheetPath + ":" + std::to_string(lineNumber) + ": " + keyword + " " +
                   shown(rest, "without a time") + ": " + problem;
            return false;
        }
        if (isKeyword(keyword, "INDEX") && std::atoi(rest.c_str()) == 1) {
            openTrackLine = 0;
        }
    }
    return openTrackLine == 0 || noIndex();
}
