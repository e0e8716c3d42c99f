#pragma once

#include "tests/support/window_text.h"
#include "tests/toolkit/recorder.h"
#include "toolkit/application.h"
#include "toolkit/window.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>
#include <windows.h>

/// Real windows on a real message loop for the tests of the toolkit.
namespace quilla::test {

/// A step of a script: done once the loop is idle and the condition holds.
struct Step {
    std::function<bool()> condition;
    std::function<void()> action;
};

/// The application of a test. While a loop runs, a script can act like a user: its next step is taken when
/// the queue is empty. A script that gets stuck fails the test and ends the loop.
class TestApplication : public BApplication {
  public:
    static constexpr int kStuck = -99;

    TestApplication() = default;
    ~TestApplication() {
        if (timer_)
            KillTimer(nullptr, timer_);
    }
    TestApplication(const TestApplication&) = delete;
    TestApplication& operator=(const TestApplication&) = delete;

    void Play(std::vector<Step> steps) {
        steps_ = std::move(steps);
        next_ = 0;
        deadline_ = std::chrono::steady_clock::now() + kLimit;
        // The loop waits after being idle; a tick lets it look at the condition again.
        if (!timer_)
            timer_ = SetTimer(nullptr, 0, 10, nullptr);
    }

    void OnIdle() override {
        if (next_ == steps_.size())
            return;
        if (steps_[next_].condition()) {
            const auto action = steps_[next_++].action;
            action();
        } else if (std::chrono::steady_clock::now() > deadline_) {
            ADD_FAILURE() << "script stuck at step " << next_;
            next_ = steps_.size();
            PostQuitMessage(kStuck);
        }
    }

    bool PlayedToTheEnd() const { return next_ == steps_.size(); }

  private:
    static constexpr std::chrono::seconds kLimit{10};

    std::vector<Step> steps_;
    std::size_t next_ = 0;
    std::chrono::steady_clock::time_point deadline_;
    UINT_PTR timer_ = 0;
};

/// A top-level window of the toolkit.
class Frame : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override {
        BWindow::GetCreateDefaults(windowClass, creation);
        creation.style = WS_OVERLAPPEDWINDOW | WS_VISIBLE;
        creation.x = creation.y = 20;
        creation.cx = 400;
        creation.cy = 300;
    }
};

/// Ends the windows of an object that a test leaves behind.
template <typename Window>
class Owned : public Window {
  public:
    using Window::Window;
    ~Owned() {
        if (this->hwnd)
            DestroyWindow(this->hwnd);
    }
};

class ToolkitTest : public ::testing::Test {
  protected:
    template <typename Condition>
    bool PumpUntil(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (;;) {
            application.PumpPending();
            if (condition())
                return true;
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
        }
    }

    /// Makes a window the active one, as a click of the user would.
    ::testing::AssertionResult Activate(HWND window) {
        SetForegroundWindow(window);
        const bool active =
            PumpUntil([&] { return GetForegroundWindow() == window && GetActiveWindow() == window; });
        return active ? ::testing::AssertionSuccess()
                      : ::testing::AssertionFailure() << "window not activated";
    }

    /// What recorders have written down since the last call.
    Log Take() { return std::exchange(log, {}); }

    TestApplication application;
    Log log;
};

/// The place of a window, in its parent if it is a child.
inline RECT PlaceOf(HWND window) {
    RECT place = {};
    GetWindowRect(window, &place);
    MapWindowPoints(nullptr, GetAncestor(window, GA_PARENT), reinterpret_cast<POINT*>(&place), 2);
    return place;
}

} // namespace quilla::test

inline bool operator==(const RECT& one, const RECT& other) {
    return EqualRect(&one, &other) != FALSE;
}
