#include "ui/strength_wait.h"

#include "platform/clock.h"
#include "platform/thread.h"
#include "platform/win32/handle.h"
#include "toolkit/application.h"
#include "ui/resource.h"
#include "ui/strength_tip.h"

#include <commctrl.h>
#include <span>

namespace quilla {

namespace {

constexpr DWORD kStepOfMark = 50; // milliseconds

/// What the thread works on. The key stays where the dialog has it.
struct Work {
    PasswordDigest& key;
    const KeyStrength& strength;
    Argon2Watch watch;
    Argon2Result result = Argon2Result::NoMemory;
    UniqueEvent done;
};

void RunWork(void* context) {
    Work& work = *static_cast<Work*>(context);
    work.result = StrengthenKey(work.key, work.strength, &work.watch);
    SetEvent(work.done.Get());
}

/// Takes a dialog's controls out of use, all but Cancel, and gives them back with the focus.
class RestingControls {
  public:
    explicit RestingControls(HWND dialog) : focus_(GetFocus()) {
        const HWND cancel = GetDlgItem(dialog, IDCANCEL);
        for (HWND child = GetWindow(dialog, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT))
            if (child != cancel && IsWindowEnabled(child) && count_ < std::size(enabled_))
                enabled_[count_++] = child;
        SetFocus(cancel ? cancel : dialog);
        for (const HWND child : std::span(enabled_, count_))
            EnableWindow(child, FALSE);
    }
    ~RestingControls() {
        for (const HWND child : std::span(enabled_, count_))
            EnableWindow(child, TRUE);
        SetFocus(focus_);
    }
    RestingControls(const RestingControls&) = delete;
    RestingControls& operator=(const RestingControls&) = delete;

  private:
    HWND focus_;
    HWND enabled_[32]{}; // more than any dialog has
    std::size_t count_ = 0;
};

/// The mark, in the place of the option's check box.
class ProgressMark {
  public:
    explicit ProgressMark(HWND dialog) : box_(GetDlgItem(dialog, IDC_STRENGTH)) {
        RECT place{};
        GetWindowRect(box_, &place);
        MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&place), 2);
        const int height = place.bottom - place.top;
        mark_ = CreateWindowExW(0, PROGRESS_CLASSW, L"", WS_CHILD | WS_VISIBLE, place.left,
                                place.top + height / 4, place.right - place.left, height / 2, dialog, nullptr,
                                GetModuleHandleW(nullptr), nullptr);
        wasVisible_ = (GetWindowLongW(box_, GWL_STYLE) & WS_VISIBLE) != 0;
        ShowWindow(box_, SW_HIDE);
    }
    ~ProgressMark() {
        DestroyWindow(mark_);
        if (wasVisible_)
            ShowWindow(box_, SW_SHOWNA);
    }
    ProgressMark(const ProgressMark&) = delete;
    ProgressMark& operator=(const ProgressMark&) = delete;

    void Show(unsigned percent) const { SendMessageW(mark_, PBM_SETPOS, percent, 0); }

  private:
    HWND box_;
    HWND mark_;
    bool wasVisible_;
};

/// Serves the thread's messages until the work is done. What would end a modal dialog ends the work instead.
void ServeMessages(Work& work, const ProgressMark& mark) {
    const HANDLE done = work.done.Get();
    while (MsgWaitForMultipleObjectsEx(1, &done, kStepOfMark, QS_ALLINPUT, 0) != WAIT_OBJECT_0) {
        mark.Show(work.watch.percentDone);
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT)
                work.watch.stop = true;
            else
                BApplication::Current()->ProcessMessage(message);
        }
    }
}

} // namespace

Argon2Result StrengthWait::Strengthen(PasswordDigest& key, const KeyStrength& strength) {
    Work work{.key = key,
              .strength = strength,
              .watch = {},
              .done = UniqueEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr))};
    Thread thread;
    const std::uint64_t begin = MonotonicMilliseconds();
    if (!work.done || !thread.Start(RunWork, &work))
        return StrengthenKey(key, strength);
    isRunning_ = true;
    {
        const RestingControls rest(dialog_);
        const ProgressMark mark(dialog_);
        ServeMessages(work, mark);
        thread.Join();
    }
    isRunning_ = false;
    if (work.result == Argon2Result::Done)
        StrengthTip::Remember(CostOf(strength), MonotonicMilliseconds() - begin);
    return work.result;
}

} // namespace quilla
