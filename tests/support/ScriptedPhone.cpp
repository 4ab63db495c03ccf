#include "ScriptedPhone.h"

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "LinkSocket.h"

namespace {

const size_t kReadSize = 16u * 1024u;
const std::chrono::seconds kGuard{60};

std::string currentThreadName() {
    char name[32] = {0};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

// Answers straight into the loopback link, frame by frame.
class LinkAnswer : public ScriptedPhone::Answer {
public:
    explicit LinkAnswer(OstLinkAppPeerLink* link) : mLink(link) {}
    bool frames(const std::vector<linkwire::Bytes>& frames) override {
        for (const linkwire::Bytes& frame : frames) {
            if (mLink == nullptr || mHungUp ||
                !mLink->pushCommand(frame.data(), static_cast<uint32>(frame.size()))) {
                return false;
            }
        }
        return true;
    }
    void hangUp() override {
        if (mLink != nullptr && !mHungUp) {
            mLink->hangUp();
        }
        mHungUp = true;
    }

private:
    OstLinkAppPeerLink* const mLink;
    bool mHungUp = false;
};

// Writes the frames given at once to the socket in one write, each in its
// envelope, without copying them.
class StreamAnswer : public ScriptedPhone::Answer {
public:
    explicit StreamAnswer(int connection) : mConnection(connection) {}
    bool frames(const std::vector<linkwire::Bytes>& frames) override {
        if (mHungUp || mGone) {
            return false;
        }
        std::vector<linkwire::EnvelopeHeader> headers;
        headers.reserve(frames.size());
        std::vector<iovec> parts;
        parts.reserve(2 * frames.size());
        for (const linkwire::Bytes& frame : frames) {
            headers.push_back(
                linkwire::envelopeHeader(OstLinkAppEnvelope::en_TYPE_COMMAND, frame.size()));
            parts.push_back(iovec{headers.back().data(), headers.back().size()});
            parts.push_back(iovec{const_cast<uint8_t*>(frame.data()), frame.size()});
        }
        mGone = !LinkSocket::sendAll(mConnection, parts.data(), parts.size());
        return !mGone;
    }
    void hangUp() override { mHungUp = true; }
    bool ended() const { return mHungUp || mGone; }

private:
    const int mConnection;
    bool mHungUp = false;
    bool mGone = false;
};

}  // namespace

ScriptedPhone::ScriptedPhone() = default;

ScriptedPhone::ScriptedPhone(Script script, std::vector<linkwire::Message> greeting)
    : mScript(std::move(script)), mGreeting(std::move(greeting)) {}

ScriptedPhone::~ScriptedPhone() {
    if (mListener >= 0) {
        ::shutdown(mListener, SHUT_RDWR);
    }
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mConnection >= 0) {
            ::shutdown(mConnection, SHUT_RDWR);
        }
    }
    if (mThread.joinable()) {
        mThread.join();
    }
    if (mListener >= 0) {
        ::close(mListener);
    }
    if (!mPath.empty()) {
        ::unlink(mPath.c_str());
    }
}

bool ScriptedPhone::listenUnix(const std::string& path) {
    mListener = LinkSocket::listenUnix(path);
    if (mListener < 0) {
        return false;
    }
    mPath = path;
    mEndpoint = "unix:" + path;
    mThread = std::thread([this] { serve(); });
    return true;
}

bool ScriptedPhone::listenTcp() {
    uint16_t port = 0;
    mListener = LinkSocket::listenTcp(false, &port);
    if (mListener < 0) {
        return false;
    }
    mEndpoint = "tcp:127.0.0.1:" + std::to_string(port);
    mThread = std::thread([this] { serve(); });
    return true;
}

void ScriptedPhone::setScript(Script script) {
    std::lock_guard<std::mutex> lock(mMutex);
    mScript = std::move(script);
}

void ScriptedPhone::setGreeting(std::vector<linkwire::Message> greeting) {
    std::lock_guard<std::mutex> lock(mMutex);
    mGreeting = std::move(greeting);
}

void ScriptedPhone::onOpen(OstLinkAppPeerLink& link) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mLink = &link;
    }
    record(Event{Event::OPEN, {}, {}});
    int refused = 0;
    for (const linkwire::Message& message : greeting()) {
        const Bytes& payload = message.payload;
        bool pushed = false;
        switch (message.type) {
            case OstLinkAppEnvelope::en_TYPE_DEVICE_INFO:
                pushed = link.pushDeviceInfo(payload.at(0),
                                             std::string(payload.begin() + 1, payload.end()));
                break;
            case OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS:
                pushed = link.pushDeviceStatus(payload.at(0));
                break;
            default:
                pushed = link.pushCommand(payload.data(), static_cast<uint32>(payload.size()));
                break;
        }
        refused += pushed ? 0 : 1;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    mRefusedGreetings += refused;
}

