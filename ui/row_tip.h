#pragma once

#include "toolkit/window.h"

#include <windows.h>

#include <commctrl.h>

namespace quilla {

/// The tool-tip of a list's rows. It takes the place of the list view's own, which not every desktop shows,
/// and asks for its text as that one does, by LVN_GETINFOTIP. Handhelds leave it to their list view.
class RowTip final : public BWindow {
  public:
    /// Makes the tip for a list view, whose messages it is given from then on.
    void CreateFor(HWND list);

    /// Is told of each message that the list gets, so that the tip follows the pointer from row to row.
    void Follow(const MSG& message);

    LRESULT OnNotify(NMHDR& header) override;

  private:
    [[nodiscard]] TTTOOLINFOW Tool() const;

    [[maybe_unused]] HWND list_ = nullptr;
    [[maybe_unused]] int row_ = -1;
    [[maybe_unused]] wchar_t text_[512] = {};
};

} // namespace quilla
