#pragma once

#include <functional>
#include <optional>
#include <utility>
#include <windows.h>

namespace quilla::test {

/// A real top-level window, never shown, whose messages a test answers; those without an answer are handled
/// as ever.
class MessageWindow {
  public:
    using Answer = std::function<std::optional<LRESULT>(UINT, WPARAM, LPARAM)>;

    explicit MessageWindow(Answer answer) : answer_(std::move(answer)) {
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        SetWindowLongPtrW(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Procedure));
    }
    ~MessageWindow() { DestroyWindow(hwnd); }
    MessageWindow(const MessageWindow&) = delete;
    MessageWindow& operator=(const MessageWindow&) = delete;

    const HWND hwnd =
        CreateWindowExW(0, L"STATIC", L"messages", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);

  private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        const auto& self = *reinterpret_cast<const MessageWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        const std::optional<LRESULT> result = self.answer_(message, wParam, lParam);
        return result ? *result : DefWindowProcW(window, message, wParam, lParam);
    }

    const Answer answer_;
};

} // namespace quilla::test
