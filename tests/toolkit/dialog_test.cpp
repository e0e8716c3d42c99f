// The message loop, and dialogs from templates: focus, keyboard, modal loops and their results.

#include "toolkit/dialog.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/edit.h"

namespace quilla {
namespace {

using namespace test;

constexpr int kDialog = 100;
constexpr int kFirstEdit = 10;
constexpr int kSecondEdit = 11;
constexpr int kCheckBox = 12;

/// The dialog of the resources, handed over in memory.
class TestDialog : public Owned<BDialog> {
  public:
    void GetDialogDefaults(DialogParams& params) override {
        BDialog::GetDialogDefaults(params);
        const HRSRC found = FindResourceW(nullptr, MAKEINTRESOURCEW(kDialog), RT_DIALOG);
        params.inMemory = static_cast<const DLGTEMPLATE*>(LockResource(LoadResource(nullptr, found)));
        params.parent = owner;
    }
    void Attach(HWND handle) override {
        BDialog::Attach(handle);
        first.Attach(GetDlgItem(handle, kFirstEdit));
        second.Attach(GetDlgItem(handle, kSecondEdit));
        if (onAttach)
            onAttach();
    }
    LRESULT OnCommand(int id, int code, HWND control) override {
        if (onCommand)
            onCommand(id);
        return BDialog::OnCommand(id, code, control);
    }

    HWND owner = nullptr;
    BEdit first;
    BEdit second;
    std::function<void()> onAttach;
    std::function<void(int)> onCommand;
};

bool IsQuitPosted() {
    MSG message;
    return PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE) != FALSE;
}

class Dialog : public ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_TRUE(Activate(frame.hwnd));
        dialog.owner = frame.hwnd;
    }

    static Step WhenActive(const TestDialog& dialog, std::function<void()> action) {
        return {[&dialog] { return dialog.hwnd && GetForegroundWindow() == dialog.hwnd; }, std::move(action)};
    }

    /// Runs the dialog; the action is done when it is on the screen and active.
    int RunAnd(const std::function<void()>& action) {
        application.Play({WhenActive(dialog, [&] {
            EXPECT_TRUE(dialog.modal);
            EXPECT_FALSE(IsWindowEnabled(frame.hwnd));
            action();
        })});
        const int result = dialog.DoModal();
        EXPECT_TRUE(application.PlayedToTheEnd());
        EXPECT_FALSE(dialog.hwnd || dialog.modal);
        EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
        return result;
    }

    Owned<Recorder<Frame>> frame{log, "frame"};
    TestDialog dialog;
};

TEST_F(Dialog, LoopIsIdleOnceEachTimeTheQueueRunsDry) {
    frame.loggedMessage = WM_APP;
    const auto post = [&](int count) {
        for (int i = 0; i < count; ++i)
            PostMessageW(frame.hwnd, WM_APP, 0, 0);
    };
    const auto whenSeen = [&](std::size_t count) { return [this, count] { return log.size() == count; }; };
    application.PumpPending();
    application.idleCount = 0;
    post(50);
    application.Play({{whenSeen(50),
                       [&] {
                           EXPECT_EQ(application.idleCount, 1);
                           post(1);
                       }},
                      {whenSeen(51), [&] {
                           EXPECT_EQ(application.idleCount, 2);
                           PostQuitMessage(3);
                       }}});
    EXPECT_EQ(application.Run(), 3);
}

TEST_F(Dialog, EndsWithTheResultOfTheUsersChoice) {
    EXPECT_EQ(RunAnd([&] { PostMessageW(dialog.hwnd, WM_SYSCOMMAND, SC_CLOSE, 0); }), 2) << "the close box";
    EXPECT_EQ(GetActiveWindow(), frame.hwnd);
    EXPECT_EQ(RunAnd([&] { PressKeys({VK_ESCAPE}); }), 2);
    EXPECT_EQ(RunAnd([&] { PressKeys({VK_RETURN}); }), 1);
    EXPECT_EQ(RunAnd([&] { SendMessageW(GetDlgItem(dialog.hwnd, IDOK), BM_CLICK, 0, 0); }), 1);
    EXPECT_EQ(RunAnd([&] { dialog.EndDialog(-5); }), -5);
    EXPECT_EQ(RunAnd([&] {
                  DestroyWindow(dialog.hwnd);
                  PostQuitMessage(3);
              }),
              3)
        << "vanished under its loop";
}

