// Feeds arbitrary text to the TOC readers of `mox toc` and `mox lookup` as a
// CUE sheet or a cdrdao TOC file, through readDiscToc(): the sheet checks,
// libcue, libcdio (BIN/CUE and cdrdao) and libsndfile for the files a sheet
// names. The sheet lies in a scratch directory of the process beside files
// it may name: a.bin (10 raw sectors), s.bin (the BIN whose sheet is the
// input) and a.wav (one second of CD audio).
//
// Input layout:
//   byte 0   how the text is read: % 4 = 0 a CUE sheet (--cue), 1 a CUE sheet
//            (--image), 2 the sheet beside a BIN file (--image s.bin), 3 a
//            cdrdao TOC file (--image s.toc)
//   the rest the sheet's text
//
// Nothing may crash or hang; a read either gives 1 to 99 tracks with
// increasing offsets and a TOC text of six digits per offset, or fails with
// a reason of one line.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "TocSource.h"

namespace {

std::string gDirectory;  // the scratch directory, with a final '/'

void writeFile(const std::string& path, const void* data, size_t size) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        std::abort();
    }
    if (size > 0 && std::fwrite(data, 1, size, file) != size) {
        std::abort();
    }
    std::fclose(file);
}

void putU32Le(std::vector<uint8_t>* out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out->push_back(static_cast<uint8_t>(value >> shift));
    }
}

void putU16Le(std::vector<uint8_t>* out, uint16_t value) {
    out->push_back(static_cast<uint8_t>(value));
    out->push_back(static_cast<uint8_t>(value >> 8));
}

// One second of silence as a WAV file: 44100 Hz, 16-bit stereo.
std::vector<uint8_t> wavOfOneSecond() {
    const uint32_t dataBytes = 44100 * 4;
    std::vector<uint8_t> wav = {'R', 'I', 'F', 'F'};
    putU32Le(&wav, 36 + dataBytes);
    wav.insert(wav.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    putU32Le(&wav, 16);
    putU16Le(&wav, 1);  // PCM
    putU16Le(&wav, 2);  // channels
    putU32Le(&wav, 44100);
    putU32Le(&wav, 44100 * 4);
    putU16Le(&wav, 4);
    putU16Le(&wav, 16);
    wav.insert(wav.end(), {'d', 'a', 't', 'a'});
    putU32Le(&wav, dataBytes);
    wav.resize(wav.size() + dataBytes, 0);
    return wav;
}

// Removes the scratch directory when the fuzzer ends.
void removeDirectory() {
    for (const char* name : {"a.bin", "s.bin", "a.wav", "s.cue", "s.toc"}) {
        ::unlink((gDirectory + name).c_str());
    }
    ::rmdir(gDirectory.c_str());
}

// Offsets rise, fit six hexadecimal digits, and the text has one entry for
// each track and the lead-out.
void checkToc(const DiscToc& toc) {
    if (toc.offsets.empty() || toc.offsets.size() > 99 || toc.offsets.front() < 150 ||
        toc.leadOut > 0xFFFFFF || toc.toc.size() != 6 * (toc.offsets.size() + 1)) {
        std::abort();
    }
    for (size_t i = 0; i < toc.offsets.size(); ++i) {
        const uint32_t next = i + 1 < toc.offsets.size() ? toc.offsets[i + 1] : toc.leadOut;
        if (next <= toc.offsets[i]) {
            std::abort();
        }
    }
}

}  // namespace

// The libraries lose memory on some sheets: libcdio a data source of every
// FILE line of a cdrdao TOC file when it closes the image, libcue its partial
// parse of a malformed sheet (a few kilobytes a read; the CLI reads once and
// ends). Their leaks are not this program's findings; every other leak is.
// They add up over a run, some 350 bytes a run on average: 512 MB resident
// after about 800,000 runs (three minutes here). A run longer than that needs
// a higher -rss_limit_mb, or -runs to end it first.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libcdio.so\nleak:libcue.so\n";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && base[0] != '\0' ? base : "/tmp") + "/mox-toc-fuzz-XXXXXX";
    if (::mkdtemp(&pattern[0]) == nullptr) {
        std::abort();
    }
    gDirectory = pattern + "/";
    std::atexit(removeDirectory);
    const std::vector<uint8_t> sectors(10 * 2352, 0);
    writeFile(gDirectory + "a.bin", sectors.data(), sectors.size());
    writeFile(gDirectory + "s.bin", sectors.data(), sectors.size());
    const std::vector<uint8_t> wav = wavOfOneSecond();
    writeFile(gDirectory + "a.wav", wav.data(), wav.size());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    const int kind = data[0] % 4;
    const std::string sheet = gDirectory + (kind == 3 ? "s.toc" : "s.cue");
    writeFile(sheet, data + 1, size - 1);
    TocRequest request;
    request.origin = kind == 0 ? TocOrigin::CUE : TocOrigin::IMAGE;
    request.path = kind == 2 ? gDirectory + "s.bin" : sheet;
    DiscToc toc;
    std::string why;
    if (readDiscToc(request, &toc, &why)) {
        checkToc(toc);
    } else if (why.empty() || why.find('\n') != std::string::npos) {
        std::abort();  // every failure says why, on one line
    }
    ::unlink(sheet.c_str());
    return 0;
}
