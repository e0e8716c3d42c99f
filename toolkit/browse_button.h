#pragma once

#include "toolkit/visual_style.h"
#include "toolkit/window.h"

namespace quilla {

/// The command that a file field's button and its keyboard shortcut send to the field.
inline constexpr int kBrowseCommand = 48;

/// The small "..." button inside a file field. Pressed with the pointer it leaves the focus to the
/// field; where the Tab key stops at it, Space and Enter press it.
class BrowseButton : public BWindow {
  public:
    LRESULT OnMessage(BMessage& message) override;

    UINT pressed = 0; ///< Drawn as pressed: held down with the pointer over it.

  private:
    void OnPaint();
    [[nodiscard]] ControlLook Look() const;
    void OnButtonDown();
    void OnMouseMove(POINT point);
    void OnButtonUp();
    void SetPressed(bool flag);
    void Redraw();
    void FocusField();
};

} // namespace quilla
