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
    NameParts();
    OfferButton();

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
    case WM_NCPAINT:
        return PaintStyledEdge() ? 0 : CallDefault(*this);
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
    const bool focusMoved = control == edit.hwnd && (code == EN_SETFOCUS || code == EN_KILLFOCUS);
    if (focusMoved)
        RedrawWindow(hwnd, nullptr, nullptr, RDW_FRAME | RDW_INVALIDATE); // the edge shows the focus
    if (focusMoved && code == EN_KILLFOCUS)
        return NotifyParent(NM_KILLFOCUS);
    return BWindow::OnCommand(id, code, control);
}

void FileField::SetReadOnly(bool flag) {
    if (flag == (readOnly != 0))
        return;
    readOnly = flag;
    OfferButton();
    Redraw();
    SendMessageW(edit.hwnd, EM_SETREADONLY, flag, 0);
}

void FileField::Layout(int width, int height) {
    constexpr UINT flags = SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOOWNERZORDER;
    const int buttonWidth = WindowMetric(hwnd, SM_CXVSCROLL);
    SetWindowPos(edit.hwnd, nullptr, 1, 1, width - buttonWidth - 2, height - 2, flags);
    SetWindowPos(button.hwnd, nullptr, width - buttonWidth, 0, buttonWidth, height, flags);
}

HBRUSH FileField::BackgroundBrush(HDC context) {
    const bool editable = IsWindowEnabled(hwnd) && !readOnly;
    return reinterpret_cast<HBRUSH>(
        SendMessageW(GetParent(hwnd), editable ? WM_CTLCOLOREDIT : WM_CTLCOLORSTATIC,
                     reinterpret_cast<WPARAM>(context), reinterpret_cast<LPARAM>(hwnd)));
}

void FileField::EraseBackground(HDC context) {
    RECT client = {};
    GetClientRect(hwnd, &client);
    FillRect(context, &client, BackgroundBrush(context));
}

ControlLook FileField::Look() const {
    if (!IsWindowEnabled(hwnd))
        return ControlLook::kDisabled;
    return GetFocus() == edit.hwnd ? ControlLook::kFocused : ControlLook::kNormal;
}

bool FileField::PaintStyledEdge() {
    if ((GetWindowLongW(hwnd, GWL_EXSTYLE) & WS_EX_CLIENTEDGE) == 0)
        return false;
    RECT frame = {};
    GetWindowRect(hwnd, &frame);
    RECT client = {};
    GetClientRect(hwnd, &client);
    MapWindowPoints(hwnd, nullptr, reinterpret_cast<POINT*>(&client), 2);
    OffsetRect(&client, -frame.left, -frame.top);
    OffsetRect(&frame, -frame.left, -frame.top);

    const HDC context = GetWindowDC(hwnd);
    ExcludeClipRect(context, client.left, client.top, client.right, client.bottom);
    const bool styled = DrawStyledEditEdge(hwnd, context, Look(), frame);
    if (styled) {
        // The style's line is thinner than the edge: the rest belongs to the inside.
        InflateRect(&frame, -WindowMetric(hwnd, SM_CXBORDER), -WindowMetric(hwnd, SM_CYBORDER));
        FillRect(context, &frame, BackgroundBrush(context));
    }
    ReleaseDC(hwnd, context);
    return styled;
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
