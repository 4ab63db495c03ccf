// A small phone for the lookup tests: it answers the module's commands from a
// script (connect, lookup, get CD meta info, cancel) and sends one response
// database in chunks. The same script runs in-process (loopback peer) or at
// the other end of a Unix or TCP socket, with the stream envelope written out
// by hand so the test does not share the link's own reader.
//
// A hang-up can be scripted before the answer to any command, to drop the
// link at a chosen point of the lookup.
#ifndef MOX_TESTS_SCRIPTEDPHONE_H
#define MOX_TESTS_SCRIPTEDPHONE_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "MoxProtocolHarness.h"
#include "OstLinkApp/OstLinkAppHost.h"

namespace moxtest {

// One message of the link's stream: a type byte and its payload.
struct PhoneMessage {
    uint8 type;  // 1 device info, 2 device status, 3 command
    Bytes payload;
};

// What the phone says, independent of the transport. Thread-safe.
class PhoneScript {
public:
    // Steps after which the phone can hang up instead of answering.
    enum Step { NEVER = -1, AT_CONNECT = 0, AT_LOOKUP = 1, AT_META_INFO = 2, AT_CANCEL = 3 };

    explicit PhoneScript(Bytes database, size_t chunkSize = 4096)
        : mDatabase(std::move(database)), mChunkSize(chunkSize) {}

    void hangUpAt(Step step) {
        std::lock_guard<std::mutex> lock(mMutex);
        mHangUpAt = step;
    }
    // The phone stays silent after this step (its commands get no answer).
    void silentAfter(Step step) {
        std::lock_guard<std::mutex> lock(mMutex);
        mSilentAfter = step;
    }

    // Sent as soon as the link is up: an Android phone whose application is open.
    std::vector<PhoneMessage> greeting() const { return {{1, {1, 'T', 'e', 's', 't'}}, {2, {2}}}; }

    // The frames that answer `frame`; `hangUp` tells whether to drop the link
    // instead.
    std::vector<Bytes> answer(const Bytes& frame, bool* hangUp) {
        std::lock_guard<std::mutex> lock(mMutex);
        mReceived.push_back(frame);
        mChanged.notify_all();
        const Step step = stepOf(frame);
        *hangUp = step != NEVER && step == mHangUpAt;
        if (*hangUp || (mSilentAfter != NEVER && step >= mSilentAfter)) {
            return {};
        }
        switch (step) {
            case AT_CONNECT:
                return {moxtest::answer(0x8001)};
            case AT_LOOKUP:
                return {moxtest::answer(0x8010), notice(static_cast<uint32>(mDatabase.size()))};
            case AT_META_INFO:
                return chunks();
            case AT_CANCEL:
                return {moxtest::answer(0x8FFF)};
            default:
                return {};
        }
    }

    std::vector<Bytes> received() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mReceived;
    }

    // Waits until the phone has received `frame`.
    bool waitForFrame(const Bytes& frame) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [this, &frame] {
            return std::find(mReceived.begin(), mReceived.end(), frame) != mReceived.end();
        });
    }

private:
    static Step stepOf(const Bytes& frame) {
        if (frame == kConnect) {
            return AT_CONNECT;
        }
        if (frame.size() >= 2 && frame[0] == 0x00 && frame[1] == 0x10) {
            return AT_LOOKUP;
        }
        if (frame == kGetCdMetaInfo) {
            return AT_META_INFO;
        }
        if (frame == kCancel) {
            return AT_CANCEL;
        }
        return NEVER;
    }

    std::vector<Bytes> chunks() const {
        std::vector<Bytes> out;
        const size_t count = std::max<size_t>(1, (mDatabase.size() + mChunkSize - 1) / mChunkSize);
        for (size_t i = 0; i < count; ++i) {
            const size_t begin = i * mChunkSize;
            const size_t end = std::min(mDatabase.size(), begin + mChunkSize);
            out.push_back(chunk(static_cast<uint16>(i), static_cast<uint16>(count),
                                Bytes(mDatabase.begin() + begin, mDatabase.begin() + end)));
        }
        return out;
    }

    const Bytes mDatabase;
    const size_t mChunkSize;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Bytes> mReceived;
    Step mHangUpAt = NEVER;
    Step mSilentAfter = NEVER;
};

// The script as an in-process peer of the loopback link.
class LoopbackPhone : public OstLinkAppPeer {
public:
    explicit LoopbackPhone(PhoneScript& script) : mScript(script) {}

