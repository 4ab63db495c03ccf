// Interface through which a worker hands messages and events to a unit.
#ifndef HB_FOUNDATION_HBIDISPATCHER_H
#define HB_FOUNDATION_HBIDISPATCHER_H

#include "HbFramework/HbTypes.h"

class HbIDispatcher {
public:
    virtual ~HbIDispatcher() {}
    virtual uint32 Dispatch(uint32 id, void* data, uint32 size) = 0;
    virtual uint32 Dispatch(uint32 id) = 0;
    virtual void SetFunctionName(const wchar_t* name) = 0;
    virtual const wchar_t* GetFunctionName() = 0;
};

#endif  // HB_FOUNDATION_HBIDISPATCHER_H
