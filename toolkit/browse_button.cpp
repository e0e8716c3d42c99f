#include "toolkit/browse_button.h"

#include "toolkit/visual_style.h"

namespace quilla {

namespace {

constexpr wchar_t kCaption[] = L"...";
constexpr int kCaptionLength = 3;

POINT PointOf(LPARAM position) {
    return {static_cast<short>(LOWORD(position)), static_cast<short>(HIWORD(position))};
}

RECT ClientRectangle(HWND window) {
    RECT rectangle = {};
    GetClientRect(window, &rectangle);
    return rectangle;
}

} // namespace

LRESULT BrowseButton::OnMessage(BMessage& message) {
    switch (message.message) {
    case WM_PAINT:
        OnPaint();
        return 0;
    case WM_LBUTTONDOWN:
        OnButtonDown();
        return 0;
    case WM_MOUSEMOVE:
        OnMouseMove(PointOf(message.lParam));
        return 0;
    case WM_LBUTTONUP:
        OnButtonUp();
        return 0;
    case WM_GETDLGCODE: // Enter is for the button that has the focus, not for the dialog's
        return message.wParam == VK_RETURN ? DLGC_WANTMESSAGE : 0;
    case WM_KEYDOWN:
        if (message.wParam != VK_SPACE && message.wParam != VK_RETURN)
            return BWindow::OnMessage(message);
        SendMessageW(GetParent(hwnd), WM_COMMAND, kBrowseCommand, 0);
        return 0;
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
        Redraw();
        return 0;
    case WM_CAPTURECHANGED: // somebody else has taken the pointer: it will not be released here
        SetPressed(false);
        return 0;
    case WM_ENABLE: {
        const LRESULT result = CallDefault(*this);
        Redraw();
        return result;
    }
    default:
        return BWindow::OnMessage(message);
    }
}

void BrowseButton::OnPaint() {
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(hwnd, &paint);
    RECT rectangle = ClientRectangle(hwnd);
    const HWND dialog = GetParent(GetParent(hwnd));
    const auto brush = reinterpret_cast<HBRUSH>(SendMessageW(
        dialog, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(context), reinterpret_cast<LPARAM>(hwnd)));
    const COLORREF grey = GetSysColor(COLOR_GRAYTEXT);
    if (!IsWindowEnabled(hwnd) && grey != GetBkColor(context))
        SetTextColor(context, grey);
    FillRect(context, &rectangle, brush);
    const bool styled = DrawStyledButton(hwnd, context, Look(), rectangle);

    const auto font = reinterpret_cast<HGDIOBJ>(SendMessageW(dialog, WM_GETFONT, 0, 0));
    const HGDIOBJ formerFont = font ? SelectObject(context, font) : nullptr;
    RECT text = rectangle;
    if (pressed)
        OffsetRect(&text, 1, 1);
    SetBkMode(context, TRANSPARENT);
    DrawTextW(context, kCaption, kCaptionLength, &text, DT_CENTER | DT_VCENTER);
    if (formerFont)
        SelectObject(context, formerFont);

    if (!styled)
        DrawEdge(context, &rectangle, pressed ? EDGE_SUNKEN : EDGE_RAISED, BF_RECT | BF_SOFT);
    if (GetFocus() == hwnd) {
        InflateRect(&rectangle, -2, -2);
        DrawFocusRect(context, &rectangle);
    }
    EndPaint(hwnd, &paint);
}

ControlLook BrowseButton::Look() const {
    if (!IsWindowEnabled(hwnd))
        return ControlLook::kDisabled;
    return pressed ? ControlLook::kPressed : ControlLook::kNormal;
}

void BrowseButton::OnButtonDown() {
    pressed = 1;
    Redraw();
    FocusField();
    SetCapture(hwnd);
}

void BrowseButton::OnMouseMove(POINT point) {
    if (GetCapture() != hwnd)
        return;
    const RECT rectangle = ClientRectangle(hwnd);
    SetPressed(PtInRect(&rectangle, point) != FALSE);
}

void BrowseButton::OnButtonUp() {
    if (GetCapture() != hwnd)
        return;
    const bool released = pressed != 0;
    ReleaseCapture();
    if (!released)
        return;
    SetPressed(false); // where no message tells of the capture's end
    SendMessageW(GetParent(hwnd), WM_COMMAND, kBrowseCommand, 0);
    FocusField();
}

void BrowseButton::SetPressed(bool flag) {
    if (flag == (pressed != 0))
        return;
    pressed = flag;
    Redraw();
}

void BrowseButton::Redraw() {
    InvalidateRect(hwnd, nullptr, TRUE);
    UpdateWindow(hwnd);
}

void BrowseButton::FocusField() {
    SetFocus(GetParent(hwnd));
}

} // namespace quilla