TEST_F(Dialog, FocusIsOnTheFirstTabStopOrWhereItWasSet) {
    for (BEdit* expected : {&dialog.first, &dialog.second}) {
        if (expected == &dialog.second)
            dialog.onAttach = [&] { SetFocus(dialog.second.hwnd); };
        RunAnd([&] {
            EXPECT_EQ(GetFocus(), expected->hwnd);
            // The first activation comes late when the dialog has been opened in the background.
            SendMessageW(dialog.hwnd, WM_ACTIVATE, MAKEWPARAM(WA_ACTIVE, 0), 0);
            EXPECT_EQ(GetFocus(), expected->hwnd);
            dialog.EndDialog(0);
        });
    }
}

TEST_F(Dialog, MissingTemplateCountsAsCancelled) {
    frame.loggedMessage = WM_ENABLE;
    BDialog missing;
    EXPECT_EQ(missing.DoModal(frame.hwnd, MAKEINTRESOURCEW(9999)), 2);
    EXPECT_EQ(missing.DoModal(), 2) << "neither name nor memory";
    EXPECT_EQ(log, Log{}) << "the parent stays enabled";
    EXPECT_FALSE(missing.hwnd || missing.modal);
}

TEST_F(Dialog, CaptureIsCancelledBeforeTheLoop) {
    Owned<Recorder<Frame>> holder(log, "holder");
    ASSERT_NE(holder.Create(), nullptr);
    holder.loggedMessage = WM_CANCELMODE;
    dialog.onAttach = [&] {
        SetCapture(holder.hwnd);
        Take();
    };
    RunAnd([&] {
        EXPECT_EQ(Take(), (Log{"holder message"}));
        EXPECT_EQ(GetCapture(), nullptr);
        dialog.EndDialog(0);
    });
}

TEST_F(Dialog, NestedOnesEndFromTheInnermost) {
    TestDialog inner;
    int innerResult = 0;
    dialog.onCommand = [&](int id) {
        if (id != kCheckBox)
            return;
        inner.owner = dialog.hwnd;
        innerResult = inner.DoModal();
        EXPECT_TRUE(IsWindowEnabled(dialog.hwnd) && dialog.modal);
        dialog.EndDialog(5);
    };
    application.Play({WhenActive(dialog, [&] { PostMessageW(dialog.hwnd, WM_COMMAND, kCheckBox, 0); }),
                      WhenActive(inner, [&] {
                          EXPECT_FALSE(IsWindowEnabled(dialog.hwnd) || IsWindowEnabled(frame.hwnd));
                          inner.EndDialog(7);
                      })});
    EXPECT_EQ(dialog.DoModal(), 5);
    EXPECT_EQ(innerResult, 7);
    EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
    EXPECT_FALSE(IsQuitPosted());
}

TEST_F(Dialog, ModelessOkDestroysItAndPostsNoQuit) {
    for (const WPARAM id : {IDOK, IDCANCEL}) {
        const HWND handle = dialog.Create();
        ASSERT_NE(handle, nullptr);
        EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
        SendMessageW(handle, WM_COMMAND, id, 0);
        EXPECT_FALSE(IsWindow(handle) || dialog.hwnd);
        EXPECT_EQ(dialog.first.hwnd, nullptr) << "its controls are unbound too";
        EXPECT_FALSE(IsQuitPosted());
    }
    ASSERT_NE(dialog.Create(), nullptr);
    ASSERT_TRUE(Activate(dialog.hwnd));
    PressKeys({VK_ESCAPE});
    EXPECT_TRUE(PumpUntil([&] { return dialog.hwnd == nullptr; })) << "it has the keyboard interface, too";
}

} // namespace
} // namespace quilla
