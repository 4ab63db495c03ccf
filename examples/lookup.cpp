// Looks a disc up through the phone and prints its albums, using nothing but
// the module's public headers.
//
//   OST_LINKAPP_ENDPOINT=unix:/tmp/phone.sock mox-example 0000960046E6008D3600D386
//
// Exit status 0 when albums were found, 1 otherwise.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>

#include "HbSMox.h"
#include "HbSMoxDef.h"

// Follows the module's notifications: 1 link state, 2 result state.
class Lookup {
public:
    uint32 onMox(uint32 id, void* data, uint32 size) {
        int32 value = 0;
        if (size != sizeof(value) || (id != 1 && id != 2)) {
            return 1;
        }
        std::memcpy(&value, data, sizeof(value));
        std::lock_guard<std::mutex> lock(mMutex);
        if (id == 1) {
            mLinked = value != 0;
        } else {
            mSearching = mSearching || value == 103;
            mState = value;
        }
        mChanged.notify_all();
        return 1;
    }

    bool waitForLink(bool linked) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kLimit, [this, linked] { return mLinked == linked; });
    }

    // The result state once the lookup has ended: 0 when a result is stored,
    // 100 when it ended without one, or the phone's failure code.
    int32 waitForEnd() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, kLimit, [this] {
            const bool failureCode = mState != 4 && mState != 20 && (mState < 100 || mState > 104);
            return mSearching && (mState == 0 || mState == 100 || failureCode);
        });
        return mState;
    }

private:
    static constexpr std::chrono::seconds kLimit{60};
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mLinked = false;
    bool mSearching = false;
    int32 mState = 100;
};

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s TOC-TEXT\n", argv[0]);
        return 2;
    }
    Lookup lookup;
    HbObserver<Lookup> observer(&lookup, &Lookup::onMox);
    HbSMox* mox = HbSMox::GetInstance();
    mox->AddObserver(&observer);
    mox->startLink();
    int status = 1;
    if (!lookup.waitForLink(true)) {
        std::fprintf(stderr, "the phone did not link\n");
    } else {
        HbSMoxDef::SearchInfo info{0, 0, 0, argv[1]};
        mox->search(info);
        const int32 state = lookup.waitForEnd();
        std::list<HbSMoxDef::AlbumInfo> albums;
        if (state == 0 && mox->getSearchResult(info.toc, &albums) && !albums.empty()) {
            for (const HbSMoxDef::AlbumInfo& album : albums) {
                std::printf("%s (%d%%, %zu tracks)\n", album.AlbumName.c_str(), album.Confidence,
                            album.Tracks.size());
                for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
                    std::printf("  %s - %s\n", track.PerformerName.c_str(),
                                track.TrackName.c_str());
                }
            }
            status = 0;
        } else {
            std::fprintf(stderr, "no album found (result state %d)\n", state);
        }
    }
    mox->stopLink();  // tells the phone, then closes the link
    lookup.waitForLink(false);
    mox->Terminate();
    mox->RemoveObserver(&observer);
    return status;
}
