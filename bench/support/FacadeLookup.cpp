#include "FacadeLookup.h"

#include <chrono>
#include <cstring>

#include "OstLinkApp/OstLinkAppHost.h"

namespace {

const std::chrono::seconds kLimit(10);

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
    LookupWatch watch(false);
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mWatch = &watch;
    }
    watch.markSearching();
    HbSMoxDef::SearchInfo info{0, 0, 0, toc};
    mFacade->search(info);
    const int32 end = watch.waitForEnd(LookupWatch::Clock::now() + kLimit);
    std::lock_guard<std::mutex> lock(mMutex);
    mWatch = nullptr;
    return end;
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
    std::lock_guard<std::mutex> lock(mMutex);
    if (mWatch != nullptr) {
        mWatch->onMox(id, data, size);
    }
    if (id == 1) {
        mLink = value != 0 ? 1 : 0;
        mChanged.notify_all();
    }
    return 1;
}

bool FacadeLookup::waitForLink(bool linked) {
    const int wanted = linked ? 1 : 0;
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kLimit, [this, wanted] { return mLink == wanted; });
}
