#include "toolkit/file_field.h"

#include "toolkit/dpi.h"

#include <commctrl.h>

namespace quilla {

LRESULT FileFieldEdit::OnMessage(BMessage& message) {
    const bool browse =
        message.message == WM_SYSKEYDOWN && (message.wParam == VK_UP || message.wParam == VK_DOWN);
    if (!browse)
        return BEdit::OnMessage(message);
    SendMessageW(GetParent(hwnd), WM_COMMAND, kBrowseCommand, 0);
    return 0;
}

void FileFieldEdit::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BEdit::GetCreateDefaults(windowClass, creation);
    creation.dwExStyle &= ~static_cast<DWORD>(WS_EX_CLIENTEDGE);
}

void FileField::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    creation.style |= WS_TABSTOP;
    creation.dwExStyle |= WS_EX_CLIENTEDGE;
}

void FileField::Attach(HWND handle) {
    BWindow::Attach(handle);
    if (!hwnd)
        return;
    WNDCLASSW windowClass;
    CREATESTRUCTW creation;
    edit.GetCreateDefaults(windowClass, creation);
    if (readOnly)
        creation.style |= ES_READONLY;
    creation.hwndParent = hwnd;
    edit.CreateFromParams(windowClass, creation);
    button.Create(hwnd, nullptr, 0);

    RECT client = {};
    GetClientRect(hwnd, &client);
    SendMessageW(hwnd, WM_SIZE, SIZE_RESTORED, MAKELPARAM(client.right, client.bottom));
}

LRESULT FileField::OnMessage(BMessage& message) {
    switch (message.message) {
    case WM_SIZE: {
        const LRESULT result = CallDefault(*this);
        Layout(LOWORD(message.lParam), HIWORD(message.lParam));
        return result;
    }
    case WM_ERASEBKGND:
        EraseBackground(reinterpret_cast<HDC>(message.wParam));
        return TRUE;
    case WM_SETFOCUS:
        SendMessageW(GetParent(hwnd), WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(edit.hwnd), TRUE);
        return 0;
    case WM_SETFONT: {
        const LRESULT result = CallDefault(*this);
        SendMessageW(edit.hwnd, WM_SETFONT, message.wParam, message.lParam);
        SendMessageW(button.hwnd, WM_SETFONT, message.wParam, message.lParam);
        return result;
    }
    case WM_ENABLE: {
        const LRESULT result = CallDefault(*this);
        EnableWindow(edit.hwnd, message.wParam != 0);
        EnableWindow(button.hwnd, message.wParam != 0);
        Redraw();
        return result;
    }
    case EM_SETREADONLY:
        SetReadOnly(LOBYTE(message.wParam) != 0);
        return TRUE;
    case WM_SETTEXT:
        return SetWindowTextW(edit.hwnd, reinterpret_cast<const wchar_t*>(message.lParam));
    default:
        return BWindow::OnMessage(message);
    }
}

LRESULT FileField::OnCommand(int id, int code, HWND control) {
    if (id == kBrowseCommand)
        return readOnly ? 0 : NotifyParent(kBrowseNotification);
    if (code == EN_KILLFOCUS && control == edit.hwnd)
        return NotifyParent(NM_KILLFOCUS);
    return BWindow::OnCommand(id, code, control);
}

void FileField::SetReadOnly(bool flag) {
    if (flag == (readOnly != 0))
        return;
    readOnly = flag;
    Redraw();
    SendMessageW(edit.hwnd, EM_SETREADONLY, flag, 0);
}

void FileField::Layout(int width, int height) {
    constexpr UINT flags = SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOOWNERZORDER;
    const int buttonWidth = WindowMetric(hwnd, SM_CXVSCROLL);
    SetWindowPos(edit.hwnd, nullptr, 1, 1, width - buttonWidth - 2, height - 2, flags);
    SetWindowPos(button.hwnd, nullptr, width - buttonWidth, 0, buttonWidth, height, flags);
}

void FileField::EraseBackground(HDC context) {
    const bool editable = IsWindowEnabled(hwnd) && !readOnly;
    const auto brush = reinterpret_cast<HBRUSH>(
        SendMessageW(GetParent(hwnd), editable ? WM_CTLCOLOREDIT : WM_CTLCOLORSTATIC,
                     reinterpret_cast<WPARAM>(context), reinterpret_cast<LPARAM>(hwnd)));
    RECT client = {};
    GetClientRect(hwnd, &client);
    FillRect(context, &client, brush);
}

LRESULT FileField::NotifyParent(UINT code) {
    NMHDR header = {};
    header.hwndFrom = hwnd;
    header.idFrom = static_cast<UINT_PTR>(GetDlgCtrlID(hwnd));
    header.code = code;
    return SendMessageW(GetParent(hwnd), WM_NOTIFY, header.idFrom, reinterpret_cast<LPARAM>(&header));
}

void FileField::Redraw() {
    InvalidateRect(hwnd, nullptr, TRUE);
}

} // namespace quilla
