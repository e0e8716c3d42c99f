#pragma once

#include "tests/support/window_text.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <windows.h>

/// Reads and answers the real message boxes of this process while a test runs.
namespace quilla::test {

/// One message box that was on the screen.
struct SeenBox {
    std::wstring caption;
    std::wstring text;
    bool errorIcon = false;
    HWND owner = nullptr;
};

/// While it lives, a thread looks for message boxes, records each and presses a button of it: the one with
/// the given id, or the first one if it has none. Dialogs that are no message boxes are left alone. One lives
/// at a time: two would take each other's boxes.
class MessageBoxWatcher {
  public:
    explicit MessageBoxWatcher(int answer = 0) : answer_(answer), thread_([this] { Run(); }) {
        EXPECT_EQ(++living_, 1);
    }
    ~MessageBoxWatcher() {
        ending_ = true;
        thread_.join();
        --living_;
    }
    MessageBoxWatcher(const MessageBoxWatcher&) = delete;
    MessageBoxWatcher& operator=(const MessageBoxWatcher&) = delete;

    /// The boxes since the last call, the oldest first.
    std::vector<SeenBox> Take() {
        const std::lock_guard guard(lock_);
        return std::exchange(boxes_, {});
    }

  private:
    void Run() {
        while (!ending_) {
            if (const HWND box = FindMessageBox(GetCurrentProcessId()))
                Answer(box);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    /// The icon is a static control beside the text; an error icon is the system's shared one.
    static bool HasErrorIcon(HWND box) {
        for (HWND child = GetWindow(box, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
            DWORD_PTR icon = 0;
            SendMessageTimeoutW(child, STM_GETICON, 0, 0, SMTO_NORMAL, 5000, &icon);
            if (icon != 0 && reinterpret_cast<HICON>(icon) == LoadIconW(nullptr, IDI_ERROR))
                return true;
        }
        return false;
    }

    void Answer(HWND box) {
        SeenBox seen{TextOf(box), TextOf(GetDlgItem(box, kMessageTextId)), HasErrorIcon(box),
                     GetWindow(box, GW_OWNER)};
        {
            const std::lock_guard guard(lock_); // before the button: who waits for the box may look at once
            boxes_.push_back(std::move(seen));
        }
        HWND button = answer_ ? GetDlgItem(box, answer_) : nullptr;
        if (!button)
            button = FindWindowExW(box, nullptr, L"Button", nullptr);
        PostMessageW(box, WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(button), BN_CLICKED),
                     reinterpret_cast<LPARAM>(button));
        while (IsWindow(box) && !ending_)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    static inline std::atomic<int> living_ = 0;
    const int answer_;
    std::atomic<bool> ending_ = false;
    std::mutex lock_;
    std::vector<SeenBox> boxes_;
    std::thread thread_; // last: it uses all the others
};

} // namespace quilla::test
