#include "toolkit/handler.h"

#include "toolkit/application.h"

namespace quilla {

LRESULT BHandler::OnMessage(BMessage&) {
    return CallDefault(*this);
}

LRESULT BHandler::OnNotify(NMHDR&) {
    return CallDefault(*this);
}

LRESULT BHandler::OnCommand(int, int, HWND) {
    return CallDefault(*this);
}

void BHandler::OnUpdateCommand(BCommandState&) {}

LRESULT CallDefault(BHandler& object) {
    BMessage* const message = BApplication::Current()->currentMessage;
    return message ? object.DefaultProc(*message) : 0;
}

} // namespace quilla
