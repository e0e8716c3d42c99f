#include "toolkit/toolbar.h"

#include "toolkit/platform_class.h"

#include <commctrl.h>

namespace quilla {

void BToolbar::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, TOOLBARCLASSNAMEW);
    creation.style |= CCS_NODIVIDER;
}

void BToolbar::UpdateCommandStates() {
    BWindow::UpdateCommandStates();
    BWindow* const parent = ObjectFromHandle(GetParent(hwnd));
    if (!parent)
        return;
    const auto count = static_cast<int>(SendMessageW(hwnd, TB_BUTTONCOUNT, 0, 0));
    for (int index = count - 1; index >= 0; --index) {
        TBBUTTON button = {};
        SendMessageW(hwnd, TB_GETBUTTON, static_cast<WPARAM>(index), reinterpret_cast<LPARAM>(&button));
        BToolbarButtonState state(button.idCommand, hwnd);
        parent->RouteUpdateCommand(state);
    }
}

} // namespace quilla
