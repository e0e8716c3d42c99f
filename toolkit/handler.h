#pragma once

#include "toolkit/command_state.h"

#include <windows.h>

namespace quilla {

/// One message on its way through the toolkit: hwnd (the window that received it; a reflected message keeps
/// naming the parent), message, wParam and lParam count. A message from the queue can be handed on as it is.
using BMessage = MSG;

/// Root of everything that messages, notifications and commands can reach. The order of the operations is
/// fixed. Objects belong to whoever made them and are never freed through this class.
class BHandler {
  public:
    /// What happens to a message that nobody handles.
    virtual LRESULT DefaultProc(BMessage& message) = 0;
    /// A message; default processing of the current message here.
    virtual LRESULT OnMessage(BMessage& message);
    /// A WM_NOTIFY notification; default processing here.
    virtual LRESULT OnNotify(NMHDR& header);
    /// A command (code 0) or a control's notification; control is null for menu items and accelerators.
    /// Default processing here.
    virtual LRESULT OnCommand(int id, int code, HWND control);
    /// A question about a command's state; left unanswered here.
    virtual void OnUpdateCommand(BCommandState& state);

  protected:
    ~BHandler() = default;
};

/// Default processing: the object's DefaultProc for the message being dispatched; 0 outside dispatch.
LRESULT CallDefault(BHandler& object);

} // namespace quilla
