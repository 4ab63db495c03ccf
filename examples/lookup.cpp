// Looks a disc up through the phone and prints its albums, with the public headers alone.
// Exit status 0 with albums, else 1 with the reason: OST_LINKAPP_ENDPOINT=unix:PATH mox-example TOC
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>

#include "HbSMox.h"
#include "HbSMoxDef.h"

// Follows the module's notifications: 1 link state, 2 result state, 3 device status. A lost
// link ends every wait (the module drops a search that it gets without one). 4 (timeout),
// 20 (error) or a status of the phone make the module give up: the first is the reason.
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
            mPhoneStatus = value != 0 && value != 4 && value != 20 && (value < 100 || value > 104);
            mFirst = mFirst == 0 && (mPhoneStatus || value == 4 || value == 20) ? value : mFirst;
            mSearching = mSearching || value == 103;
            mState = value;
        }
        mChanged.notify_all();
        return 1;
    }

    // Waits until the link is `up` (or not); false when lost, failed, or after a minute.
    bool waitForLink(bool up) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, std::chrono::minutes(1),
                          [&] { return mLost || mLinked == up || (up && mFirst != 0); });
        return mLinked == up && !mLost;
    }

    // The end of the lookup: 0 when a result is stored, else the first failure, 100 when
    // it was cancelled, -1 when the link was lost. Without `wait`, the state as it is.
    int32 end(bool wait) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, std::chrono::minutes(wait ? 1 : 0), [this] {
            return mLost || mPhoneStatus || (mSearching && (mState == 0 || mState == 100));
        });
        return mLost ? -1 : mFirst != 0 ? mFirst : mState;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mLinked = false, mLost = false, mSearching = false, mPhoneStatus = false;
    int32 mState = 100, mFirst = 0;
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
    const int32 state =
        lookup.waitForLink(true) ? (mox->search(info), lookup.end(true)) : lookup.end(false);
    std::list<HbSMoxDef::AlbumInfo> albums;
    if (state == 0 && mox->getSearchResult(info.toc, &albums) && !albums.empty()) {
        for (const HbSMoxDef::AlbumInfo& album : albums) {
            std::printf("%s (%d%%, %zu tracks)\n", album.AlbumName.c_str(), album.Confidence,
                        album.Tracks.size());
            for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
                std::printf("  %s - %s\n", track.PerformerName.c_str(), track.TrackName.c_str());
            }
        }
    } else {
        const char* why = state == -1   ? "link lost: no phone, or it left"
                          : state == 4  ? "timed out: the phone did not answer in time"
                          : state == 20 ? "error: no answer, or an answer that was refused"
                          : state == 0 || state == 404   ? "the phone knows no album for this disc"
                          : state >= 100 && state <= 104 ? "no end"
                                                         : "the phone failed";
        std::fprintf(stderr, "%s (result state %d)\n", why, state);
    }
    mox->stopLink();  // tells the phone, then closes the link
    lookup.waitForLink(false);
    mox->Terminate();
    mox->RemoveObserver(&observer);
    return albums.empty() ? 1 : 0;
}
