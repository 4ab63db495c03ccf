// The floor in-process: BareLookupClient as the head unit's end of a
// loopback link (OstLinkAppPeerLink), on the caller's thread. It sends by
// calling the peer's onCommand; the frames the peer pushes (from inside
// that call) are copied into a queue, which the client then works through.
// Single thread: the peer must push only from inside onOpen and onCommand.
//
//   BareLoopbackClient client(phone, ChunkFile(path));
//   client.connect();      // greeting taken, connect answered
//   client.lookup(toc);    // true once the last chunk is stored
#ifndef MOX_BENCH_BARELOOPBACKCLIENT_H
#define MOX_BENCH_BARELOOPBACKCLIENT_H

#include <deque>
#include <string>

#include "BareLookupClient.h"
#include "OstLinkApp/OstLinkAppHost.h"

class BareLoopbackClient : public OstLinkAppPeerLink {
public:
    BareLoopbackClient(OstLinkAppPeer& peer, ChunkFile file);
    ~BareLoopbackClient() override;

    // Opens the link to the peer and exchanges the connect request.
    bool connect();
    // One whole lookup; true when the answer was stored completely.
    bool lookup(const std::string& toc);

    bool pushDeviceInfo(uint8 osType, const std::string& name) override;
    bool pushDeviceStatus(uint8 status) override;
    bool pushCommand(const uint8* frame, uint32 size) override;
    // Raw stream bytes are not read by this client: refused.
    bool pushBytes(const uint8* data, size_t size) override;
    void hangUp() override;

private:
    bool runUntilDone();

    OstLinkAppPeer& mPeer;
    BareLookupClient mClient;
    std::deque<BareAnswers::Bytes> mQueue;
    bool mOpen = false;
};

#endif  // MOX_BENCH_BARELOOPBACKCLIENT_H
