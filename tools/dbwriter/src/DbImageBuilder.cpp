// Builds a response database image byte by byte, little-endian throughout.
#include "moxdb/DbImageBuilder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <system_error>

namespace moxdb {

namespace {

constexpr uint32_t kEmptyAreaSize = 8;  // u32 own size, u32 0
constexpr uint32_t kAreaWordSize = 4;   // word in front of strings and track lists
constexpr uint32_t kAlignment = 4;

uint32_t wordIndex(Section section) {
    return static_cast<uint32_t>(section);
}

uint32_t alignUp(uint32_t value) {
    return (value + kAlignment - 1) / kAlignment * kAlignment;
}

void appendWords(Bytes& out, std::initializer_list<uint32_t> words) {
    for (uint32_t word : words) {
        appendU32Le(out, word);
    }
}

uint32_t toU32(size_t value) {
    return static_cast<uint32_t>(value);
}

}  // namespace

DbImageBuilder::DbImageBuilder()
    : mSignature{{'D', 'A', 'P', '3'}},
      mVersion(kDefaultVersion),
      mAppVer1{{1, 0, 0, 0}},
      mAppVer2{{1, 0, 0, 0}},
      mReserved{},
      mTableOwnSize(kTableSize),
      mTocPadByte(0) {}

void DbImageBuilder::setSignature(const std::string& signature) {
    mSignature.fill('\0');
    std::copy_n(signature.begin(), std::min<size_t>(signature.size(), mSignature.size()),
                mSignature.begin());
}

void DbImageBuilder::setVersion(uint32_t version) {
    mVersion = version;
}

void DbImageBuilder::setAppVer1(const std::array<uint16_t, 4>& components) {
    mAppVer1 = components;
}

void DbImageBuilder::setAppVer2(const std::array<uint16_t, 4>& components) {
    mAppVer2 = components;
}

void DbImageBuilder::setReserved(const std::array<uint8_t, 40>& bytes) {
    mReserved = bytes;
}

void DbImageBuilder::fillReserved(uint8_t value) {
    mReserved.fill(value);
}

void DbImageBuilder::setTableOwnSize(uint32_t value) {
    mTableOwnSize = value;
}

void DbImageBuilder::setSectionWord(Section section, uint32_t value) {
    mWordOverrides[wordIndex(section)] = value;
}

void DbImageBuilder::placeLast(Section section) {
    mPlacedLast.erase(std::remove(mPlacedLast.begin(), mPlacedLast.end(), section),
                      mPlacedLast.end());
    mPlacedLast.push_back(section);
}

void DbImageBuilder::setStringAreaWord(uint32_t value) {
    mStringAreaWord = value;
}

uint32_t DbImageBuilder::addString(const std::string& utf8) {
    return addStringUnits(utf8ToUtf16(utf8));
}

uint32_t DbImageBuilder::addStringUnits(const std::u16string& units) {
    Bytes text;
    text.reserve(units.size() * 2);
    for (char16_t unit : units) {
        appendU16Le(text, static_cast<uint16_t>(unit));
    }
    // A text longer than a u16 count can say keeps all its units; only the
    // count wraps, which makes the entry as broken as the caller asked for.
    return addRawStringEntry(static_cast<uint16_t>(units.size()), text);
}

uint32_t DbImageBuilder::addRawStringEntry(uint16_t declaredLength, const Bytes& bytes) {
    const uint32_t offset = nextStringOffset();
    appendU16Le(mStringEntries, declaredLength);
    mStringEntries.insert(mStringEntries.end(), bytes.begin(), bytes.end());
    return offset;
}

uint32_t DbImageBuilder::nextStringOffset() const {
    return toU32(mStringEntries.size());
}

void DbImageBuilder::setTrackListAreaWord(uint32_t value) {
    mTrackListAreaWord = value;
}

uint32_t DbImageBuilder::addTrackList(const std::vector<uint32_t>& trackIds) {
    return addTrackListWithCount(toU32(trackIds.size()), trackIds);
}

uint32_t DbImageBuilder::addTrackListWithCount(uint32_t declaredCount,
                                               const std::vector<uint32_t>& trackIds) {
    const uint32_t offset = toU32(mTrackLists.size());
    appendU32Le(mTrackLists, declaredCount);
    for (uint32_t id : trackIds) {
        appendU32Le(mTrackLists, id);
    }
    return offset;
}

size_t DbImageBuilder::addToc(const TocRecord& record) {
    mTocs.push_back(record);
    return mTocs.size() - 1;
}

size_t DbImageBuilder::addAlbum(const AlbumRecord& record) {
    mAlbums.push_back(record);
    return mAlbums.size() - 1;
}

size_t DbImageBuilder::addTrack(const TrackRecord& record) {
    mTracks.push_back(record);
    return mTracks.size() - 1;
}

size_t DbImageBuilder::addArtist(const ArtistRecord& record) {
    mArtists.push_back(record);
    return mArtists.size() - 1;
}

size_t DbImageBuilder::addGenre(const GenreRecord& record) {
    mGenres.push_back(record);
    return mGenres.size() - 1;
}

bool DbImageBuilder::setOwnSize(Section section, uint32_t value) {
    if (!isRecordSection(section)) {
        return false;
    }
    mHeads[wordIndex(section)].ownSize = value;
    return true;
}

bool DbImageBuilder::setRecordSize(Section section, uint16_t value) {
    if (!isRecordSection(section)) {
        return false;
    }
    mHeads[wordIndex(section)].recordSize = value;
    return true;
}

bool DbImageBuilder::setRecordCount(Section section, uint16_t value) {
    if (!isRecordSection(section)) {
        return false;
    }
    mHeads[wordIndex(section)].recordCount = value;
    return true;
}

void DbImageBuilder::setTocPadByte(uint8_t value) {
    mTocPadByte = value;
}

void DbImageBuilder::appendTail(const Bytes& bytes) {
    mTail.insert(mTail.end(), bytes.begin(), bytes.end());
}

SectionSpan DbImageBuilder::sectionSpan(Section section) const {
    return computeLayout().spans[wordIndex(section)];
}

uint32_t DbImageBuilder::sectionWord(Section section) const {
    const auto found = mWordOverrides.find(wordIndex(section));
    if (found != mWordOverrides.end()) {
        return found->second;
    }
    return sectionSpan(section).offset;
}

uint32_t DbImageBuilder::stringBase() const {
    return sectionSpan(Section::StringTable).offset + kAreaWordSize;
}

uint32_t DbImageBuilder::trackListBase() const {
    return sectionSpan(Section::QuillAlbumTracks).offset + kAreaWordSize;
}

Bytes DbImageBuilder::build() const {
    const Layout layout = computeLayout();
    Bytes out;
    out.reserve(layout.tailOffset + mTail.size());
    writeHeader(out);
    writeTable(out, layout);
    std::vector<Section> order;
    for (uint32_t index = 1; index < kTableWordCount; ++index) {
        order.push_back(static_cast<Section>(index));
    }
    std::sort(order.begin(), order.end(), [&layout](Section a, Section b) {
        return layout.spans[wordIndex(a)].offset < layout.spans[wordIndex(b)].offset;
    });
    for (Section section : order) {
        out.resize(layout.spans[wordIndex(section)].offset, 0);  // alignment padding
        writeArea(out, section);
    }
    out.insert(out.end(), mTail.begin(), mTail.end());
    return out;
}

bool DbImageBuilder::writeFile(const std::string& path, std::string* error) const {
    const Bytes bytes = build();
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    std::error_code ec;
    if (!parent.empty()) {
        std::filesystem::create_directories(parent, ec);
    }
    if (ec) {
        if (error != nullptr) {
            *error = "cannot create directory " + parent.string() + ": " + ec.message();
        }
        return false;
    }
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        if (error != nullptr) {
            *error = "cannot open " + path + " for writing: " + std::strerror(errno);
        }
        return false;
    }
    const size_t written = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), file);
    const bool closed = std::fclose(file) == 0;
    if (written != bytes.size() || !closed) {
        if (error != nullptr) {
            *error = "cannot write " + path;
        }
        return false;
    }
    return true;
}

