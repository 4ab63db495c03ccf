// The tools' whole-image reader: bounded reads, the places of records and
// strings as the module computes them, and a walk over every record.
#include "moxdb/DbImageReader.h"

namespace moxdb {

namespace {

// Byte offsets of the text fields inside their records.
constexpr uint32_t kTocId = 0;
constexpr uint32_t kAlbumId = 0;
constexpr uint32_t kAlbumTitle = 12;
constexpr uint32_t kAlbumGenre = 28;
constexpr uint32_t kAlbumLanguage = 40;
constexpr uint32_t kTrackTitle = 4;
constexpr uint32_t kArtistName = 4;
constexpr uint32_t kGenreId = 0;

// The string area starts with a word that the module skips.
constexpr uint32_t kStringAreaSkip = 4;

bool liesInside(uint64_t offset, uint64_t size, size_t imageSize) {
    return offset <= imageSize && size <= imageSize - offset;
}

}  // namespace

std::string ImageFault::line() const {
    return what + " at offset " + std::to_string(offset) + ": " + reason;
}

const std::vector<Section>& DbImageReader::recordSections() {
    static const std::vector<Section> kSections = {Section::QuillToc, Section::QuillAlbum,
                                                   Section::QuillTrack, Section::QuillArtist,
                                                   Section::QuillGenre};
    return kSections;
}

const char* DbImageReader::nameOf(Section section) {
    switch (section) {
        case Section::RudTrack:
            return "RudTrack";
        case Section::RudPlaylist:
            return "RudPlaylist";
        case Section::RudPlaylistTrack:
            return "RudPlaylistTrack";
        case Section::StringTable:
            return "StringTable";
        case Section::StringList:
            return "StringList";
        case Section::QuillTrack:
            return "QuillTrack";
        case Section::QuillAlbum:
            return "QuillAlbum";
        case Section::QuillAlbumTracks:
            return "QuillAlbumTracks";
        case Section::QuillCredits:
            return "QuillCredits";
        case Section::QuillArtist:
            return "QuillArtist";
        case Section::QuillGenre:
            return "QuillGenre";
        case Section::QuillDesc:
            return "QuillDesc";
        case Section::QuillToc:
            return "QuillToc";
        case Section::QuillTrackIndices:
            return "QuillTrackIndices";
    }
    return "section";
}

std::vector<RecordText> DbImageReader::textsOf(Section section, const Bytes& record) {
    auto at = [&record](const char* field, uint32_t offset) {
        return RecordText{field, getU32Le(record, offset)};
    };
    switch (section) {
        case Section::QuillToc:
            return {at("Id", kTocId)};
        case Section::QuillAlbum:
            return {at("Id", kAlbumId), at("Title", kAlbumTitle), at("Genre", kAlbumGenre),
                    at("Language", kAlbumLanguage)};
        case Section::QuillTrack:
            return {at("Title", kTrackTitle)};
        case Section::QuillArtist:
            return {at("Name", kArtistName)};
        case Section::QuillGenre:
            return {at("Id", kGenreId)};
        default:
            return {};
    }
}

bool DbImageReader::fail(const std::string& what, uint64_t offset, const std::string& reason,
                         ImageFault* fault) {
    fault->what = what;
    fault->offset = offset;
    fault->reason = reason;
    return false;
}

bool DbImageReader::read(const std::string& what, uint64_t offset, size_t size, Bytes* out,
                         ImageFault* fault) const {
    if (!liesInside(offset, size, mImage.size())) {
        return fail(what, offset, "file ends after " + std::to_string(mImage.size()) + " bytes",
                    fault);
    }
    const size_t begin = static_cast<size_t>(offset);
    out->assign(mImage.begin() + begin, mImage.begin() + begin + size);
    return true;
}

bool DbImageReader::head(Section section, SectionHead* out, ImageFault* fault) const {
    Bytes bytes;
    if (!read(std::string(nameOf(section)) + " head", tableWord(section), kHeadSize, &bytes,
              fault)) {
        return false;
    }
    out->ownSize = getU32Le(bytes, 0);
    out->recordSize = getU16Le(bytes, 4);
    out->recordCount = getU16Le(bytes, 6);
    return true;
}

uint64_t DbImageReader::recordOffset(Section section, const SectionHead& head,
                                     uint32_t index) const {
    if (section == Section::QuillToc) {
        return static_cast<uint32_t>(tableWord(section) + kHeadSize + index * head.recordSize);
    }
    return uint64_t{tableWord(section)} + kHeadSize + uint64_t{index} * recordSizeOf(section);
}

bool DbImageReader::record(Section section, const SectionHead& head, uint32_t index, Bytes* out,
                           ImageFault* fault) const {
    return read(std::string(nameOf(section)) + " record " + std::to_string(index),
                recordOffset(section, head, index), recordSizeOf(section), out, fault);
}

uint32_t DbImageReader::stringOffset(uint32_t offset) const {
    return static_cast<uint32_t>(tableWord(Section::StringTable) + kStringAreaSkip + offset);
}

bool DbImageReader::string(const std::string& what, uint32_t offset, std::u16string* units,
                           ImageFault* fault) const {
    const uint32_t position = stringOffset(offset);
    Bytes bytes;
    if (!read(what, position, 2, &bytes, fault)) {
        return false;
    }
    const uint16_t count = getU16Le(bytes, 0);
    if (count > kStringMaxUnits) {
        return fail(what, position,
                    "length " + std::to_string(count) + " is not below " +
                        std::to_string(kStringMaxUnits + 1),
                    fault);
    }
    if (!read(what, uint64_t{position} + 2, 2u * count, &bytes, fault)) {
        return false;
    }
    units->clear();
    for (size_t i = 0; i < count; ++i) {
        units->push_back(static_cast<char16_t>(getU16Le(bytes, 2 * i)));
    }
    return true;
}

uint16_t DbImageReader::u16(uint64_t offset) const {
    return liesInside(offset, 2, mImage.size()) ? getU16Le(mImage, static_cast<size_t>(offset)) : 0;
}

uint32_t DbImageReader::u32(uint64_t offset) const {
    return liesInside(offset, 4, mImage.size()) ? getU32Le(mImage, static_cast<size_t>(offset)) : 0;
}

uint32_t DbImageReader::tableWord(Section section) const {
    return u32(uint64_t{kTableOffset} + 4u * static_cast<uint32_t>(section));
}

uint32_t DbImageReader::lastWord() const {
    return mImage.size() >= 4 ? u32(mImage.size() - 4) : 0;
}

bool DbImageReader::walk(ImageVisitor& visitor, bool withTexts, ImageFault* fault) const {
    Bytes bytes;
    if (!read("header", 0, kHeaderSize, &bytes, fault)) {
        return false;
    }
    visitor.header(bytes);
    if (!read("section table", kTableOffset, kTableSize, &bytes, fault)) {
        return false;
    }
    visitor.table(bytes);
    for (Section section : recordSections()) {
        if (!walkSection(section, visitor, withTexts, fault)) {
            return false;
        }
    }
    return true;
}

bool DbImageReader::walkSection(Section section, ImageVisitor& visitor, bool withTexts,
                                ImageFault* fault) const {
    SectionHead sectionHead;
    if (!head(section, &sectionHead, fault)) {
        return false;
    }
    visitor.head(section, sectionHead);
    Bytes bytes;
    for (uint32_t i = 0; i < sectionHead.recordCount; ++i) {
        if (!record(section, sectionHead, i, &bytes, fault)) {
            return false;
        }
        visitor.record(section, i, bytes);
        if (!withTexts) {
            continue;
        }
        const std::string what = std::string(nameOf(section)) + " record " + std::to_string(i);
        for (const RecordText& text : textsOf(section, bytes)) {
            std::u16string units;
            if (!string(what + " " + text.field + " string", text.offset, &units, fault)) {
                return false;
            }
            visitor.text(text, units);
        }
    }
    return true;
}

}  // namespace moxdb
