#include "ui/dialog_support.h"

#include "platform/error_box.h"
#include "ui/resource.h"

#include <algorithm>
#include <iterator>

namespace quilla {

namespace {

BOOL CALLBACK StopAtDialog(HWND window, LPARAM found) {
    wchar_t name[8];
    const int length = GetClassNameW(window, name, std::size(name));
    if (length == 0 || !IsWindowVisible(window) || lstrcmpW(name, L"#32770") != 0)
        return TRUE;
    *reinterpret_cast<HWND*>(found) = window;
    return FALSE;
}

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

/// Templates have a row every so many dialog units.
constexpr int kRowHeight = 14;

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

HWND FindOpenDialog() {
    HWND found = nullptr;
    EnumThreadWindows(GetCurrentThreadId(), StopAtDialog, reinterpret_cast<LPARAM>(&found));
    return found;
}

void AskAgain(HWND dialog, HWND edit) {
    SendMessageW(dialog, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(edit), TRUE);
    SendMessageW(edit, EM_SETSEL, 0, -1);
}

void RejectInput(HWND dialog, HWND edit, const wchar_t* reason) {
    if (!ShowNotedErrors())
        MessageBoxW(dialog, reason, L"Quilla Tarn Error", MB_ICONERROR);
    AskAgain(dialog, edit);
}

bool ConfirmEmptyPassword(HWND dialog) {
    return MessageBoxW(
               dialog,
               L"The password is empty. Whoever has the key file can open the volume.\n\nUse an empty "
               L"password?",
               L"Quilla Tarn", MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) == IDYES;
}

void InsertDialogRow(HWND dialog, int top) {
    RECT row{0, top, 0, kRowHeight};
    MapDialogRect(dialog, &row);
    const auto pixels = static_cast<int>(row.bottom);
    for (HWND child = GetWindow(dialog, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        RECT place;
        GetWindowRect(child, &place);
        MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&place), 2);
        if (place.top >= row.top && (GetWindowLongW(child, GWL_STYLE) & WS_VISIBLE) != 0)
            SetWindowPos(child, nullptr, place.left, place.top + pixels, 0, 0,
                         SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    RECT place;
    GetWindowRect(dialog, &place);
    SetWindowPos(dialog, nullptr, place.left, place.top - pixels / 2, place.right - place.left,
                 place.bottom - place.top + pixels, SWP_NOZORDER | SWP_NOACTIVATE);
}

void FitDialogToDesktop(HWND dialog, int units, std::span<const ControlLayout> controls) {
    // One that is shared and stays: where dialogs show an icon it is to be the program's.
    const HICON icon = LoadIconW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_PROGRAM));
    SendMessageW(dialog, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(icon));
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

} // namespace quilla
