#pragma once

#include "toolkit/browse_button.h"
#include "toolkit/controls.h"

namespace quilla {

/// The edit inside a file field: no edge of its own, and Alt with an arrow key browses.
class FileFieldEdit : public BEdit {
  public:
    LRESULT OnMessage(BMessage& message) override;
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
};

/// An edit for a file name with a small button to browse for it: one control of the class "BWindow" to its
/// dialog. It sends WM_NOTIFY to its parent, which hands it back to this object's OnNotify: with
/// kBrowseNotification when the user wants to browse, with NM_KILLFOCUS when the edit has lost the focus.
/// Derived classes act on them there.
class FileField : public BWindow {
  public:
    static constexpr UINT kBrowseNotification = 1;

    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnCommand(int id, int code, HWND control) override;
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
    /// Binds and creates the edit and the button inside.
    void Attach(HWND handle) override;

    /// A read-only field neither takes text nor browses, and is coloured like static text.
    void SetReadOnly(bool flag);

    FileFieldEdit edit;
    BrowseButton button;
    UINT readOnly = 0;

  private:
    /// Gives the edit and the button names, and lets the keyboard get at them one by one.
    void NameParts();
    /// Makes the button a stop of the Tab key while it browses.
    void OfferButton() const;
    void Layout(int width, int height);
    HBRUSH BackgroundBrush(HDC context);
    void EraseBackground(HDC context);
    [[nodiscard]] ControlLook Look() const;
    /// False where the platform's own edge is the right one.
    bool PaintStyledEdge();
    LRESULT NotifyParent(UINT code);
    void Redraw();
};

} // namespace quilla
