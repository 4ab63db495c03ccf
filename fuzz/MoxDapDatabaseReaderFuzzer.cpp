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
#include "HbFramework/HbFileSysHost.h"
#include "moxdb/DbImageReader.h"
#include "private/MoxDapDatabase.h"

namespace {

using moxdb::Section;

// What the calls ask for, read from the input with the tools' image reader:
// leniently, 0 (or zeros) for whatever lies outside.
class Input {
public:
    explicit Input(const moxdb::Bytes& image) : mReader(image) {}

    uint32_t tableWord(Section section) const { return mReader.tableWord(section); }
    uint32_t lastWord() const { return mReader.lastWord(); }
    // Field `field` (u32 index) of record `n` of the section, at the family's fixed size.
    uint32_t recordField(Section section, uint32_t n, uint32_t field) const {
        moxdb::SectionHead fixed;
        fixed.recordSize = static_cast<uint16_t>(moxdb::recordSizeOf(section));
        return mReader.u32(mReader.recordOffset(section, fixed, n) + 4u * field);
    }
    // Identifiers worth asking for in a section: its first records, 0, and the last word.
    std::vector<uint32_t> ids(Section section) const {
        return {recordField(section, 0, 0), recordField(section, 1, 0), recordField(section, 2, 0),
                0, lastWord()};
    }

    // Copies `size` bytes at `offset` into `out`; zeros when they lie (partly) outside.
    void copyAt(uint64_t offset, void* out, size_t size) const {
        std::memset(out, 0, size);
        moxdb::Bytes bytes;
        moxdb::ImageFault fault;
        if (mReader.read("input", offset, size, &bytes, &fault)) {
            std::memcpy(out, bytes.data(), size);
        }
    }

private:
    moxdb::DbImageReader mReader;
};

// Writes a new file each time: rewriting a truncated file would make the file
// system flush it on close, which slows every run down.
bool writeResultFile(const uint8_t* data, size_t size) {
    std::remove(HbFileSysHost::getResultFilePath().c_str());
    FILE* file = std::fopen(HbFileSysHost::getResultFilePath().c_str(), "wb");
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
                                input.recordField(Section::QuillToc, 0, 0),
                                input.recordField(Section::QuillAlbum, 0, 3),
                                input.recordField(Section::QuillTrack, 0, 1),
                                input.recordField(Section::QuillArtist, 0, 1),
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
    const uint32_t offsets[] = {input.recordField(Section::QuillAlbum, 0, 8),
                                input.recordField(Section::QuillAlbum, 1, 8), 0, input.lastWord()};
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
    for (Section section : moxdb::DbImageReader::recordSections()) {
        QuillHead head;
        input.copyAt(input.tableWord(section), &head, sizeof(head));
        total += db->getStrQuillHead(head).size();
    }
    for (uint32_t n = 0; n < 3; ++n) {
        QuillTocRec toc;
        input.copyAt(uint64_t{input.tableWord(Section::QuillToc)} + 8 + 20u * n, &toc, sizeof(toc));
        total += db->getStrTocRec(toc).size();
    }
    volatile size_t sink = total;
    (void)sink;
}

bool setUp() {
    HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true);
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
    const moxdb::Bytes image(data, data + size);
    const Input input(image);

    exerciseStrings(db, input);
    exerciseLookups<QuillTrackRec>(db, input.ids(Section::QuillTrack),
                                   &MoxDapDatabase::getQuillTrackInfo,
                                   &MoxDapDatabase::getStrTrackRec);
    exerciseLookups<QuillAlbumRec>(db, input.ids(Section::QuillAlbum),
                                   &MoxDapDatabase::getQuillAlbumInfo,
                                   &MoxDapDatabase::getStrAlbumRec);
    exerciseLookups<QuillArtistRec>(db, input.ids(Section::QuillArtist),
                                    &MoxDapDatabase::getQuillArtistInfo,
                                    &MoxDapDatabase::getStrArtistRec);
    exerciseLookups<QuillGenreRec>(db, input.ids(Section::QuillGenre),
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
