// What creating the module costs a process: the threads it starts and the
// resident memory it adds, from before HbSMox::GetInstance() to the link
// being up (notification 1 with 1), then after one lookup of a 64 KiB
// answer and its getSearchResult(). The phone (bench/support) is started
// before the first snapshot, so its own thread and memory are not counted.
// The program links the shared libmox.so, as an application does.
//
//   MoxFootprint --link loopback     the link's in-process endpoint
//   MoxFootprint --link unix         a Unix socket to a phone thread
//
// Figures come from /proc/self (tests/support/ProcessStats): VmRSS, and the
// threads under /proc/self/task with their names. One measurement per
// process: the module is created once.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BareAnswers.h"
#include "FacadeLookup.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ProcessStats.h"
#include "ScriptedPhone.h"
#include "moxdb/CatalogueBuilder.h"
#include "moxdb/TocText.h"

namespace {

const char* const kUsage =
    "usage: MoxFootprint --link loopback|unix\n"
    "Prints the threads and the resident memory that creating the module (HbSMox)\n"
    "with its link up adds to this process, and the memory after one lookup.\n";

struct Snapshot {
    std::map<int, ProcessStats::Switches> threads;
    unsigned long long residentKiB = 0;
};

Snapshot snapshot() {
    Snapshot s;
    s.threads = ProcessStats::switches();
    s.residentKiB = ProcessStats::statusKiB("VmRSS:");
    return s;
}

// The names of the threads of `after` that `before` lacks, as `named` (a
// later snapshot) knows them: a new thread carries its creator's name until
// it has named itself.
std::string newThreads(const Snapshot& before, const Snapshot& after, const Snapshot& named) {
    std::string names;
    for (const auto& entry : after.threads) {
        if (before.threads.count(entry.first) == 0) {
            const auto later = named.threads.find(entry.first);
            const std::string& name =
                later != named.threads.end() ? later->second.name : entry.second.name;
            names += (names.empty() ? "" : ", ") + name;
        }
    }
    return names.empty() ? "none" : names;
}

void report(const std::string& link, const char* when, const Snapshot& before,
            const Snapshot& after, const Snapshot& named) {
    std::printf(
        "%s, %s: threads %zu -> %zu (+%ld: %s), VmRSS %llu -> %llu KiB (+%lld KiB)\n", link.c_str(),
        when, before.threads.size(), after.threads.size(),
        static_cast<long>(after.threads.size()) - static_cast<long>(before.threads.size()),
        newThreads(before, after, named).c_str(), before.residentKiB, after.residentKiB,
        static_cast<long long>(after.residentKiB) - static_cast<long long>(before.residentKiB));
}

moxdb::Bytes sampleDatabase(const std::string& toc) {
    // Four albums of twelve tracks and a long text: about 64 KiB.
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeUniform(toc, 4, 12);
    cat.text(std::string(30000, 'x'));
    return cat.build();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || std::strcmp(argv[1], "--link") != 0 ||
        (std::strcmp(argv[2], "loopback") != 0 && std::strcmp(argv[2], "unix") != 0)) {
        std::fputs(kUsage, argc == 2 && std::strcmp(argv[1], "--help") == 0 ? stdout : stderr);
        return argc == 2 && std::strcmp(argv[1], "--help") == 0 ? 0 : 2;
    }
    const std::string link = argv[2];
    const std::string toc = moxdb::makeTocText(
        {0, 15000, 30000, 45000, 60000, 75000, 90000, 105000, 120000, 135000, 150000, 165000},
        189000);
    const BareAnswers answers(sampleDatabase(toc), 4096);
    char directory[] = "/tmp/mox-footprint-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        std::perror("MoxFootprint: mkdtemp");
        return 1;
    }
    const ScriptedPhone::Script script = [&answers](const uint8_t* frame, size_t size,
                                                    ScriptedPhone::Answer& answer) {
        answers.play(frame, size, answer);
    };
    ScriptedPhone loopbackPhone(script, linkwire::greeting("Bench"));
    std::unique_ptr<ScriptedPhone> socketPhone;
    std::string endpoint = "loopback";
    if (link == "unix") {
        socketPhone.reset(new ScriptedPhone(script, linkwire::greeting("Bench")));
        socketPhone->listenUnix(std::string(directory) + "/phone.sock");
        endpoint = socketPhone->endpoint();
    }
    OstLinkAppHost::setLoopbackPeer(&loopbackPhone);

    // ThreadSanitizer's runtime starts a helper thread of its own with the
    // first thread of the process: one thread first, so it is not counted.
    std::thread([] {}).join();
    const Snapshot before = snapshot();
    std::unique_ptr<FacadeLookup> module(new FacadeLookup());
    const bool linked = module->linkTo(endpoint);
    const Snapshot up = snapshot();
    std::list<HbSMoxDef::AlbumInfo> albums;
    const bool found = linked && module->lookup(toc, &albums) && albums.size() == 4;
    const Snapshot afterLookup = snapshot();

    int status = 0;
    if (!linked || !found) {
        std::fprintf(stderr, "MoxFootprint: the %s\n",
                     linked ? "lookup did not find the 4 albums" : "link did not come up");
        status = 1;
    } else {
        const Snapshot last = snapshot();
        report(link, "module created, link up", before, up, last);
        report(link, "after one 64 KiB lookup", before, afterLookup, last);
    }
    module->unlink();
    module->facade()->Terminate();
    module.reset();
    HbSingletonFinalizer::finalize();
    OstLinkAppHost::setLoopbackPeer(nullptr);
    socketPhone.reset();
    rmdir(directory);
    return status;
}