DbImageBuilder::Layout DbImageBuilder::computeLayout() const {
    Layout layout;
    uint32_t next = kTableOffset + kTableSize;
    auto place = [&](Section section) {
        next = alignUp(next);
        layout.spans[wordIndex(section)] = SectionSpan{next, areaSize(section)};
        next += areaSize(section);
    };
    for (uint32_t index = 1; index < kTableWordCount; ++index) {
        const Section section = static_cast<Section>(index);
        if (std::find(mPlacedLast.begin(), mPlacedLast.end(), section) == mPlacedLast.end()) {
            place(section);
        }
    }
    for (Section section : mPlacedLast) {
        place(section);
    }
    layout.tailOffset = next;
    return layout;
}

uint32_t DbImageBuilder::areaSize(Section section) const {
    if (section == Section::StringTable) {
        return kAreaWordSize + toU32(mStringEntries.size());
    }
    if (section == Section::QuillAlbumTracks) {
        return kAreaWordSize + toU32(mTrackLists.size());
    }
    if (!isRecordSection(section)) {
        return kEmptyAreaSize;
    }
    const uint32_t stride = section == Section::QuillToc ? tocStride() : recordSizeOf(section);
    return kHeadSize + recordCountOf(section) * stride;
}

uint32_t DbImageBuilder::tocStride() const {
    const auto found = mHeads.find(wordIndex(Section::QuillToc));
    if (found == mHeads.end() || !found->second.recordSize) {
        return kTocRecordSize;
    }
    return std::max<uint32_t>(kTocRecordSize, *found->second.recordSize);
}

