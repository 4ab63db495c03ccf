// The platform half of HbUnitFrame: posting to the unit's own box and
// withdrawing from it. The range setting and registration are inline in the
// header, compiled into the module.
#include "HbFramework/Foundation/HbUnitFrame.h"

int32 HbUnitFrame::SendMsgSelf(uint32 id, EN_MSG_ID kind, const void* data, uint32 size) {
    if (msgBox == nullptr || msgBoxId < 0) {
        return en_ERROR_NO_MSGBOX;
    }
    return msgBox->Post(msgBoxId, id, kind, data, size);
}

int32 HbUnitFrame::UnregistMsgBox() {
    if (msgBox == nullptr || msgBoxId < 0) {
        return en_ERROR_NOT_REGISTERED;
    }
    msgBox->Unregist(msgBoxId);
    msgBox = nullptr;
    msgBoxId = -1;
    return en_ERROR_NONE;
}
