#pragma once

#include <string>
#include <string_view>
#include <windows.h>

namespace quilla::test {

/// The text of a window or control, asked of itself: GetWindowTextW does not reach the controls of other
/// processes. A thread that was busy for long counts as hung to the system, and is asked all the same.
inline std::wstring TextOf(HWND window) {
    std::wstring text(2048, L'\0');
    DWORD_PTR length = 0;
    SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()), SMTO_NORMAL,
                        5000, &length);
    text.resize(length);
    return text;
}

inline DWORD ProcessOf(HWND window) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    return process;
}

/// The text of every message box is the static control of this id; other dialogs have none.
inline constexpr int kMessageTextId = 0xFFFF;

/// A message box that is on the screen, of a process or of any (0); null without one.
inline HWND FindMessageBox(DWORD process = 0) {
    HWND box = nullptr;
    do
        box = FindWindowExW(nullptr, box, L"#32770", nullptr);
    while (box && !(IsWindowVisible(box) && GetDlgItem(box, kMessageTextId) &&
                    (process == 0 || ProcessOf(box) == process)));
    return box;
}

} // namespace quilla::test
