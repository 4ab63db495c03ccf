// The head unit's half of a lookup with nothing of the module: the floor
// that the benchmarks compare the module with. It builds the same request
// frames as the module, reacts to the phone's frames as the protocol asks
// (the notice is answered with the get request, each chunk is checked for
// its index and length and appended to the file) and says when the answer
// is complete. No thread, queue, timer or notification of its own: the
// caller feeds it the frames it reads and gives it a way to send.
//
//   BareLookupClient client(send, ChunkFile(path));
//   client.begin(toc);                       // empties the file, sends the request
//   while (client.onFrame(frame, size) == BareLookupClient::WAITING) { ... next frame ... }
#ifndef MOX_BENCH_BARELOOKUPCLIENT_H
#define MOX_BENCH_BARELOOKUPCLIENT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "BareAnswers.h"
#include "ChunkFile.h"

class BareLookupClient {
public:
    enum Progress { WAITING, COMPLETE, FAILED };
    using Send = std::function<bool(const uint8_t* frame, size_t size)>;

    BareLookupClient(Send send, ChunkFile file) : mSend(std::move(send)), mFile(std::move(file)) {}

    // Sends the connect request.
    bool connect();
    // Empties the file and sends the lookup request for `toc`.
    bool begin(const std::string& toc);
    // One frame from the phone.
    Progress onFrame(const uint8_t* frame, size_t size);

private:
    Progress onChunk(const uint8_t* frame, size_t size);

    const Send mSend;
    const ChunkFile mFile;
    uint32_t mExpectedIndex = 0;
};

#endif  // MOX_BENCH_BARELOOKUPCLIENT_H
