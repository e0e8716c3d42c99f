#pragma once

#include "toolkit/message.h"

namespace quilla {

class BCommandState;

/// Whatever takes messages, notifications, commands and questions about command states. The order of the
/// operations is part of the toolkit's interface.
class BHandler {
  public:
    /// What happens to a message that nobody handles.
    virtual LRESULT DefaultProc(BMessage& message) = 0;

    /// Handles a message; the root gives it default processing.
    virtual LRESULT OnMessage(BMessage& message);

    /// Handles a notification (WM_NOTIFY) of a control.
    virtual LRESULT OnNotify(NMHDR& header);

    /// Handles a command: id and code are the words of WM_COMMAND, control is null for menus and
    /// accelerators.
    virtual LRESULT OnCommand(int id, int code, HWND control);

    /// Answers how the command state.id is to be shown; the root leaves the state alone.
    virtual void OnUpdateCommand(BCommandState& state);

  protected:
    BHandler() = default;
    ~BHandler() = default;
    BHandler(const BHandler&) = delete;
    BHandler& operator=(const BHandler&) = delete;
};

/// Default processing of the message that is being dispatched.
LRESULT CallDefault(BHandler& object);

} // namespace quilla
