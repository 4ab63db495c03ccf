// A test fixture for long runs of whole lookups through the facade, answered
// by phones that serve the bundled catalogue: the soak and the fault
// campaign. The module's command timer runs on the manual clock; the
// module's debug records are counted, not kept, so that the log does not
// grow the memory that a long run measures.
//
//   class MoxSoakTest : public BundledLookupFixture {
//       void SetUp() override { BundledLookupFixture::SetUp(); ... make the phone ... }
//       void releasePhones() override { ... }
//   };
#ifndef MOX_TESTS_BUNDLEDLOOKUPFIXTURE_H
#define MOX_TESTS_BUNDLEDLOOKUPFIXTURE_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "HbFramework/HbDbgOutput.h"
#include "HbSMox.h"
#include "NotificationLog.h"
#include "WorkerBarrier.h"
#include "moxphone/PhoneOptions.h"

class BundledLookupFixture : public ::testing::Test {
protected:
    // A disc of the bundled catalogue with three candidate albums; the
    // search keeps the two whose track count matches the TOC
    // (docs/simulator.md).
    static const char* const kToc;
    static const std::vector<std::string> kExpectedTitles;

    // Manual clock, counted debug records, `options` with the bundled
    // catalogue (slow chunks of 2000 ms come after 2 ms), the facade observed
    // by `appLog`, and a barrier on its worker.
    void SetUp() override;
    // Ends the module, then releasePhones(), then gives the debug output
    // its sink back.
    void TearDown() override;
    // Drops the phones a test made, once the module has ended.
    virtual void releasePhones() {}

    bool linked();

    static std::vector<std::string> titles(const std::list<HbSMoxDef::AlbumInfo>& albums);

    HbDbgOutput::Sink previousSink;
    std::atomic<size_t> logged{0};
    moxphone::PhoneOptions options;
    NotificationLog appLog;
    HbSMox* facade = nullptr;
    std::unique_ptr<WorkerBarrier> barrier;
};

#endif  // MOX_TESTS_BUNDLEDLOOKUPFIXTURE_H
