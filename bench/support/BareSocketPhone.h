// The bare phone on a Unix stream socket: it serves one connection after
// another on its own thread until destroyed. On each connection it says
// "Android phone, application open", then answers every command frame with
// the stream bytes of BareAnswers (all answers of a request in one write).
// It reads 16 KiB at a time, as the link's own transport does.
//
// The answers in use can be swapped between lookups (use()); they must
// outlive the phone's use of them.
#ifndef MOX_BENCH_BARESOCKETPHONE_H
#define MOX_BENCH_BARESOCKETPHONE_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "BareAnswers.h"
#include "FrameLog.h"

class BareSocketPhone {
public:
    // Listens at `path` (an existing file there is replaced).
    BareSocketPhone(const BareAnswers& answers, const std::string& path);
    ~BareSocketPhone();
    BareSocketPhone(const BareSocketPhone&) = delete;
    BareSocketPhone& operator=(const BareSocketPhone&) = delete;

    bool listening() const { return mThread.joinable(); }
    // "unix:PATH", as the link's endpoint setting takes it.
    std::string endpoint() const { return "unix:" + mPath; }
    const std::string& path() const { return mPath; }
    void use(const BareAnswers& answers) { mAnswers.store(&answers); }
    FrameLog& received() { return mReceived; }

    // Writes all of `data` to `fd`; false when the peer has gone.
    static bool sendAll(int fd, const uint8_t* data, size_t size);

private:
    void serve();
    void talk(int connection);

    std::atomic<const BareAnswers*> mAnswers;
    const std::string mPath;
    FrameLog mReceived;
    int mListener = -1;
    std::mutex mMutex;
    int mConnection = -1;  // guarded by mMutex
    std::thread mThread;
};

#endif  // MOX_BENCH_BARESOCKETPHONE_H
