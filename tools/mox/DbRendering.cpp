#include "DbRendering.h"

#include <cstdint>
#include <iomanip>
#include <sstream>
#include <vector>

namespace {

using moxdb::Section;

// Header layout: signature (4 bytes), version (u32), two sets of four u16
// version components.
const size_t kSignatureSize = 4;
const size_t kVersionOffset = 4;
const size_t kAppVer1Offset = 8;
const size_t kAppVer2Offset = 16;
const size_t kAppVerComponents = 4;

// The QuillToc record's MediaNum is a u16 at byte 8; its other fields are u32.
const size_t kTocMediaNumOffset = 8;

// A field of a rendering: its key and the byte offset of its u32 value.
struct Field {
    const char* key;
    size_t offset;
};

void putHex32(std::ostringstream& out, const char* key, uint32_t value) {
    out << key << "=0x" << std::hex << std::setw(8) << std::setfill('0') << value;
}

void putComponents(std::ostringstream& out, const moxdb::Bytes& bytes, size_t offset) {
    for (size_t i = 0; i < kAppVerComponents; ++i) {
        out << "0x" << std::hex << std::setw(4) << std::setfill('0')
            << static_cast<uint32_t>(moxdb::getU16Le(bytes, offset + 2 * i)) << " ";
    }
}

// "key=0x........" for each value, separated by ", ".
std::string renderValues(const std::vector<const char*>& keys,
                         const std::vector<uint32_t>& values) {
    std::ostringstream out;
    for (size_t i = 0; i < keys.size(); ++i) {
        if (i != 0) {
            out << ", ";
        }
        putHex32(out, keys[i], values[i]);
    }
    return out.str();
}

// The u32 words of a record, in order, each under its key.
std::string renderWords(const moxdb::Bytes& bytes, const std::vector<const char*>& keys) {
    std::vector<uint32_t> values;
    for (size_t i = 0; i < keys.size(); ++i) {
        values.push_back(moxdb::getU32Le(bytes, 4 * i));
    }
    return renderValues(keys, values);
}

// The TOC record shows RudArtFileName (byte 16) before RudPictFolderPath
// (byte 12), and not the unnamed u16 after MediaNum.
std::string renderTocRecord(const moxdb::Bytes& bytes) {
    return renderValues({"Id", "AlbumId", "MediaNum", "RudArtFileName", "RudPictFolderPath"},
                        {moxdb::getU32Le(bytes, 0), moxdb::getU32Le(bytes, 4),
                         moxdb::getU16Le(bytes, kTocMediaNumOffset), moxdb::getU32Le(bytes, 16),
                         moxdb::getU32Le(bytes, 12)});
}

}  // namespace

std::string DbRendering::header(const moxdb::Bytes& bytes) {
    std::ostringstream out;
    out << "Signature=";
    for (size_t i = 0; i < kSignatureSize && i < bytes.size(); ++i) {
        out.put(static_cast<char>(bytes[i]));
    }
    out << ", ";
    putHex32(out, "Version", moxdb::getU32Le(bytes, kVersionOffset));
    out << ", AppVer1={";
    putComponents(out, bytes, kAppVer1Offset);
    out << "}, AppVer2={";
    putComponents(out, bytes, kAppVer2Offset);
    out << "}";
    return out.str();
}

std::string DbRendering::table(const moxdb::Bytes& bytes) {
    std::vector<const char*> keys{"OwnSize"};
    for (uint32_t word = 1; word < moxdb::kTableWordCount; ++word) {
        keys.push_back(moxdb::DbImageReader::nameOf(static_cast<Section>(word)));
    }
    return renderWords(bytes, keys);
}

std::string DbRendering::head(const moxdb::SectionHead& head) {
    return renderValues({"OwnSize", "RecordSize", "RecordCount"},
                        {head.ownSize, head.recordSize, head.recordCount});
}

std::string DbRendering::record(Section section, const moxdb::Bytes& bytes) {
    switch (section) {
        case Section::QuillToc:
            return renderTocRecord(bytes);
        case Section::QuillAlbum:
            return renderWords(bytes, {"Id",        "MediaNum",          "MediaCount", "Title",
                                       "TitleYomi", "Performer",         "Composer",   "Genre",
                                       "Tracks",    "Confidence",        "Language",   "ImageUrl",
                                       "Upc",       "RelYear",           "PickFlag",   "KeyTitle",
                                       "Credits",   "FirstTrackByMedia", "Styles",     "Tones",
                                       "Themas"});
        case Section::QuillTrack:
            return renderWords(
                bytes, {"Id", "Title", "TitleYomi", "Performer", "Composer", "Genre", "Time",
                        "Language", "Confidence", "MediaNum", "TrackNum", "PickFlag", "KeyTitle",
                        "Work", "Part", "Conductor", "PerfDate", "CompDate"});
        case Section::QuillArtist:
            return renderWords(
                bytes, {"Id", "Name", "NameYomi", "KeyName", "Genre", "Styles", "Tones", "Themas",
                        "SimilarArtists", "Influences", "Followers"});
        default:
            return renderWords(bytes, {"Id", "Name"});
    }
}
