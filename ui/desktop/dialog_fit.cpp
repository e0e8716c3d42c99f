#include "platform/text.h"
#include "toolkit/dpi.h"
#include "ui/dialog_support.h"
#include "ui/gui_handles.h"
#include "ui/resource.h"

#include <algorithm>

namespace quilla {

namespace {

void FollowDialog(HWND dialog, const ControlLayout& control, int pixels) {
    const HWND window = GetDlgItem(dialog, control.id);
    RECT place;
    GetWindowRect(window, &place);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&place), 2);
    place.right += pixels;
    if (control.follow == Follow::Move)
        place.left += pixels;
    SetWindowPos(window, nullptr, place.left, place.top, place.right - place.left, place.bottom - place.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
}

/// Puts a dialog over the middle of its visible owner, but nowhere off the screen.
void CentreOverOwner(HWND dialog) {
    const HWND owner = GetWindow(dialog, GW_OWNER);
    if (!owner || !IsWindowVisible(owner) || IsIconic(owner))
        return;
    RECT around;
    RECT place;
    GetWindowRect(owner, &around);
    GetWindowRect(dialog, &place);
    MONITORINFO monitor{};
    monitor.cbSize = sizeof(monitor);
    GetMonitorInfoW(MonitorFromWindow(owner, MONITOR_DEFAULTTONEAREST), &monitor);
    const LONG width = place.right - place.left;
    const LONG height = place.bottom - place.top;
    const RECT& screen = monitor.rcWork;
    const LONG left = std::min((around.left + around.right - width) / 2, screen.right - width);
    const LONG top = std::min((around.top + around.bottom - height) / 2, screen.bottom - height);
    SetWindowPos(dialog, nullptr, std::max(left, screen.left), std::max(top, screen.top), 0, 0,
                 SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

} // namespace

void FitDialog(HWND dialog, int units, std::span<const ControlLayout> controls) {
    // One that is shared and stays: where dialogs show an icon it is to be the program's.
    const HICON icon = LoadIconW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_PROGRAM));
    for (const WPARAM size : {ICON_SMALL, ICON_BIG})
        SendMessageW(dialog, WM_SETICON, size, reinterpret_cast<LPARAM>(icon));
    RECT growth{0, 0, units, 0};
    MapDialogRect(dialog, &growth);
    const int pixels = growth.right;
    RECT place;
    GetWindowRect(dialog, &place);
    SetWindowPos(dialog, nullptr, place.left - pixels / 2, place.top, place.right - place.left + pixels,
                 place.bottom - place.top, SWP_NOZORDER | SWP_NOACTIVATE);
    for (const ControlLayout& control : controls)
        FollowDialog(dialog, control, pixels);
    CentreOverOwner(dialog);
}

UniqueFont CreateDialogFont(HWND window) {
    constexpr int kPointsPerInch = 72;
    LOGFONTW font{};
    font.lfHeight = -MulDiv(FONT_POINTS, static_cast<int>(WindowDpi(window)), kPointsPerInch);
    font.lfWeight = FW_NORMAL;
    font.lfCharSet = DEFAULT_CHARSET;
    CopyText(font.lfFaceName, L"" FONT_NAME);
    return UniqueFont(CreateFontIndirectW(&font));
}

} // namespace quilla
