// The capture of mox lookup, installed as the host link's listener.
#include "HostCapture.h"

#include "OstLinkApp/OstLinkAppHost.h"

HostCapture::~HostCapture() {
    if (mCapture) {
        OstLinkAppHost::setTap(nullptr);
        mCapture->close();
    }
}

bool HostCapture::start(const std::string& path, std::string* why) {
    if (path.empty()) {
        return true;
    }
    std::unique_ptr<moxcapture::LinkCapture> capture(new moxcapture::LinkCapture());
    if (!capture->open(path, why)) {
        return false;
    }
    mCapture = std::move(capture);
    OstLinkAppHost::setTap(mCapture.get());
    return true;
}

std::string HostCapture::failure() const {
    return mCapture ? mCapture->failure() : std::string();
}
