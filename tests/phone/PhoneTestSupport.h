// Shared by the simulator's tests: the wire written out byte by byte
// (LinkWire.h), a transport that records what a session sends, a scheduler
// driven by hand, and small catalogues.
#ifndef MOX_TESTS_PHONE_PHONETESTSUPPORT_H
#define MOX_TESTS_PHONE_PHONETESTSUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "LinkWire.h"
#include "moxdb/TocText.h"
#include "moxphone/Catalogue.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/PhoneSession.h"
#include "moxphone/Scheduler.h"

namespace phonetest {

using namespace linkwire;

// The lines of a log, without their ends.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// ---- A transport and a scheduler for sessions ----

// Records every send and hang-up of a session. Once `gone` is set, sends
// fail; while `room` is false, the transport says it has no room.
class RecordingTransport : public moxphone::PhoneSession::Transport {
public:
    bool send(const Bytes& bytes) override {
        ++sendCalls;
        if (gone) {
            return false;
        }
        sends.push_back(bytes);
        if (onSend) {
            onSend(bytes);
        }
        return true;
    }
    void hangUp() override { ++hangUps; }
    bool hasRoom() const override {
        ++roomAsked;
        return room;
    }

    // Everything sent, as one stream.
    Bytes stream() const {
        Bytes all;
        for (const Bytes& bytes : sends) {
            all.insert(all.end(), bytes.begin(), bytes.end());
        }
        return all;
    }
    std::vector<Message> messages() const { return splitEnvelopes(stream()); }
    // The command frames sent, in order.
    std::vector<Bytes> frames() const { return commandFrames(stream()); }
    void clear() {
        sends.clear();
        sendCalls = 0;
    }

    std::vector<Bytes> sends;
    int sendCalls = 0;
    int hangUps = 0;
    bool gone = false;
    bool room = true;
    mutable int roomAsked = 0;
    std::function<void(const Bytes&)> onSend;
};

// Runs tasks only when the test moves its clock.
class ManualScheduler : public moxphone::Scheduler {
public:
    void schedule(uint32_t delayMs, Task task) override {
        delays.push_back(delayMs);
        mTasks.emplace(std::make_pair(mNow + delayMs, mOrder++), std::move(task));
    }
    void cancelAll() override {
        ++cancels;
        mTasks.clear();
    }
    // Moves the clock and runs every task due by then, in time order.
    void advance(uint64_t ms) {
        const uint64_t target = mNow + ms;
        while (!mTasks.empty() && mTasks.begin()->first.first <= target) {
            mNow = mTasks.begin()->first.first;
            Task task = std::move(mTasks.begin()->second);
            mTasks.erase(mTasks.begin());
            task();
        }
        mNow = target;
    }
    size_t pending() const { return mTasks.size(); }

    std::vector<uint32_t> delays;  // every delay asked for
    int cancels = 0;

private:
    uint64_t mNow = 0;
    uint64_t mOrder = 0;
    std::map<std::pair<uint64_t, uint64_t>, Task> mTasks;
};

// ---- Catalogues ----

inline const std::string kUnknownToc = "000096003A98";

// One disc of three tracks with one candidate of three tracks.
inline const char* kSmallCatalogueJson = R"({
  "albums": [
    {"id": "A-1", "title": "First", "genre": "ROCK", "language": "en",
     "media": [{"tracks": [
       {"title": "One", "performer": "Band", "genre": "ROCK"},
       {"title": "Two", "performer": "Band", "genre": "ROCK"},
       {"title": "Three", "performer": "Band", "genre": "ROCK"}]}]}
  ],
  "discs": [
    {"toc": "0000960046E6008D3600D386", "candidates": [{"album": "A-1", "medium": 1, "confidence": 90}]}
  ]
})";

inline std::shared_ptr<const moxphone::Catalogue> loadCatalogue(const std::string& json) {
    auto catalogue = std::make_shared<moxphone::Catalogue>();
    moxphone::CatalogueProblem problem;
    EXPECT_TRUE(moxphone::Catalogue::parse(json, catalogue.get(), &problem)) << problem.text();
    return catalogue;
}

inline std::shared_ptr<const moxphone::Catalogue> smallCatalogue() {
    return loadCatalogue(kSmallCatalogueJson);
}

inline std::shared_ptr<const moxphone::Catalogue> sampleCatalogue() {
    auto catalogue = std::make_shared<moxphone::Catalogue>();
    moxphone::CatalogueProblem problem;
    EXPECT_TRUE(moxphone::Catalogue::loadFile(moxphone::Catalogue::bundledPath(), catalogue.get(),
                                              &problem))
        << problem.text();
    return catalogue;
}

// Options with `catalogue` and the given faults (each must be accepted).
inline moxphone::PhoneOptions optionsWith(std::shared_ptr<const moxphone::Catalogue> catalogue,
                                          const std::vector<std::string>& faults = {}) {
    moxphone::PhoneOptions options;
    options.catalogue = std::move(catalogue);
    for (const std::string& fault : faults) {
        std::string error;
        EXPECT_TRUE(options.faults.add(fault, &error)) << error;
    }
    return options;
}

}  // namespace phonetest

#endif  // MOX_TESTS_PHONE_PHONETESTSUPPORT_H
