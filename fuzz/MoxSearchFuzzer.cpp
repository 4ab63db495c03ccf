// Fuzzes the whole album search on a stored database and a disc's TOC text.
//
// Input: the first byte is the length N of the TOC text, the next N bytes are
// the TOC text (fewer when the input ends), and everything after them is the
// database, stored as the module's result file before each search.
//
// Besides the sanitizers, each run checks what the search promises whatever
// the file holds: the file is closed and the buffers are freed on every exit;
// a successful search leaves albums ordered best confidence first, each with
// exactly (N / 6) - 1 tracks; every album in the list, also after a failure,
// was assembled completely (database code 1, language 3 or 5, at least one
// track, track numbers 0).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "private/MoxDapDatabase.h"

namespace {

bool storeDatabase(const uint8_t* data, size_t size) {
    FILE* file = std::fopen(HbFileSysHost::getResultFilePath().c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && written;
}

void check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "MoxSearchFuzzer: broken promise: %s\n", what);
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true);
    // The reader reports every fault it meets; keep the fuzzer's output quiet.
    HbDbgOutput::SetSink([](const HbDbgRecord&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    size_t tocLength = data[0];
    if (tocLength > size - 1) {
        tocLength = size - 1;
    }
    const std::string toc(reinterpret_cast<const char*>(data + 1), tocLength);
    if (!storeDatabase(data + 1 + tocLength, size - 1 - tocLength)) {
        std::fprintf(stderr, "MoxSearchFuzzer: cannot write %s\n",
                     HbFileSysHost::getResultFilePath().c_str());
        std::abort();
    }

    MoxDapDatabase* database = MoxDapDatabase::GetInstance();
    std::list<HbSMoxDef::AlbumInfo> albums;
    const bool found = database->getSearchResult(toc, &albums);

    check(database->mpReadFile == nullptr, "file closed after the search");
    check(database->mpDbHeader == nullptr, "header freed after the search");
    check(database->mpDbToc == nullptr, "section table freed after the search");

    const uint32_t expectedTracks = static_cast<uint32_t>(toc.size()) / 6u - 1u;
    bool first = true;
    int32_t previous = 0;
    for (HbSMoxDef::AlbumInfo& album : albums) {
        check(album.Database == 1, "album assembled (database code 1)");
        check(album.AlbumLang == 3 || album.AlbumLang == 5, "language code 3 or 5");
        check(!album.Tracks.empty(), "album with at least one track");
        for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
            check(track.TrackNum == 0, "track number 0");
        }
        if (found) {
            check(album.Tracks.size() == expectedTracks, "track count fits the TOC text");
            check(first || album.Confidence <= previous, "best confidence first");
        }
        first = false;
        previous = album.Confidence;
        // The text form must cope with whatever the strings hold.
        const std::string text = database->getStrAlbum(album);
        check(text.compare(0, 8, "AlbumId=") == 0, "text form starts with AlbumId=");
    }
    return 0;
}
