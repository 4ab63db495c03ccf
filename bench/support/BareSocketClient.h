// The floor over a Unix stream socket: BareLookupClient on a plain blocking
// socket, on the caller's thread. Messages travel in the link's envelope
// (OstLinkAppEnvelope), read 16 KiB at a time as the link's transport reads.
//
//   BareSocketClient client(ChunkFile(path));
//   if (!client.connect(socketPath)) { ... }   // greeting read, connect answered
//   client.lookup(toc);                        // true once the last chunk is stored
#ifndef MOX_BENCH_BARESOCKETCLIENT_H
#define MOX_BENCH_BARESOCKETCLIENT_H

#include <string>
#include <vector>

#include "BareLookupClient.h"
#include "OstLinkApp/OstLinkAppEnvelopeReader.h"

class BareSocketClient {
public:
    explicit BareSocketClient(ChunkFile file);
    ~BareSocketClient();
    BareSocketClient(const BareSocketClient&) = delete;
    BareSocketClient& operator=(const BareSocketClient&) = delete;

    // Connects, reads the phone's greeting, sends the connect request and
    // waits for its answer.
    bool connect(const std::string& socketPath);
    // One whole lookup; true when the answer was stored completely.
    bool lookup(const std::string& toc);

private:
    bool send(const uint8_t* frame, size_t size);
    // Reads until the client reports an outcome.
    bool runUntilDone();

    int mSocket = -1;
    BareLookupClient mClient;
    OstLinkAppEnvelopeReader mReader;
    std::vector<uint8> mBuffer;
    std::vector<uint8> mEnvelope;
};

#endif  // MOX_BENCH_BARESOCKETCLIENT_H
