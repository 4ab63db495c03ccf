// The module-wide state: the result state of the current connect or lookup
// and the iOS connection flag. It is also the link's connection state
// (OstLinkAppState), and every change is told to the observers of that subject:
//
// | Id | Data                                   | Raised by       |
// |----|----------------------------------------|-----------------|
// | 8  | 4 bytes, the new result state (native) | setResultState  |
// | 9  | 1 byte, the new iOS connection flag    | setIosConnect   |
//
// Ids 0, 3 and 7 are the link state's own (see OstLinkAppState).
// Thread rules: the result state is read and written from the unit's worker,
// the timer manager's thread and callers' threads; each read and each store
// takes mpSync on its own, which is never held while observers are notified.
#ifndef MOX_PRIVATE_MOXSTATE_H
#define MOX_PRIVATE_MOXSTATE_H

#include <atomic>

#include "HbFramework/Foundation/HbSingleton.h"
#include "HbFramework/HbSync.h"
#include "HbFramework/HbTypes.h"
#include "OstLinkApp/OstLinkAppState.h"

class MoxState : public HbSingleton<MoxState>, public OstLinkAppState {
    friend class HbSingleton<MoxState>;

public:
    // Result state values. Any other value is a failure code that the phone
    // reported in a frame's status, kept unchanged.
    enum EN_RESULT_STATE {
        en_RESULT_COMPLETE = 0,      // the answer is stored; the result may be read
        en_RESULT_TIMEOUT = 4,       // a lookup answer or chunk did not come in time
        en_RESULT_ERROR = 20,        // connect timed out, bad frame, file failure, link lost
        en_RESULT_IDLE = 100,        // nothing in progress (initial)
        en_RESULT_CONNECTING = 101,  // connect sent, waiting for its answer
        en_RESULT_CONNECTED = 102,   // the phone application answered the connect
        en_RESULT_SEARCHING = 103,   // a lookup is in progress
        en_RESULT_CANCELLING = 104,  // cancel sent, waiting for its answer
    };
    // Notification ids of the result state and the iOS flag.
    enum EN_MOX_NTF_ID {
        en_NTF_RESULT_STATE = 8,
        en_NTF_IOS_CONNECT = 9,
    };

    // Does nothing: the instance lives until the singleton finalizer ends it.
    static void DelInstance();
    ~MoxState() override;

    unsigned int getResultState();
    // Stores `value` and raises notification 8 with it; storing the value
    // already held raises nothing. The test and the store are two separate
    // locked steps.
    void setResultState(unsigned int value);

    bool getIosConnect();
    // Stores `value` and raises notification 9 with it as one byte; storing
    // the value already held raises nothing.
    void setIosConnect(bool value);

private:
    MoxState();

    unsigned int mResultState;  // guarded by mpSync
    // Not guarded by mpSync: written by the answer to a connect and by the
    // unit when the link is lost. Atomic so that readers on other threads
    // always see a whole value.
    std::atomic<bool> mIosConnect;
    HbSync* mpSync;  // owned; guards mResultState
};

#endif  // MOX_PRIVATE_MOXSTATE_H
