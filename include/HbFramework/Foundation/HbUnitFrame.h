// Base of a unit: an object whose messages run on a worker thread.
//
// A unit T sets its message and event ranges (each builds a fresh dispatcher
// and lets T fill it in T::SetMsgDispatchTbl), registers with its worker's
// message box, and then posts messages to itself with SendMsgSelf():
//
//   SetMsgRange(this, 8, 600);   // calls this->SetMsgDispatchTbl(dispatcher)
//   SetEvtRange(this, 1, 1000);  // builds the table once more, on purpose
//   RegstMsgBox(worker, L"Foo");
//
// The range setting and the registration are compiled into the module; the
// posting and withdrawal (SendMsgSelf, UnregistMsgBox) belong to the platform.
#ifndef HB_FOUNDATION_HBUNITFRAME_H
#define HB_FOUNDATION_HBUNITFRAME_H

#include "HbFramework/Foundation/HbDispatcher.h"
#include "HbFramework/Foundation/HbIDispatcher.h"
#include "HbFramework/Foundation/HbUncopyable.h"
#include "HbFramework/HbCallStack.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbMsgBox.h"
#include "HbFramework/HbSync.h"
#include "HbFramework/HbTypes.h"
#include "HbFramework/HbWorker.h"

class HbUnitFrame : private HbUncopyable {
public:
    HbUnitFrame()
        : trail(0),
          msgBoxId(-1),
          msgBox(nullptr),
          dispatcher(nullptr),
          msgCount(0),
          msgBase(0),
          evtCount(0),
          evtBase(0),
          frameState(137) {}

    virtual ~HbUnitFrame() {
        if (dispatcher != nullptr) {
            delete dispatcher;
        }
        dispatcher = nullptr;
    }

    // Copies `size` bytes of `data` into a message `id` of `kind` and queues it
    // in the unit's own box. Returns 0, or an EN_HB_ERROR value (no box
    // registered, box full, ...). Can be called on any thread.
    int32 SendMsgSelf(uint32 id, EN_MSG_ID kind, const void* data, uint32 size);

    // Withdraws the unit from its box; called on another thread than the
    // worker's, it returns only after a running handler of the unit has
    // finished. Returns 0, or en_ERROR_NOT_REGISTERED.
    int32 UnregistMsgBox();

    uint32 getTrail() const { return trail; }
    int32 getMsgBoxId() const { return msgBoxId; }
    HbMsgBox* getMsgBox() const { return msgBox; }
    HbIDispatcher* getDispatcher() const { return dispatcher; }
    uint32 getMsgCount() const { return msgCount; }
    uint32 getMsgBase() const { return msgBase; }
    uint32 getEvtCount() const { return evtCount; }
    uint32 getEvtBase() const { return evtBase; }

protected:
    // Discards the current dispatcher and builds one for `count` messages
    // from `base`, filled by unit->SetMsgDispatchTbl() unless `count` is 0.
    template <class T>
    void SetMsgRange(T* unit, uint32 count, uint32 base) {
        if (dispatcher != nullptr) {
            delete dispatcher;
            dispatcher = nullptr;
        }
        msgCount = count;
        msgBase = base;
        HbDispatcher<T>* fresh = new HbDispatcher<T>(msgCount, evtCount, unit);
        if (msgCount != 0) {
            unit->SetMsgDispatchTbl(fresh);
        }
        dispatcher = fresh;
    }

    // The same for the event range; the message table is built again.
    template <class T>
    void SetEvtRange(T* unit, uint32 count, uint32 base) {
        if (dispatcher != nullptr) {
            delete dispatcher;
            dispatcher = nullptr;
        }
        evtCount = count;
        evtBase = base;
        HbDispatcher<T>* fresh = new HbDispatcher<T>(msgCount, evtCount, unit);
        if (msgCount != 0) {
            unit->SetMsgDispatchTbl(fresh);
        }
        dispatcher = fresh;
    }

    // Registers the unit with `worker`'s message box; `unitName` becomes the
    // dispatcher's function name when the unit has events. Returns 0, or
    // en_ERROR_PARAM (no box), en_ERROR_NONMATCHING_TRAIL, en_ERROR_NO_DISPATCHER
    // or en_ERROR_REGIST, each after the message, the assertion banner and a
    // stack dump.
    int32 RegstMsgBox(HbWorker* worker, const wchar_t* unitName = L"") {
        HbMsgBox* box = (worker != nullptr) ? worker->GetMsgBox() : nullptr;
        if (box == nullptr) {
            return failRegistration(L"[[HbUnitFrame]] [RegstMsgBox] en_ERROR_PARAM\r\n", 307,
                                    en_ERROR_PARAM);
        }
        if (!box->AcceptTrail(trail)) {
            return failRegistration(L"[[HbUnitFrame]] [RegstMsgBox] en_ERROR_NONMATCHING_TRAIL\r\n",
                                    303, en_ERROR_NONMATCHING_TRAIL);
        }
        if (dispatcher == nullptr) {
            return failRegistration(L"[[HbUnitFrame]] [RegstMsgBox] en_ERROR_NO_DISPATCHER\r\n",
                                    298, en_ERROR_NO_DISPATCHER);
        }
        int32 id = box->Regist(dispatcher);
        if (id == -1) {
            return failRegistration(L"[[HbUnitFrame]] [RegstMsgBox] en_ERROR_REGIST\r\n", 293,
                                    en_ERROR_REGIST);
        }
        msgBoxId = id;
        msgBox = box;
        if (evtCount != 0) {
            HbSync* sync = new HbSync();
            sync->Lock(5000);
            dispatcher->SetFunctionName(unitName);
            sync->Unlock();
            delete sync;
        }
        return en_ERROR_NONE;
    }

    // Thread rules: every field is written only while the unit is built
    // (ranges, RegstMsgBox) or torn down (UnregistMsgBox, destructor), on the
    // thread that owns the unit and never while another thread posts to it;
    // in between the worker thread and posting threads only read them.
    uint32 trail;               // value the message box checks at registration
    int32 msgBoxId;             // id returned by the box, -1 until registered
    HbMsgBox* msgBox;           // the worker's box once registered, not owned
    HbIDispatcher* dispatcher;  // owned; the worker reads it once registered
    uint32 msgCount;            // number of message ids of the unit
    uint32 msgBase;             // first message id
    uint32 evtCount;            // number of event ids
    uint32 evtBase;             // first event id
    uint32 frameState;          // framework-internal (137)

private:
    // Logs `message` at `line`, then the banner one line below, then the stack.
    static int32 failRegistration(const wchar_t* message, int line, int32 error) {
        static const char kSource[] = "HbFramework/Foundation/HbUnitFrame";
        HbDbgOutput::DbgPrint(kSource, "RegstMsgBox", line, en_TAG_ERROR, message);
        HbDbgOutput::DbgPrint(
            "#########\n#########\nASSERT Failed! - %s(%d)\n#########\n#########\n", kSource,
            line + 1);
        HbCallStack::dumpDirectly(-1);
        return error;
    }
};

#endif  // HB_FOUNDATION_HBUNITFRAME_H
