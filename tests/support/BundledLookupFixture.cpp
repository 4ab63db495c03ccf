#include "BundledLookupFixture.h"

#include "HbFramework/HbLTimerManualClock.h"
#include "moxphone/Catalogue.h"
#include "private/Mox.h"
#include "private/MoxState.h"

const char* const BundledLookupFixture::kToc = "00009600410A00827800C31E0102660146C2";
const std::vector<std::string> BundledLookupFixture::kExpectedTitles = {
    "Lumi\xC3\xA8re d'\xC3\xA9t\xC3\xA9", "Summer Light"};

void BundledLookupFixture::SetUp() {
    HbLTimerManualClock::GetInstance()->Use();
    previousSink = HbDbgOutput::SetSink([this](const HbDbgRecord&) { ++logged; });
    moxphone::Catalogue catalogue;
    moxphone::CatalogueProblem problem;
    ASSERT_TRUE(
        moxphone::Catalogue::loadFile(moxphone::Catalogue::bundledPath(), &catalogue, &problem))
        << problem.text();
    options.catalogue = std::make_shared<const moxphone::Catalogue>(catalogue);
    options.timeScale = 0.001;
    facade = HbSMox::GetInstance();
    facade->AddObserver(appLog.observer());
    barrier.reset(new WorkerBarrier(facade->getMox()->getWorker()->GetMsgBox()));
}

void BundledLookupFixture::TearDown() {
    if (facade == nullptr) {  // SetUp stopped before the module started
        HbDbgOutput::SetSink(previousSink);
        return;
    }
    facade->Terminate();
    barrier.reset();
    facade->RemoveObserver(appLog.observer());
    releasePhones();
    HbDbgOutput::SetSink(previousSink);
}

bool BundledLookupFixture::linked() {
    return facade->getMox()->getMoxState()->getIsAppLinkState();
}

std::vector<std::string> BundledLookupFixture::titles(
    const std::list<HbSMoxDef::AlbumInfo>& albums) {
    std::vector<std::string> out;
    for (const HbSMoxDef::AlbumInfo& album : albums) {
        out.push_back(album.AlbumName);
    }
    return out;
}
