#include "ui/dialog_support.h"

#include "platform/error_box.h"

#include <iterator>

namespace quilla {

namespace {

BOOL CALLBACK StopAtDialog(HWND window, LPARAM found) {
    wchar_t name[8];
    const bool isOwn = GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId();
    const int length = isOwn ? GetClassNameW(window, name, std::size(name)) : 0;
    if (length == 0 || !IsWindowVisible(window) || lstrcmpW(name, L"#32770") != 0)
        return TRUE;
    *reinterpret_cast<HWND*>(found) = window;
    return FALSE;
}

/// Templates have a row every so many dialog units.
constexpr int kRowHeight = 14;

} // namespace

HWND FindOpenDialog() {
    HWND found = nullptr;
    EnumWindows(StopAtDialog, reinterpret_cast<LPARAM>(&found));
    return found;
}

void AskAgain(HWND dialog, HWND edit) {
    SendMessageW(dialog, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(edit), TRUE);
    SendMessageW(edit, EM_SETSEL, 0, -1);
}

void RejectInput(HWND dialog, HWND edit, const wchar_t* reason) {
    ShowNotedErrors(); // what led to it comes first
    if (reason != nullptr)
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

} // namespace quilla
