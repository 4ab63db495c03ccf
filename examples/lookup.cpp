// Looks a disc up through the phone and prints its albums, with the public headers alone.
// Exit status 0 when albums were found, 1 otherwise ("link lost": no phone, or it left).
//
//   OST_LINKAPP_ENDPOINT=unix:$XDG_RUNTIME_DIR/phone.sock mox-example 0000960046E6008D3600D386
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>

#include "HbSMox.h"
#include "HbSMoxDef.h"

// Follows the module's notifications: 1 link state, 2 result state, 3 device status.
// A lost link ends every wait: the module drops a search that it gets without one.
class Lookup {
public:
    uint32 onMox(uint32 id, void* data, uint32 size) {
        std::lock_guard<std::mutex> lock(mMutex);
        int32 value = 0;
        std::memcpy(&value, data, size == sizeof(value) ? sizeof(value) : 0);
        if (id == 3 && size == 1) {
            const uint8 status = *static_cast<const uint8*>(data);
            mLost = mLost || status == 0 || status == 3;  // no device, or closed
        } else if (id == 1 && size == sizeof(value)) {
            mLost = mLost || (mLinked && value == 0);
            mLinked = value != 0;
        } else if (id == 2 && size == sizeof(value)) {
            mSearching = mSearching || value == 103;
            mState = value;
        }
        mChanged.notify_all();
        return 1;
    }

    // Waits until the link is `up` (or not); false when it was lost, or after a minute.
    bool waitForLink(bool up) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, std::chrono::minutes(1), [&] { return mLost || mLinked == up; });
        return mLinked == up && !mLost;
    }

    // The result state once the lookup has ended: 0 when a result is stored, 100
    // when it ended without one, the phone's failure code; -1 when the link was lost.
    int32 waitForEnd() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, std::chrono::minutes(1), [this] {
            const bool failureCode = mState != 4 && mState != 20 && (mState < 100 || mState > 104);
            return mLost || (mSearching && (mState == 0 || mState == 100 || failureCode));
        });
        return mLost ? -1 : mState;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mLinked = false;
    bool mLost = false;
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
    HbSMoxDef::SearchInfo info{0, 0, 0, argv[1]};
    int32 state = -1;  // no link: lost, or none within a minute
    if (lookup.waitForLink(true)) {
        mox->search(info);
        state = lookup.waitForEnd();
    }
    std::list<HbSMoxDef::AlbumInfo> albums;
    if (state == 0 && mox->getSearchResult(info.toc, &albums) && !albums.empty()) {
        for (const HbSMoxDef::AlbumInfo& album : albums) {
            std::printf("%s (%d%%, %zu tracks)\n", album.AlbumName.c_str(), album.Confidence,
                        album.Tracks.size());
            for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
                std::printf("  %s - %s\n", track.PerformerName.c_str(), track.TrackName.c_str());
            }
        }
    } else if (state == -1) {
        std::fprintf(stderr, "link lost\n");
    } else {
        std::fprintf(stderr, "no album found (result state %d)\n", state);
    }
    mox->stopLink();  // tells the phone, then closes the link
    lookup.waitForLink(false);
    mox->Terminate();
    mox->RemoveObserver(&observer);
    return albums.empty() ? 1 : 0;
}
