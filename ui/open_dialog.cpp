#include "ui/open_dialog.h"

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

} // namespace

HWND FindOpenDialog() {
    HWND found = nullptr;
    EnumThreadWindows(GetCurrentThreadId(), StopAtDialog, reinterpret_cast<LPARAM>(&found));
    return found;
}

} // namespace quilla
