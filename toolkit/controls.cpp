#include "toolkit/controls.h"

#include <commctrl.h>

namespace quilla {

namespace {

/// Takes the class record of one of the platform's controls for creating a window.
void UsePlatformClass(WNDCLASSW& windowClass, const wchar_t* name) {
    GetClassInfoW(nullptr, name, &windowClass);
    windowClass.lpszClassName = name; // not every system gives it back
}

} // namespace

void BEdit::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, WC_EDITW);
    creation.style |= WS_TABSTOP | ES_AUTOVSCROLL | ES_AUTOHSCROLL;
    creation.dwExStyle |= WS_EX_CLIENTEDGE;
}

void BUpDown::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, UPDOWN_CLASSW);
}

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

void BListView::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, WC_LISTVIEWW);
    creation.dwExStyle |= WS_EX_CLIENTEDGE;
}

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
