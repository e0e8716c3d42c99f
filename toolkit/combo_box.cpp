#include "toolkit/combo_box.h"

#include "toolkit/platform_class.h"

#include <commctrl.h>

namespace quilla {

void BComboBox::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, WC_COMBOBOXW);
    creation.style |= WS_TABSTOP;
}

void BComboBox::SetLocked(bool flag) {
    if (flag)
        lockedSelection = static_cast<int>(SendMessageW(hwnd, CB_GETCURSEL, 0, 0));
    locked = flag;
    InvalidateRect(hwnd, nullptr, TRUE);
}

LRESULT BComboBox::OnMessage(BMessage& message) {
    switch (message.message) {
    case CB_SETCURSEL:
        lockedSelection = static_cast<int>(message.wParam);
        break;
    case CB_GETCURSEL:
        if (locked)
            return lockedSelection;
        break;
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
        if (locked)
            return SendMessageW(hwnd, WM_CTLCOLORSTATIC, message.wParam, message.lParam);
        break;
    default:
        break;
    }
    return BWindow::OnMessage(message);
}

LRESULT BComboBox::OnCommand(int id, int code, HWND control) {
    const bool selectionEnded = control == hwnd && (code == CBN_SELENDOK || code == CBN_SELENDCANCEL);
    if (!locked || !selectionEnded)
        return BWindow::OnCommand(id, code, control);
    SendMessageW(hwnd, CB_SETCURSEL, static_cast<WPARAM>(lockedSelection), 0);
    return 0;
}

} // namespace quilla
