// A man in the middle of the phone link's Unix socket, for fault tests: it
// accepts the module's connections one after another, connects each to a
// phone's socket and copies the bytes both ways, and can hang up on the
// module after a chosen number of bytes from the phone, wherever that falls
// (inside an envelope, between two, inside the length field...).
//
//   CuttingProxy proxy(dir.file("proxy.sock"));
//   proxy.setNext(phoneSocketPath, 1234);     // the next connection ends after 1234 bytes
//   OstLinkAppHost::setEndpoint(proxy.endpoint());
//
// Thread rules: one thread of its own serves the connections; every public
// function may be called from any thread.
#ifndef MOX_TESTS_CUTTINGPROXY_H
#define MOX_TESTS_CUTTINGPROXY_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

class CuttingProxy {
public:
    // Listens on a Unix socket at `path` (replacing a stale file).
    explicit CuttingProxy(const std::string& path);
    ~CuttingProxy();
    CuttingProxy(const CuttingProxy&) = delete;
    CuttingProxy& operator=(const CuttingProxy&) = delete;

    // "unix:PATH", for the module's endpoint setting.
    std::string endpoint() const { return "unix:" + mPath; }
    // Where the next connection goes, and after how many bytes of the phone's
    // stream it is cut (0: never). Applies to connections accepted later.
    void setNext(const std::string& phonePath, uint64_t cutAfter);
    // Bytes copied from the phone to the module on the last connection.
    uint64_t bytesToModule() const { return mToModule.load(); }
    // Bytes copied either way on every connection so far.
    uint64_t traffic() const { return mTraffic.load(); }
    // Connections accepted so far.
    uint64_t connections() const { return mConnections.load(); }

private:
    void run();
    void serve(int module, const std::string& phonePath, uint64_t cutAfter);
    // Copies what `from` has to `to`, at most `limit` bytes (0: no limit);
    // false when `from` has ended or `to` failed.
    bool copy(int from, int to, uint64_t limit, uint64_t* copied);

    std::string mPath;
    int mListener;
    int mWake;  // eventfd: the destructor stops the thread
    std::mutex mMutex;
    std::string mPhonePath;  // guarded by mMutex
    uint64_t mCutAfter;      // guarded by mMutex
    std::atomic<uint64_t> mToModule;
    std::atomic<uint64_t> mTraffic;
    std::atomic<uint64_t> mConnections;
    std::thread mThread;
};

#endif  // MOX_TESTS_CUTTINGPROXY_H
