// The module's side of the command protocol with the phone application.
//
// It builds the frames the module sends, reads every frame the phone sends
// back, moves the result state of MoxState and arms or stops the command
// timer that bounds every wait for the phone. It never touches the transport:
// each outgoing frame is raised as notification 0 (data = the frame, size =
// its length in bytes) on this object's own subject, and the unit passes it on
// to the link.
//
// A lookup, as the phone answers it:
//   sendCmdEventCdTocLookup -> 0x8010 accepted -> 0x8011 result ready ->
//   sendCmdGetCdMetaInfo -> 0x8012 chunks 0..count-1, appended to the result
//   file -> result state 0.
//
// Thread rules:
// - Received frames, commands and the result file are handled on one thread,
//   the unit's worker; mExpectedChunkIndex belongs to it.
// - timeoutMoxCmdTimer() runs on the timer manager's thread. It reads and sets
//   the result state, restarts the command timer when it sends the cancel,
//   and raises the cancel frame on the subject (safe from any thread).
// - This class holds no lock of its own, so the worker and the expiry
//   interleave freely. Each single step is atomic: one read or one store of
//   the result state (locked inside MoxState), one call to the timer manager,
//   one load or store of the timer's handle. No sequence of them is:
//   "read the state, then act", and the steps of moxCmdTimerRestart() and
//   moxCmdTimerStopIfNeeded() ("if armed, remove; add; store the handle").
// - What holds for the command timer rests on the timer manager: it arms a
//   timer at most once, its handle for a timer never goes stale (null
//   included), and a remove on the worker waits for a running expiry. So
//   after any interleaving the timer is armed at most once, and a stop that
//   starts after the last restart has returned leaves it disarmed.
// - Which of two racing steps wins is not decided. A stop racing with the
//   expiry's restart may leave the cancel's wait armed; an expiry that has
//   read 103 acts on it even if the worker completes or ends the lookup
//   meanwhile, so a lookup finished at the moment its wait runs out may still
//   be followed by 4, 104 and a cancel.
#ifndef MOX_PRIVATE_MOXPROTOCOL_H
#define MOX_PRIVATE_MOXPROTOCOL_H

#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/Foundation/HbSingleton.h"
#include "HbFramework/Foundation/HbTimer.h"
#include "HbFramework/HbSubject.h"
#include "HbFramework/HbTypes.h"
#include "HbSMoxDef.h"
#include "OstLinkApp/OstLinkAppProtocol.h"

class MoxState;

class MoxProtocol : public HbSingleton<MoxProtocol>, public HbSubject, public OstLinkAppProtocol {
    friend class HbSingleton<MoxProtocol>;

public:
    // Wait for any answer of the phone, in milliseconds.
    static constexpr uint32 CMD_TIMER_PERIOD = 10000;

    // Does nothing: the instance lives until the singleton finalizer ends it.
    static void DelInstance();
    ~MoxProtocol() override;

    // --- Link-layer interface ------------------------------------------------
    // Connect (0x0001): result state 101, timer restarted. On an iOS link that
    // is already connected nothing is sent: only the link flag is set.
    void sendCmdConnect() override;
    // Disconnect (0x0002): result state 100, timer stopped, link flag cleared.
    void sendCmdDisconnect() override;
    // Dispatches one frame from the phone by its command ID; a frame with a
    // failure status only moves the result state.
    void analysisProtocolCmd(unsigned char* frame, unsigned int size) override;
    // The phone's log commands are not used by this module: always false.
    bool isLogvCmd(unsigned char* frame, unsigned int size) override;
    // The phone is not told of the head unit's running state: does nothing.
    void sendCmdNotifyRunningState(unsigned int state) override;

    // --- Commands to the phone -------------------------------------------------
    // Starts a lookup: empties the result file, then sends the TOC lookup
    // event (0x0010) with the request document; result state 103.
    void sendCmdEventCdTocLookup(HbSMoxDef::SearchInfo& info);
    // Asks for the response database (0x0012); result state 103.
    void sendCmdGetCdMetaInfo();
    // Cancels the lookup (0x0FFF); result state 104.
    void sendCmdCancel();
    // Echo request (0x7FFF); changes no state. Nothing in the module sends it.
    void sendCmdEchoRequest();

    // --- Received frames --------------------------------------------------------
    // 0x8011: the phone has the lookup result; asks for it.
    void rcvCmdNotifyCdTocLookup(unsigned char* frame, unsigned int size);
    // 0x8012: one chunk of the response database; checked, then appended.
    void rcvCmdReturnCdMetaInfo(unsigned char* frame, unsigned int size);
    // Observer of MoxState: gives up the current operation when the link
    // reports that the phone application is lost (id 0, byte 0). Returns 1.
    uint32 rcvMoxStateNotify(uint32 id, void* data, uint32 size);

    // --- Result file --------------------------------------------------------------
    // Appends `length` bytes; true when all were written and the file closed cleanly.
    bool writeSearchResultFile(unsigned char* data, unsigned int length);
    // Truncates the file to zero length (creating it); true when that worked.
    bool clearSearchResultFile();

    // --- Command timer ------------------------------------------------------------
    void moxCmdTimerRestart();
    void moxCmdTimerStopIfNeeded();
    // Expiry, on the timer manager's thread. Returns 0.
    uint32 timeoutMoxCmdTimer(HbLTimerBase* timer);

    MoxState* getMoxState();

private:
    MoxProtocol();

    // Raises notification 0 with the frame, for the unit to send.
    void emitFrame(unsigned char* frame, unsigned int size);
    // A chunk could not be taken: error state, then cancel the lookup.
    void endChunkWithError();
    // Makes sure the result directory exists; false (with a message) if not.
    bool ensureResultDirectory();

    MoxState* mpState;                         // not owned; null until first use
    HbObserver<MoxProtocol>* mpStateObserver;  // owned; registered on MoxState
    uint32 mExpectedChunkIndex;                // worker thread only
    HbTimer<MoxProtocol>* mpCmdTimer;          // owned
};

#endif  // MOX_PRIVATE_MOXPROTOCOL_H
