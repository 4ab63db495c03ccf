// Routes message and event ids to member handlers of the owning unit T.
// - At most msgCapacity message handlers and evtCapacity event handlers can be
//   registered; a registration beyond that is logged and skipped, and an id
//   registered twice keeps its first handler.
// - Dispatch of an unregistered id logs "not found. ..." and returns 0.
// Handlers are registered before the unit's box is registered and only read
// afterwards, on the worker thread.
#ifndef HB_FOUNDATION_HBDISPATCHER_H
#define HB_FOUNDATION_HBDISPATCHER_H

#include <cwchar>
#include <map>

#include "HbFramework/Foundation/HbIDispatcher.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbTypes.h"
#include "HbFramework/HbWString.h"

template <class T>
class HbDispatcher : public HbIDispatcher {
public:
    typedef uint32 (T::*MsgHandler)(uint32 id, void* data, uint32 size);
    typedef uint32 (T::*EvtHandler)(uint32 id);

    HbDispatcher(uint32 msgCap, uint32 evtCap, T* unit)
        : msgCapacity(msgCap), msgMap(), evtCapacity(evtCap), evtMap(), owner(unit) {
        for (wchar_t& c : functionName) {
            c = L'\0';
        }
    }
    ~HbDispatcher() override {}

    // A handler may be a member of one of T's bases (the link's handlers
    // are), called through the derived member pointer: well-defined, but
    // g++'s vptr check takes the adjusted object for a T and reports it, so
    // that one check is off here.
    __attribute__((no_sanitize("vptr"))) uint32 Dispatch(uint32 id, void* data,
                                                         uint32 size) override {
        typename std::map<uint32, MsgHandler>::const_iterator it = msgMap.find(id);
        if (it == msgMap.end()) {
            HbDbgOutput::DbgPrint("HbFramework/Foundation/HbDispatcher", "Dispatch", 140,
                                  en_TAG_ERROR, "not found. msg id[%d]\n", static_cast<int>(id));
            return 0;
        }
        return (owner->*(it->second))(id, data, size);
    }

    uint32 Dispatch(uint32 id) override {
        typename std::map<uint32, EvtHandler>::const_iterator it = evtMap.find(id);
        if (it == evtMap.end()) {
            HbDbgOutput::DbgPrint("HbFramework/Foundation/HbDispatcher", "Dispatch", 158,
                                  en_TAG_ERROR, "not found. evt id[%d]\n", static_cast<int>(id));
            return 0;
        }
        return (owner->*(it->second))(id);
    }

    void SetFunctionName(const wchar_t* name) override { hb_wcscpy(functionName, 64, name); }
    const wchar_t* GetFunctionName() override { return functionName; }

    // Registers a message handler with the capacity check; `file` and `line`
    // name the registering source for the failure message. True when stored
    // (or already present).
    bool MapMessage(uint32 id, MsgHandler handler, const char* file, int line) {
        if (msgMap.size() >= msgCapacity) {
            HbDbgOutput::DbgPrint(file, "SetMsgDispatchTbl", line, en_TAG_ERROR,
                                  L"[[HbUnitFrame]] [MAP_MESSAGE] Failed...\r\n");
            return false;
        }
        msgMap.insert(std::make_pair(id, handler));
        return true;
    }

    // The same for event handlers.
    bool MapEvent(uint32 id, EvtHandler handler, const char* file, int line) {
        if (evtMap.size() >= evtCapacity) {
            HbDbgOutput::DbgPrint(file, "SetMsgDispatchTbl", line, en_TAG_ERROR,
                                  L"[[HbUnitFrame]] [MAP_EVENT] Failed...\r\n");
            return false;
        }
        evtMap.insert(std::make_pair(id, handler));
        return true;
    }

    // Filled on the unit's thread before the unit registers with its box; from
    // then on read only, by the worker thread.
    uint32 msgCapacity;                   // most message handlers
    std::map<uint32, MsgHandler> msgMap;  // message id -> handler
    uint32 evtCapacity;                   // most event handlers
    std::map<uint32, EvtHandler> evtMap;  // event id -> handler
    T* owner;                             // handlers run on it; not owned
    wchar_t functionName[16];             // unit name; set under a lock at registration

    // SetFunctionName() hands 64 bytes to hb_wcscpy as the size of functionName.
    static_assert(sizeof(wchar_t) * 16 == 64, "functionName must be 64 bytes");
};

#endif  // HB_FOUNDATION_HBDISPATCHER_H
