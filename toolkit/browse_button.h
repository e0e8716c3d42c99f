#pragma once

#include "toolkit/visual_style.h"
#include "toolkit/window.h"

namespace quilla {

/// The command that a file field's button and its keyboard shortcut send to the field.
inline constexpr int kBrowseCommand = 48;

/// The small "..." button inside a file field. It never keeps the focus: the field has it.
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
