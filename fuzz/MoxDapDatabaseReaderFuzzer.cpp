// Feeds arbitrary bytes to the response-database reader as the stored phone
// answer and drives every reader operation over them: open, header, version,
// section table, strings, the four record lookups, album track lists and the
// renderings. Identifiers, string offsets and list offsets are taken from the
// input itself (the records its section table points at, and its last word),
// so a well-formed seed reaches real records. Nothing may crash, leak or read
// outside its buffers; after each group of calls the reader is closed again.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxResultFile.h"

namespace {

// Little-endian u32 of the input at `offset`; 0 when it lies (partly) outside.
uint32_t wordAt(const uint8_t* data, size_t size, uint64_t offset) {
    if (offset > size || size - offset < 4) {
        return 0;
    }
    return static_cast<uint32_t>(data[offset]) | (static_cast<uint32_t>(data[offset + 1]) << 8) |
           (static_cast<uint32_t>(data[offset + 2]) << 16) |
           (static_cast<uint32_t>(data[offset + 3]) << 24);
}

// Section words of the table, by index.
const uint32_t WORD_QUILL_TRACK = 6;
const uint32_t WORD_QUILL_ALBUM = 7;
const uint32_t WORD_QUILL_ARTIST = 10;
const uint32_t WORD_QUILL_GENRE = 11;
const uint32_t WORD_QUILL_TOC = 13;

class Input {
public:
    Input(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    uint32_t tableWord(uint32_t index) const { return wordAt(mData, mSize, 64u + 4u * index); }
    uint32_t lastWord() const { return mSize >= 4 ? wordAt(mData, mSize, mSize - 4) : 0; }
    // Field `field` (u32 index) of record `n` of the section at table word `index`.
    uint32_t recordField(uint32_t index, uint32_t recordSize, uint32_t n, uint32_t field) const {
        return wordAt(mData, mSize,
                      uint64_t{tableWord(index)} + 8 + uint64_t{n} * recordSize + 4u * field);
    }
    // Identifiers worth asking for in a section: its first records, 0, and the last word.
    std::vector<uint32_t> ids(uint32_t index, uint32_t recordSize) const {
        return {recordField(index, recordSize, 0, 0), recordField(index, recordSize, 1, 0),
                recordField(index, recordSize, 2, 0), 0, lastWord()};
    }

    // Copies `size` bytes at `offset` into `out`; zeros when they lie (partly) outside.
    void copyAt(uint64_t offset, void* out, size_t size) const {
        std::memset(out, 0, size);
        if (offset <= mSize && mSize - offset >= size) {
            std::memcpy(out, mData + offset, size);
        }
    }

private:
    const uint8_t* mData;
    size_t mSize;
};

// Writes a new file each time: rewriting a truncated file would make the file
// system flush it on close, which slows every run down.
bool writeResultFile(const uint8_t* data, size_t size) {
    std::remove(MoxResultFile::FULL_PATH.c_str());
    FILE* file = std::fopen(MoxResultFile::FULL_PATH.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && written;
}

// Opens and loads the stored file the way a search does; renders the loaded
// header and table. False when any step failed (the reader is closed then).
bool load(MoxDapDatabase* db) {
    db->init();
    if (!db->openSearchResultFile()) {
        return false;
    }
    db->mpDbHeader = new DbHeader();
    std::memset(static_cast<void*>(db->mpDbHeader), 0, sizeof(DbHeader));
    if (!db->getDbHeader()) {
        return false;
    }
    volatile size_t sink = db->getStrDbHeader().size();
    if (!db->judgeDapDbVer()) {
        return false;
    }
    db->mpDbToc = new DbToc();
    std::memset(static_cast<void*>(db->mpDbToc), 0, sizeof(DbToc));
    if (!db->getDbToc()) {
        return false;
    }
    sink = sink + db->getStrDbToc().size();
    (void)sink;
    return true;
}

void exerciseStrings(MoxDapDatabase* db, const Input& input) {
    if (!load(db)) {
        return;
    }
    const uint32_t offsets[] = {0,
                                2,
                                input.recordField(WORD_QUILL_TOC, 20, 0, 0),
                                input.recordField(WORD_QUILL_ALBUM, 84, 0, 3),
                                input.recordField(WORD_QUILL_TRACK, 72, 0, 1),
                                input.recordField(WORD_QUILL_ARTIST, 44, 0, 1),
                                input.lastWord()};
    for (uint32_t offset : offsets) {
        std::string text;
        if (!db->getString(offset, &text) && !load(db)) {
            return;
        }
    }
}

// Runs one lookup per identifier, reloading after each failure, and renders
// every record found.
template <class Rec, class Lookup, class Render>
void exerciseLookups(MoxDapDatabase* db, const std::vector<uint32_t>& ids, Lookup lookup,
                     Render render) {
    if (!load(db)) {
        return;
    }
    for (uint32_t id : ids) {
        Rec rec;
        std::memset(static_cast<void*>(&rec), 0, sizeof(rec));
        const bool found = (db->*lookup)(id, &rec);
        volatile size_t sink = (db->*render)(rec).size();
        (void)sink;
        if (!found && !load(db)) {
            return;
        }
    }
}

void exerciseTrackLists(MoxDapDatabase* db, const Input& input) {
    if (!load(db)) {
        return;
    }
    const uint32_t offsets[] = {input.recordField(WORD_QUILL_ALBUM, 84, 0, 8),
                                input.recordField(WORD_QUILL_ALBUM, 84, 1, 8), 0, input.lastWord()};
    for (uint32_t offset : offsets) {
        QuillAlbumTracks list;
        if (!db->getQuillAlbumTracksInfo(offset, &list) && !load(db)) {
            return;
        }
    }
}

// Renders the section heads and the first TOC records as the input holds
// them (the TOC walk itself belongs to the search).
void exerciseRenderings(MoxDapDatabase* db, const Input& input) {
    size_t total = 0;
    for (uint32_t index : {WORD_QUILL_TOC, WORD_QUILL_ALBUM, WORD_QUILL_TRACK, WORD_QUILL_ARTIST,
                           WORD_QUILL_GENRE}) {
        QuillHead head;
        input.copyAt(input.tableWord(index), &head, sizeof(head));
        total += db->getStrQuillHead(head).size();
    }
    for (uint32_t n = 0; n < 3; ++n) {
        QuillTocRec toc;
        input.copyAt(uint64_t{input.tableWord(WORD_QUILL_TOC)} + 8 + 20u * n, &toc, sizeof(toc));
        total += db->getStrTocRec(toc).size();
    }
    volatile size_t sink = total;
    (void)sink;
}

bool setUp() {
    HbFileSys::CreateDirectory(MoxResultFile::DIRECTORY.c_str(), true);
    // Thousands of inputs a second: the reader's messages would drown the
    // fuzzer's own output.
    HbDbgOutput::SetSink([](const HbDbgRecord&) {});
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = setUp();
    (void)ready;
    if (!writeResultFile(data, size)) {
        return 0;
    }
    MoxDapDatabase* db = MoxDapDatabase::GetInstance();
    const Input input(data, size);

    exerciseStrings(db, input);
    exerciseLookups<QuillTrackRec>(db, input.ids(WORD_QUILL_TRACK, 72),
                                   &MoxDapDatabase::getQuillTrackInfo,
                                   &MoxDapDatabase::getStrTrackRec);
    exerciseLookups<QuillAlbumRec>(db, input.ids(WORD_QUILL_ALBUM, 84),
                                   &MoxDapDatabase::getQuillAlbumInfo,
                                   &MoxDapDatabase::getStrAlbumRec);
    exerciseLookups<QuillArtistRec>(db, input.ids(WORD_QUILL_ARTIST, 44),
                                    &MoxDapDatabase::getQuillArtistInfo,
                                    &MoxDapDatabase::getStrArtistRec);
    exerciseLookups<QuillGenreRec>(db, input.ids(WORD_QUILL_GENRE, 8),
                                   &MoxDapDatabase::getQuillGenreInfo,
                                   &MoxDapDatabase::getStrGenreRec);
    exerciseTrackLists(db, input);
    exerciseRenderings(db, input);

    // Every operation on the closed reader must fail cleanly.
    db->init();
    std::string text;
    db->getString(0, &text);
    QuillTrackRec track;
    db->getQuillTrackInfo(0, &track);
    QuillAlbumTracks list;
    db->getQuillAlbumTracksInfo(0, &list);
    db->init();
    return 0;
}
