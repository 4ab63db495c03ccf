#include "HbSMox.h"

#include "private/Mox.h"

// The one copy of the facade's singleton machinery, exported (see HbSMox.h).
template class HbSingleton<HbSMox>;

HbSMox::HbSMox() : HbSubject(), HbSingleton<HbSMox>(), mox(nullptr), observer(nullptr) {
    observer = new HbObserver<HbSMox>(this, &HbSMox::rcvMoxNotify);
    getMox()->AddObserver(observer);
}

HbSMox::~HbSMox() {
    getMox()->RemoveObserver(observer);
    if (observer != nullptr) {
        delete observer;
    }
    observer = nullptr;
}

void HbSMox::DelInstance() {}

Mox* HbSMox::getMox() {
    if (mox == nullptr) {
        mox = Mox::GetInstance();
    }
    return mox;
}

void HbSMox::Terminate() {
    getMox()->Terminate();
}

void HbSMox::startLink() {
    getMox()->moxStartLink();
}

void HbSMox::stopLink() {
    getMox()->moxStopLink();
}

void HbSMox::search(HbSMoxDef::SearchInfo& info) {
    getMox()->moxSearch(info);
}

void HbSMox::requestDeviceConnect() {
    getMox()->moxRequestDeviceConnect();
}

void HbSMox::requestDeviceDisconnect() {
    getMox()->moxRequestDeviceDisconnect();
}

bool HbSMox::getSearchResult(std::string toc, std::list<HbSMoxDef::AlbumInfo>* albums) {
    return getMox()->moxGetSearchResult(toc, albums);
}

int32 HbSMox::getSearchStatus() {
    return getMox()->moxGetSearchStatus();
}

uint32 HbSMox::rcvMoxNotify(uint32 id, void* data, uint32 size) {
    NotifyObserver(id, data, size, en_NTF_TYPE_SYNC);
    return 1;
}
