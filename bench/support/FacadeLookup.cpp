#include "FacadeLookup.h"

#include <chrono>
#include <cstring>

#include "OstLinkApp/OstLinkAppHost.h"

namespace {

const std::chrono::seconds kLimit(10);

// Result states on the way (connecting, connected, searching): every other
// value ends a lookup.
bool isUnderway(int32 state) {
    return state >= 101 && state <= 103;
}

}  // namespace

FacadeLookup::FacadeLookup()
    : mFacade(HbSMox::GetInstance()), mObserver(this, &FacadeLookup::onNotify) {
    mFacade->AddObserver(&mObserver);
}

FacadeLookup::~FacadeLookup() {
    mFacade->RemoveObserver(&mObserver);
}

bool FacadeLookup::linkTo(const std::string& endpoint) {
    OstLinkAppHost::setEndpoint(endpoint);
    mFacade->startLink();
    return waitForLink(true);
}

bool FacadeLookup::unlink() {
    mFacade->stopLink();
    return waitForLink(false);
}

int FacadeLookup::receive(const std::string& toc) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mOutcome = -1;
    }
    HbSMoxDef::SearchInfo info{0, 0, 0, toc};
    mFacade->search(info);
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait_for(lock, kLimit, [this] { return mOutcome != -1; });
    return mOutcome;
}

bool FacadeLookup::lookup(const std::string& toc, std::list<HbSMoxDef::AlbumInfo>* albums) {
    return receive(toc) == 0 && mFacade->getSearchResult(toc, albums);
}

uint32 FacadeLookup::onNotify(uint32 id, void* data, uint32 size) {
    int32 value = 0;
    if ((id != 1 && id != 2) || data == nullptr || size != sizeof(value)) {
        return 1;
    }
    std::memcpy(&value, data, sizeof(value));
    // The waiting thread is woken only by what it waits for: a link change
    // or the end of a lookup, not by the states on the way.
    if (id == 2 && isUnderway(value)) {
        return 1;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    if (id == 1) {
        mLink = value != 0 ? 1 : 0;
    } else {
        mOutcome = value;
    }
    mChanged.notify_all();
    return 1;
}

bool FacadeLookup::waitForLink(bool linked) {
    const int wanted = linked ? 1 : 0;
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kLimit, [this, wanted] { return mLink == wanted; });
}
