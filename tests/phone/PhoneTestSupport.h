// Shared by the simulator's tests: the module's requests and the envelope
// written out byte by byte (independently of the library), a transport that
// records what a session sends, a scheduler driven by hand, and small
// catalogues.
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

#include "moxdb/DbBytes.h"
#include "moxdb/TocText.h"
#include "moxphone/Catalogue.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/PhoneSession.h"
#include "moxphone/Scheduler.h"

namespace phonetest {

using moxphone::Bytes;

// ---- The module's requests ----

inline const Bytes kConnect = {0x00, 0x01, 0x01};
inline const Bytes kDisconnect = {0x00, 0x02};
inline const Bytes kGetCdMetaInfo = {0x00, 0x12, 0x00, 0x00, 0x03, 0xE8};
inline const Bytes kCancel = {0x0F, 0xFF};
inline const Bytes kEcho = {0x7F, 0xFF};

inline const std::string kXmlHead =
    "<DbUpdateRequest>\n\t<DatabaseInfo>\n\t\t<DatabaseKind>73QRVB</DatabaseKind>\n"
    "\t</DatabaseInfo>\n\t<TOCRequest>\n\t\t<TOC>";
inline const std::string kXmlTail = "</TOC>\n\t</TOCRequest>\n</DbUpdateRequest>";

// The lookup request as the module builds it.
inline Bytes lookupFrame(const std::string& toc, uint8_t kind = 0, uint16_t param1 = 0,
                         uint16_t param2 = 0) {
    Bytes frame = {0x00,
                   0x10,
                   kind,
                   0x00,
                   static_cast<uint8_t>(param1 >> 8),
                   static_cast<uint8_t>(param1 & 0xFF),
                   static_cast<uint8_t>(param2 >> 8),
                   static_cast<uint8_t>(param2 & 0xFF)};
    const std::string text = kXmlHead + toc + kXmlTail;
    frame.insert(frame.end(), text.begin(), text.end());
    frame.push_back(0x00);
    return frame;
}

// ---- Frames of the phone, written out ----

inline Bytes header(uint16_t command, uint16_t status = 0, uint16_t index = 0, uint16_t count = 0) {
    return {static_cast<uint8_t>(command >> 8), static_cast<uint8_t>(command & 0xFF),
            static_cast<uint8_t>(status >> 8),  static_cast<uint8_t>(status & 0xFF),
            static_cast<uint8_t>(index >> 8),   static_cast<uint8_t>(index & 0xFF),
            static_cast<uint8_t>(count >> 8),   static_cast<uint8_t>(count & 0xFF)};
}

inline void appendBe32(Bytes& out, uint32_t value) {
    out.push_back(static_cast<uint8_t>(value >> 24));
    out.push_back(static_cast<uint8_t>((value >> 16) & 0xFF));
    out.push_back(static_cast<uint8_t>((value >> 8) & 0xFF));
    out.push_back(static_cast<uint8_t>(value & 0xFF));
}

inline Bytes notice(uint32_t size, uint16_t status = 0) {
    Bytes frame = header(0x8011, status);
    appendBe32(frame, size);
    return frame;
}

inline Bytes chunk(uint16_t index, uint16_t count, uint32_t declared, const Bytes& payload,
                   uint16_t status = 0) {
    Bytes frame = header(0x8012, status, index, count);
    appendBe32(frame, declared);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

inline Bytes slice(const Bytes& bytes, size_t begin, size_t size) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                 bytes.begin() + static_cast<std::ptrdiff_t>(begin + size));
}

// ---- Envelopes, written out ----

inline Bytes envelope(uint8_t type, const Bytes& payload) {
    Bytes out;
    appendBe32(out, static_cast<uint32_t>(payload.size() + 1));
    out.push_back(type);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

inline Bytes command(const Bytes& frame) {
    return envelope(0x03, frame);
}

inline Bytes text(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

// One message as read back from a stream.
struct Message {
    uint8_t type = 0;
    Bytes payload;
    bool operator==(const Message& other) const {
        return type == other.type && payload == other.payload;
    }
};

// Splits a stream into envelopes. Bytes that do not form a whole envelope at
// the end are returned in `rest`.
inline std::vector<Message> splitEnvelopes(const Bytes& stream, Bytes* rest = nullptr) {
    std::vector<Message> messages;
    size_t at = 0;
    while (stream.size() - at >= 4) {
        const uint32_t length = moxdb::getU32Be(stream, at);
        if (length == 0 || stream.size() - at - 4 < length) {
            break;
        }
        Message message;
        message.type = stream[at + 4];
        message.payload = slice(stream, at + 5, length - 1);
        messages.push_back(message);
        at += 4 + length;
    }
    if (rest != nullptr) {
        *rest = slice(stream, at, stream.size() - at);
    }
    return messages;
}

// The command frames of a stream, in order; whatever else it holds is left out.
inline std::vector<Bytes> commandFrames(const Bytes& stream) {
    std::vector<Bytes> frames;
    for (const Message& message : splitEnvelopes(stream)) {
        if (message.type == 0x03) {
            frames.push_back(message.payload);
        }
    }
    return frames;
}

// The lines of a log, without their ends.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline Message deviceInfo(uint8_t os, const std::string& name) {
    Message message;
    message.type = 0x01;
    message.payload.push_back(os);
    message.payload.insert(message.payload.end(), name.begin(), name.end());
    return message;
}

inline Message deviceStatus(uint8_t status) {
    Message message;
    message.type = 0x02;
    message.payload.push_back(status);
    return message;
}

inline Message commandMessage(const Bytes& frame) {
    Message message;
    message.type = 0x03;
    message.payload = frame;
    return message;
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

inline const std::string kThreeTrackToc = "0000960046E6008D3600D386";  // LBA 0, 18000, 36000; 54000
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
