#pragma once

#include "toolkit/controls.h"
#include "ui/toolbar_images.h"

namespace quilla {

/// The menu bar and the toolbar across the top of the main window. Handhelds have one command bar for both;
/// on a desktop the menu belongs to the window and the toolbar lies below it.
class CommandBar : public BToolbar {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
    /// Names the buttons in the forms in which different systems ask for their tool-tips.
    LRESULT OnNotify(NMHDR& header) override;
    HWND CreateFromParams(const WNDCLASSW& windowClass, const CREATESTRUCTW& creation) override;

    /// Sets the menu bar of the parent window, with the keys of an accelerator table behind its items.
    void InsertMenuBar(int menuId, HACCEL accelerators) const;

    /// Adds the standard, view and own images and the buttons with their tool-tips.
    void AddButtons();

    /// Loads the images and lays the buttons out for the window's resolution.
    void LoadImages();

    /// Bottom edge in the parent's client area.
    [[nodiscard]] int Bottom() const;

  private:
    static const bool kNamesButtons;

    /// Finishes the bar once all buttons are there.
    void LayOutButtons();

    ToolbarImages images_;
};

} // namespace quilla