uint32_t DbImageBuilder::recordCountOf(Section section) const {
    switch (section) {
        case Section::QuillToc:
            return toU32(mTocs.size());
        case Section::QuillAlbum:
            return toU32(mAlbums.size());
        case Section::QuillTrack:
            return toU32(mTracks.size());
        case Section::QuillArtist:
            return toU32(mArtists.size());
        case Section::QuillGenre:
            return toU32(mGenres.size());
        default:
            return 0;
    }
}

void DbImageBuilder::writeHeader(Bytes& out) const {
    out.insert(out.end(), mSignature.begin(), mSignature.end());
    appendU32Le(out, mVersion);
    for (uint16_t component : mAppVer1) {
        appendU16Le(out, component);
    }
    for (uint16_t component : mAppVer2) {
        appendU16Le(out, component);
    }
    out.insert(out.end(), mReserved.begin(), mReserved.end());
}

void DbImageBuilder::writeTable(Bytes& out, const Layout& layout) const {
    appendU32Le(out, mTableOwnSize);
    for (uint32_t index = 1; index < kTableWordCount; ++index) {
        const auto found = mWordOverrides.find(index);
        appendU32Le(out,
                    found != mWordOverrides.end() ? found->second : layout.spans[index].offset);
    }
}

void DbImageBuilder::writeArea(Bytes& out, Section section) const {
    if (section == Section::StringTable) {
        appendU32Le(out, mStringAreaWord.value_or(toU32(mStringEntries.size())));
        out.insert(out.end(), mStringEntries.begin(), mStringEntries.end());
        return;
    }
    if (section == Section::QuillAlbumTracks) {
        appendU32Le(out, mTrackListAreaWord.value_or(toU32(mTrackLists.size())));
        out.insert(out.end(), mTrackLists.begin(), mTrackLists.end());
        return;
    }
    if (!isRecordSection(section)) {
        appendWords(out, {kEmptyAreaSize, 0});
        return;
    }
    writeHead(out, section);
    writeRecords(out, section);
}

void DbImageBuilder::writeHead(Bytes& out, Section section) const {
    HeadOverride head;
    const auto found = mHeads.find(wordIndex(section));
    if (found != mHeads.end()) {
        head = found->second;
    }
    // A head can count at most 65535 records; more are written but not counted.
    const uint32_t maxCount = std::numeric_limits<uint16_t>::max();
    const uint16_t count = static_cast<uint16_t>(std::min(recordCountOf(section), maxCount));
    appendU32Le(out, head.ownSize.value_or(areaSize(section)));
    appendU16Le(out, head.recordSize.value_or(static_cast<uint16_t>(recordSizeOf(section))));
    appendU16Le(out, head.recordCount.value_or(count));
}

void DbImageBuilder::writeRecords(Bytes& out, Section section) const {
    switch (section) {
        case Section::QuillToc:
            for (const TocRecord& r : mTocs) {
                appendWords(out, {r.Id, r.AlbumId});
                appendU16Le(out, r.MediaNum);
                appendU16Le(out, r.Unnamed);
                appendWords(out, {r.RudPictFolderPath, r.RudArtFileName});
                out.insert(out.end(), tocStride() - kTocRecordSize, mTocPadByte);
            }
            break;
        case Section::QuillAlbum:
            for (const AlbumRecord& r : mAlbums) {
                appendWords(out, {r.Id,        r.MediaNum,          r.MediaCount, r.Title,
                                  r.TitleYomi, r.Performer,         r.Composer,   r.Genre,
                                  r.Tracks,    r.Confidence,        r.Language,   r.ImageUrl,
                                  r.Upc,       r.RelYear,           r.PickFlag,   r.KeyTitle,
                                  r.Credits,   r.FirstTrackByMedia, r.Styles,     r.Tones,
                                  r.Themas});
            }
            break;
        case Section::QuillTrack:
            for (const TrackRecord& r : mTracks) {
                appendWords(
                    out, {r.Id, r.Title, r.TitleYomi, r.Performer, r.Composer, r.Genre, r.Time,
                          r.Language, r.Confidence, r.MediaNum, r.TrackNum, r.PickFlag, r.KeyTitle,
                          r.Work, r.Part, r.Conductor, r.PerfDate, r.CompDate});
            }
            break;
        case Section::QuillArtist:
            for (const ArtistRecord& r : mArtists) {
                appendWords(out, {r.Id, r.Name, r.NameYomi, r.KeyName, r.Genre, r.Styles, r.Tones,
                                  r.Themas, r.SimilarArtists, r.Influences, r.Followers});
            }
            break;
        case Section::QuillGenre:
            for (const GenreRecord& r : mGenres) {
                appendWords(out, {r.Id, r.Name});
            }
            break;
        default:
            break;
    }
}

}  // namespace moxdb