    void onOpen(OstLinkAppPeerLink& link) override {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mLink = &link;
            ++mOpened;
        }
        for (const PhoneMessage& message : mScript.greeting()) {
            if (message.type == 1) {
                link.pushDeviceInfo(message.payload[0], std::string(message.payload.begin() + 1,
                                                                    message.payload.end()));
            } else {
                link.pushDeviceStatus(message.payload[0]);
            }
        }
    }

    void onCommand(const uint8* frame, uint32 size) override {
        bool hangUp = false;
        const std::vector<Bytes> answers = mScript.answer(Bytes(frame, frame + size), &hangUp);
        OstLinkAppPeerLink* link = current();
        if (link == nullptr) {
            return;
        }
        if (hangUp) {
            link->hangUp();
            return;
        }
        for (const Bytes& answer : answers) {
            link->pushCommand(answer.data(), static_cast<uint32>(answer.size()));
        }
    }

    void onClose() override {
        std::lock_guard<std::mutex> lock(mMutex);
        mLink = nullptr;
        ++mClosed;
    }

    int opened() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mOpened;
    }
    int closed() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mClosed;
    }

private:
    OstLinkAppPeerLink* current() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLink;
    }

    PhoneScript& mScript;
    mutable std::mutex mMutex;
    OstLinkAppPeerLink* mLink = nullptr;
    int mOpened = 0;
    int mClosed = 0;
};

// The script at the other end of a stream socket: it accepts connections one
// after another until destroyed.
class SocketPhone {
public:
    // Listens on a Unix socket at `path`.
    SocketPhone(PhoneScript& script, const std::string& path) : mScript(script) {
        mListener = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address;
        std::memset(&address, 0, sizeof(address));
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        unlink(path.c_str());
        bindAndListen(reinterpret_cast<sockaddr*>(&address), sizeof(address));
        mEndpoint = "unix:" + path;
    }

    // Listens on TCP 127.0.0.1 at a free port.
    explicit SocketPhone(PhoneScript& script) : mScript(script) {
        mListener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address;
        std::memset(&address, 0, sizeof(address));
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = 0;
        bindAndListen(reinterpret_cast<sockaddr*>(&address), sizeof(address));
        socklen_t length = sizeof(address);
        getsockname(mListener, reinterpret_cast<sockaddr*>(&address), &length);
        mEndpoint = "tcp:127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }

    ~SocketPhone() {
        shutdown(mListener, SHUT_RDWR);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mConnection >= 0) {
                shutdown(mConnection, SHUT_RDWR);
            }
        }
        if (mThread.joinable()) {
            mThread.join();
        }
        close(mListener);
    }

    const std::string& endpoint() const { return mEndpoint; }

private:
    void bindAndListen(sockaddr* address, socklen_t length) {
        if (bind(mListener, address, length) != 0 || listen(mListener, 4) != 0) {
            ADD_FAILURE() << "the test phone cannot listen: " << std::strerror(errno);
            return;
        }
        mThread = std::thread([this] { serve(); });
    }

    void serve() {
        for (;;) {
            const int connection = accept(mListener, nullptr, nullptr);
            if (connection < 0) {
                return;
            }
            {
                std::lock_guard<std::mutex> lock(mMutex);
                mConnection = connection;
            }
            talk(connection);
            {
                std::lock_guard<std::mutex> lock(mMutex);
                mConnection = -1;
            }
            close(connection);
        }
    }

    void talk(int connection) {
        for (const PhoneMessage& message : mScript.greeting()) {
            send(connection, message);
        }
        PhoneMessage received;
        while (readMessage(connection, &received)) {
            if (received.type != 3) {
                continue;
            }
            bool hangUp = false;
            for (const Bytes& answer : mScript.answer(received.payload, &hangUp)) {
                send(connection, PhoneMessage{3, answer});
            }
            if (hangUp) {
                return;
            }
        }
    }

    static void send(int connection, const PhoneMessage& message) {
        Bytes bytes;
        appendU32Be(bytes, static_cast<uint32>(message.payload.size() + 1));
        bytes.push_back(message.type);
        bytes.insert(bytes.end(), message.payload.begin(), message.payload.end());
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n =
                ::send(connection, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0) {
                return;
            }
            done += static_cast<size_t>(n);
        }
    }

    static bool readExactly(int connection, unsigned char* out, size_t size) {
        size_t done = 0;
        while (done < size) {
            const ssize_t n = recv(connection, out + done, size - done, 0);
            if (n <= 0) {
                return false;
            }
            done += static_cast<size_t>(n);
        }
        return true;
    }

    static bool readMessage(int connection, PhoneMessage* message) {
        Bytes head(4);
        if (!readExactly(connection, head.data(), head.size())) {
            return false;
        }
        const uint32 length = moxdb::getU32Be(head, 0);
        if (length == 0 || length > OstLinkAppHost::MAX_ENVELOPE_LENGTH) {
            return false;
        }
        Bytes body(length);
        if (!readExactly(connection, body.data(), body.size())) {
            return false;
        }
        message->type = body[0];
        message->payload.assign(body.begin() + 1, body.end());
        return true;
    }

    PhoneScript& mScript;
    int mListener = -1;
    std::string mEndpoint;
    std::mutex mMutex;
    int mConnection = -1;  // guarded by mMutex
    std::thread mThread;
};

}  // namespace moxtest

#endif  // MOX_TESTS_SCRIPTEDPHONE_H
