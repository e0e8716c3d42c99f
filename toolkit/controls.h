#pragma once

#include "toolkit/window.h"

/// The platform's own controls as window objects, each created with what the program wants of it by default.
namespace quilla {

/// An edit: by default with a sunken edge, a tab stop and automatic scrolling.
class BEdit : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
};

class BUpDown : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
};

/// A combo box with a lock: a locked one looks read-only, can be dropped down, but keeps its selection.
class BComboBox : public BWindow {
  public:
    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnCommand(int id, int code, HWND control) override;
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;

    /// Locks the present selection, or unlocks. While locked the program, not the user, can still change it.
    void SetLocked(bool flag);

    UINT locked = 0;
    int lockedSelection = -1; ///< The selection that is kept while locked; -1 (CB_ERR) for none.
};

/// A list view: by default with a sunken edge.
class BListView : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
};

/// A toolbar: by default without a dividing line. Its buttons follow the states of their commands.
class BToolbar : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
    /// Also asks about each button's command, beginning at the toolbar's parent.
    void UpdateCommandStates() override;
};

} // namespace quilla
