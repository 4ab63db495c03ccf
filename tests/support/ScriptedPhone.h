// A phone that answers the module's command frames from a script, either
// in-process (as the loopback link's peer) or at the far end of a Unix or TCP
// socket, where a thread of its own serves one connection after another until
// the phone is destroyed. On each link it first says its greeting (by default
// an Android phone whose application is open), then hands every command frame
// of the module to the script, whose answers go back at once: on loopback
// frame by frame, on a socket all frames given at once in one write. It keeps
// a journal of the links and of every frame it received. The envelope on a
// socket is LinkWire's, written and read independently of the link's own
// writer and reader. With no script and no greeting it says nothing, and a
// test can push on the loopback link itself (link()).
//
//   ScriptedPhone phone([](const uint8_t* frame, size_t size, ScriptedPhone::Answer& answer) {
//       if (linkwire::commandOf(frame, size) == linkwire::kConnectId) {
//           answer.frame(linkwire::answer(linkwire::kConnectAnswerId));
//       }
//   });
//   OstLinkAppHost::setLoopbackPeer(&phone);    // in-process, endpoint "loopback"
//   phone.listenUnix(dir.file("phone.sock"));    // or on a socket: phone.endpoint()
//
// Thread rules: the script runs on the thread that delivers a frame (on
// loopback the module's thread that sends, on a socket the phone's own
// thread), with no lock held, and must be safe there. Every public function
// may be called from any thread; listenUnix() and listenTcp() once, before
// the module connects.
#ifndef MOX_TESTS_SCRIPTEDPHONE_H
#define MOX_TESTS_SCRIPTEDPHONE_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LinkWire.h"
#include "OstLinkApp/OstLinkAppHost.h"

class ScriptedPhone : public OstLinkAppPeer {
public:
    using Bytes = linkwire::Bytes;

    // Where a script's answers go: the link that delivered the frame. The
    // frames are sent before the call returns.
    class Answer {
    public:
        virtual ~Answer() {}
        // Command frames of the phone, in order; false when the link refused one.
        virtual bool frames(const std::vector<Bytes>& frames) = 0;
        bool frame(const Bytes& frame) { return frames({frame}); }
        // The phone hangs up after the frames given so far.
        virtual void hangUp() = 0;
    };
    using Script = std::function<void(const uint8_t* frame, size_t size, Answer& answer)>;

    // Says nothing and answers nothing: the test plays it through link().
    ScriptedPhone();
    // A null script answers nothing.
    explicit ScriptedPhone(Script script,
                           std::vector<linkwire::Message> greeting = linkwire::greeting("Test"));
    ~ScriptedPhone() override;
    ScriptedPhone(const ScriptedPhone&) = delete;
    ScriptedPhone& operator=(const ScriptedPhone&) = delete;

    // Serves a Unix socket at `path` (replacing a stale file).
    bool listenUnix(const std::string& path);
    // Serves TCP on 127.0.0.1 at a port the system picks.
    bool listenTcp();
    bool listening() const { return mThread.joinable(); }
    // "unix:PATH" or "tcp:127.0.0.1:PORT" when serving a socket, else "loopback".
    const std::string& endpoint() const { return mEndpoint; }
    // The Unix socket's path; empty otherwise.
    const std::string& path() const { return mPath; }

    // For links opened later.
    void setScript(Script script);
    void setGreeting(std::vector<linkwire::Message> greeting);

    // The loopback link's peer.
    void onOpen(OstLinkAppPeerLink& link) override;
    void onCommand(const uint8* frame, uint32 size) override;
    void onClose() override;

    // The loopback link between onOpen() and onClose(), else null.
    OstLinkAppPeerLink* link() const;
    // Every command frame received so far, in order.
    std::vector<Bytes> received() const;
    // The same, and forgets them (and the rest of the journal).
    std::vector<Bytes> takeReceived();
    // What happened, in order: "open", "command [00 01 01] @thread" (the
    // thread that delivered it), "close".
    std::vector<std::string> journal() const;
    // Waits until the journal holds at least `count` entries (false after a
    // guard time meant for broken tests only).
    bool waitForJournal(size_t count) const;
    // Waits until the phone has received `frame` (false after a guard time
    // meant for broken tests only).
    bool waitForFrame(const Bytes& frame) const;
    // Links opened and closed so far.
    int opened() const;
    int closed() const;
    // Pushes of the greeting that the loopback link refused.
    int refusedGreetings() const;

private:
    // One entry of the journal.
    struct Event {
        enum Kind { OPEN, COMMAND, CLOSE } kind;
        Bytes frame;         // COMMAND
        std::string thread;  // COMMAND
    };

    void serve();
    void talk(int connection);
    // Hands one frame to the script and journals it.
    void answerFrame(const uint8_t* frame, size_t size, Answer& answer);
    void record(Event event);
    Script script() const;
    std::vector<linkwire::Message> greeting() const;

    Script mScript;                            // guarded by mMutex
    std::vector<linkwire::Message> mGreeting;  // guarded by mMutex
    std::string mEndpoint = "loopback";
    std::string mPath;
    int mListener = -1;
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;  // the journal grew
    std::vector<Event> mEvents;                // guarded by mMutex
    OstLinkAppPeerLink* mLink = nullptr;       // guarded by mMutex; from onOpen to onClose
    int mConnection = -1;                      // guarded by mMutex
    int mOpened = 0;                           // guarded by mMutex
    int mClosed = 0;                           // guarded by mMutex
    int mRefusedGreetings = 0;                 // guarded by mMutex
    std::thread mThread;
};

#endif  // MOX_TESTS_SCRIPTEDPHONE_H
