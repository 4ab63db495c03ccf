#include "BareSocketClient.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "LinkSocket.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"

namespace {

const size_t kReadSize = 16u * 1024u;

}  // namespace

BareSocketClient::BareSocketClient(ChunkFile file)
    : mClient([this](const uint8_t* frame, size_t size) { return send(frame, size); },
              std::move(file)),
      mBuffer(kReadSize) {}

BareSocketClient::~BareSocketClient() {
    if (mSocket >= 0) {
        ::close(mSocket);
    }
}

bool BareSocketClient::connect(const std::string& socketPath) {
    mSocket = LinkSocket::connectUnix(socketPath);
    if (mSocket < 0) {
        return false;
    }
    // The greeting (device info, device status) is read on the way to the
    // connect answer.
    return mClient.connect() && runUntilDone();
}

bool BareSocketClient::lookup(const std::string& toc) {
    return mClient.begin(toc) && runUntilDone();
}

bool BareSocketClient::send(const uint8_t* frame, size_t size) {
    mEnvelope = OstLinkAppEnvelope::encode(OstLinkAppEnvelope::en_TYPE_COMMAND, frame, size);
    return LinkSocket::sendAll(mSocket, mEnvelope.data(), mEnvelope.size());
}

bool BareSocketClient::runUntilDone() {
    BareLookupClient::Progress progress = BareLookupClient::WAITING;
    const OstLinkAppEnvelopeReader::Handler handler = [&](uint8 type, const uint8* payload,
                                                          uint32 size) {
        if (type == OstLinkAppEnvelope::en_TYPE_COMMAND && progress == BareLookupClient::WAITING) {
            progress = mClient.onFrame(payload, size);
        }
    };
    while (progress == BareLookupClient::WAITING) {
        const ssize_t count = ::recv(mSocket, mBuffer.data(), mBuffer.size(), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0 || !mReader.feed(mBuffer.data(), static_cast<size_t>(count), handler)) {
            return false;
        }
    }
    return progress == BareLookupClient::COMPLETE;
}
