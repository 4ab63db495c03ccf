#include "RawPhone.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "moxdb/DbBytes.h"

RawPhone::RawPhone(const std::string& path)
    : mPath(path), mListener(-1), mConnection(-1), mListening(false) {
    mListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    ::unlink(path.c_str());
    mListening = ::bind(mListener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                 ::listen(mListener, 2) == 0;
}

RawPhone::~RawPhone() {
    hangUp();
    ::close(mListener);
    ::unlink(mPath.c_str());
}

RawPhone::Bytes RawPhone::envelope(uint8_t type, const Bytes& payload) {
    Bytes out;
    out.reserve(payload.size() + 5);
    moxdb::appendU32Be(out, static_cast<uint32_t>(payload.size() + 1));
    out.push_back(type);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

bool RawPhone::accept() {
    hangUp();
    if (!waitReadable(mListener)) {
        return false;
    }
    mConnection = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
    return mConnection >= 0;
}

bool RawPhone::acceptAndOpen(const std::string& name) {
    Bytes info;
    info.reserve(name.size() + 1);
    info.push_back(1);  // OS type
    info.insert(info.end(), name.begin(), name.end());
    return accept() && send(envelope(1, info)) && send(envelope(2, {2}));
}

void RawPhone::hangUp() {
    if (mConnection >= 0) {
        ::close(mConnection);
        mConnection = -1;
    }
}

bool RawPhone::send(const Bytes& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n =
            ::send(mConnection, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

RawPhone::Bytes RawPhone::readFrame() {
    Bytes head(4);
    if (!readExactly(head)) {
        return Bytes();
    }
    const uint32_t length = moxdb::getU32Be(head, 0);
    Bytes body(length);
    if (length == 0 || !readExactly(body)) {
        return Bytes();
    }
    return Bytes(body.begin() + 1, body.end());
}

bool RawPhone::seesHangUp() {
    unsigned char byte = 0;
    return waitReadable(mConnection) && ::recv(mConnection, &byte, 1, 0) == 0;
}

bool RawPhone::waitReadable(int fd) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, 30000) == 1;
}

bool RawPhone::readExactly(Bytes& out) {
    size_t done = 0;
    while (done < out.size()) {
        if (!waitReadable(mConnection)) {
            return false;
        }
        const ssize_t n = ::recv(mConnection, out.data() + done, out.size() - done, 0);
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}
