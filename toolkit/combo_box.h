#pragma once

#include "toolkit/window.h"

namespace quilla {

/// The platform's combo box with a lock: a locked one looks read-only, can be dropped down, but keeps its
/// selection.
class BComboBox : public BWindow {
  public:
    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnCommand(int id, int code, HWND control) override;
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;

    /// Locks the present selection, or unlocks. While locked the program, not the user, can still change it.
    void SetLocked(bool flag);

    UINT locked = 0;
    int lockedSelection = CB_ERR; ///< The selection that is kept while locked.
};

} // namespace quilla
