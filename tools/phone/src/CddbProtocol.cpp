// Status lines and match lists of a CDDB server.
#include "moxphone/CddbProtocol.h"

#include <sstream>

namespace moxphone {

namespace {

constexpr size_t kMaxWord = 32;

std::string codeOf(const std::string& line) {
    return line.size() >= 3 ? line.substr(0, 3) : line;
}

// "categ discid ..." -> the first two words, both fit for a request.
bool matchOf(const std::string& line, bool exact, CddbProtocol::Match* match) {
    std::istringstream words(line);
    std::string category;
    std::string discId;
    words >> category >> discId;
    if (!CddbProtocol::isWord(category) || !CddbProtocol::isWord(discId)) {
        return false;
    }
    match->category = category;
    match->discId = discId;
    match->exact = exact;
    return true;
}

// The lines after the status line up to the terminating ".", or false when
// there is no such line.
bool listAfterStatus(const std::vector<std::string>& lines, std::vector<std::string>* list) {
    for (size_t i = 1; i < lines.size(); ++i) {
        if (lines[i] == ".") {
            list->assign(lines.begin() + 1, lines.begin() + static_cast<std::ptrdiff_t>(i));
            return true;
        }
    }
    return false;
}

std::string shown(const std::string& line) {
    const size_t kShown = 80;
    std::string text;
    for (size_t i = 0; i < line.size() && i < kShown; ++i) {
        const unsigned char c = static_cast<unsigned char>(line[i]);
        text += (c < 0x20 || c == 0x7F) ? '?' : line[i];
    }
    return line.size() > kShown ? text + "..." : text;
}

}  // namespace

std::vector<std::string> CddbProtocol::lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        out.push_back(line);
        start = end + 1;
    }
    return out;
}

bool CddbProtocol::isWord(const std::string& text) {
    if (text.empty() || text.size() > kMaxWord) {
        return false;
    }
    for (const char c : text) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        const bool digit = c >= '0' && c <= '9';
        if (!letter && !digit && c != '-' && c != '_') {
            return false;
        }
    }
    return true;
}

CddbProtocol::QueryResult CddbProtocol::parseQuery(const std::string& answer,
                                                   std::vector<Match>* matches, std::string* why) {
    matches->clear();
    const std::vector<std::string> all = lines(answer);
    if (all.empty()) {
        *why = "the query answer is empty";
        return QueryResult::kBroken;
    }
    const std::string code = codeOf(all[0]);
    if (code == "202") {
        return QueryResult::kNotFound;
    }
    if (code == "200") {
        Match match;
        if (!matchOf(all[0].substr(3), true, &match)) {
            *why = "the query answer names no category and disc ID: " + shown(all[0]);
            return QueryResult::kBroken;
        }
        matches->push_back(match);
        return QueryResult::kMatches;
    }
    if (code != "210" && code != "211") {
        *why = "the query answer is " + shown(all[0]);
        return QueryResult::kBroken;
    }
    std::vector<std::string> list;
    if (!listAfterStatus(all, &list)) {
        *why = "the query answer's list does not end with a line \".\"";
        return QueryResult::kBroken;
    }
    for (const std::string& line : list) {
        Match match;
        if (matches->size() < kMaxMatches && matchOf(line, code == "210", &match)) {
            matches->push_back(match);
        }
    }
    if (matches->empty()) {
        return QueryResult::kNotFound;
    }
    return QueryResult::kMatches;
}

bool CddbProtocol::parseRead(const std::string& answer, std::string* entry, std::string* why) {
    const std::vector<std::string> all = lines(answer);
    if (all.empty() || codeOf(all[0]) != "210") {
        *why = "the read answer is " + (all.empty() ? std::string("empty") : shown(all[0]));
        return false;
    }
    std::vector<std::string> list;
    if (!listAfterStatus(all, &list)) {
        *why = "the read answer does not end with a line \".\"";
        return false;
    }
    entry->clear();
    for (const std::string& line : list) {
        *entry += line;
        *entry += '\n';
    }
    return true;
}

}  // namespace moxphone