void ScriptedPhone::onCommand(const uint8* frame, uint32 size) {
    OstLinkAppPeerLink* link = nullptr;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        link = mLink;
    }
    LinkAnswer answer(link);
    answerFrame(frame, size, answer);
}

void ScriptedPhone::onClose() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mLink = nullptr;
    }
    record(Event{Event::CLOSE, {}, {}});
}

OstLinkAppPeerLink* ScriptedPhone::link() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLink;
}

std::vector<ScriptedPhone::Bytes> ScriptedPhone::received() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<Bytes> frames;
    for (const Event& event : mEvents) {
        if (event.kind == Event::COMMAND) {
            frames.push_back(event.frame);
        }
    }
    return frames;
}

std::vector<ScriptedPhone::Bytes> ScriptedPhone::takeReceived() {
    std::vector<Bytes> frames = received();
    std::lock_guard<std::mutex> lock(mMutex);
    mEvents.clear();
    return frames;
}

std::vector<std::string> ScriptedPhone::journal() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> entries;
    for (const Event& event : mEvents) {
        switch (event.kind) {
            case Event::OPEN:
                entries.push_back("open");
                break;
            case Event::COMMAND:
                entries.push_back("command [" + linkwire::hex(event.frame) + "] @" + event.thread);
                break;
            case Event::CLOSE:
                entries.push_back("close");
                break;
        }
    }
    return entries;
}

bool ScriptedPhone::waitForJournal(size_t count) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kGuard, [this, count] { return mEvents.size() >= count; });
}

bool ScriptedPhone::waitForFrame(const Bytes& frame) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kGuard, [this, &frame] {
        return std::any_of(mEvents.begin(), mEvents.end(), [&frame](const Event& event) {
            return event.kind == Event::COMMAND && event.frame == frame;
        });
    });
}

int ScriptedPhone::opened() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mOpened;
}

int ScriptedPhone::closed() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mClosed;
}

int ScriptedPhone::refusedGreetings() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRefusedGreetings;
}

void ScriptedPhone::answerFrame(const uint8_t* frame, size_t size, Answer& answer) {
    record(Event{Event::COMMAND, Bytes(frame, frame + size), currentThreadName()});
    const Script play = script();
    if (play) {
        play(frame, size, answer);
    }
}

void ScriptedPhone::record(Event event) {
    std::lock_guard<std::mutex> lock(mMutex);
    mOpened += event.kind == Event::OPEN ? 1 : 0;
    mClosed += event.kind == Event::CLOSE ? 1 : 0;
    mEvents.push_back(std::move(event));
    mChanged.notify_all();
}

ScriptedPhone::Script ScriptedPhone::script() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mScript;
}

std::vector<linkwire::Message> ScriptedPhone::greeting() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mGreeting;
}

void ScriptedPhone::serve() {
    for (;;) {
        const int connection = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mConnection = connection;
        }
        record(Event{Event::OPEN, {}, {}});
        talk(connection);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mConnection = -1;
        }
        ::close(connection);
        record(Event{Event::CLOSE, {}, {}});
    }
}

// Ends when the module hangs up, sends a bad envelope or the script hangs up.
void ScriptedPhone::talk(int connection) {
    Bytes hello;
    for (const linkwire::Message& message : greeting()) {
        linkwire::appendEnvelope(hello, message.type, message.payload);
    }
    if (!LinkSocket::sendAll(connection, hello.data(), hello.size())) {
        return;
    }
    Bytes pending;
    std::vector<uint8_t> buffer(kReadSize);
    for (;;) {
        const ssize_t count = ::recv(connection, buffer.data(), buffer.size(), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return;
        }
        pending.insert(pending.end(), buffer.begin(), buffer.begin() + count);
        Bytes rest;
        for (const linkwire::Message& message : linkwire::splitEnvelopes(pending, &rest)) {
            if (message.type != OstLinkAppEnvelope::en_TYPE_COMMAND) {
                continue;
            }
            StreamAnswer answer(connection);
            answerFrame(message.payload.data(), message.payload.size(), answer);
            if (answer.ended()) {
                return;
            }
        }
        pending.swap(rest);
        if (pending.size() >= OstLinkAppEnvelope::LENGTH_SIZE) {
            const uint32_t length = moxdb::getU32Be(pending, 0);
            if (length == 0 || length > OstLinkAppHost::MAX_ENVELOPE_LENGTH) {
                return;  // not an envelope: the phone hangs up, as a link does
            }
        }
    }
}
