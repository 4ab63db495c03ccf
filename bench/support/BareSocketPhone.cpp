#include "BareSocketPhone.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppEnvelopeReader.h"

namespace {

const size_t kReadSize = 16u * 1024u;

}  // namespace

BareSocketPhone::BareSocketPhone(const BareAnswers& answers, const std::string& path)
    : mAnswers(&answers), mPath(path) {
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    mListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::unlink(path.c_str());
    if (mListener < 0 ||
        ::bind(mListener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(mListener, 4) != 0) {
        return;
    }
    mThread = std::thread([this] { serve(); });
}

BareSocketPhone::~BareSocketPhone() {
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
        ::unlink(mPath.c_str());
    }
}

bool BareSocketPhone::sendAll(int fd, const uint8_t* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t sent = ::send(fd, data + done, size - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

void BareSocketPhone::serve() {
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
        talk(connection);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mConnection = -1;
        }
        ::close(connection);
    }
}

void BareSocketPhone::talk(int connection) {
    const uint8 info[] = {1, 'B', 'e', 'n', 'c', 'h'};  // Android, "Bench"
    const uint8 status[] = {2};                         // application open
    std::vector<uint8> greeting =
        OstLinkAppEnvelope::encode(OstLinkAppEnvelope::en_TYPE_DEVICE_INFO, info, sizeof(info));
    const std::vector<uint8> open =
        OstLinkAppEnvelope::encode(OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS, status, 1);
    greeting.insert(greeting.end(), open.begin(), open.end());
    if (!sendAll(connection, greeting.data(), greeting.size())) {
        return;
    }
    OstLinkAppEnvelopeReader reader;
    std::vector<uint8> buffer(kReadSize);
    bool alive = true;
    const OstLinkAppEnvelopeReader::Handler answer = [&](uint8 type, const uint8* frame,
                                                         uint32 size) {
        if (type != OstLinkAppEnvelope::en_TYPE_COMMAND || !alive) {
            return;
        }
        mReceived.add(frame, size);
        const BareAnswers::Bytes& bytes = mAnswers.load()->streamAnswerTo(frame, size);
        alive = bytes.empty() || sendAll(connection, bytes.data(), bytes.size());
    };
    while (alive) {
        const ssize_t count = ::recv(connection, buffer.data(), buffer.size(), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0 || !reader.feed(buffer.data(), static_cast<size_t>(count), answer)) {
            return;
        }
    }
}
