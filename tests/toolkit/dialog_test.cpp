// The message loop, and dialogs from templates: focus, keyboard, modal loops and their results.

#include "toolkit/dialog.h"

#include "tests/toolkit/toolkit_fixture.h"

namespace quilla {
namespace {

using namespace test;

constexpr int kDialog = 100;
constexpr int kFirstEdit = 10;
constexpr int kSecondEdit = 11;

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
        if (onAttach)
            onAttach();
    }

    HWND owner = nullptr;
    std::function<void()> onAttach;
};

class Dialog : public ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_TRUE(Activate(frame.hwnd));
    }

    /// Runs a dialog over an owner; the action is done when it is on the screen and active.
    int Run(TestDialog& shown, HWND owner, const std::function<void()>& action) {
        shown.owner = owner;
        application.Play({{[&] { return shown.hwnd && GetForegroundWindow() == shown.hwnd; },
                           [&] {
                               EXPECT_FALSE(IsWindowEnabled(owner));
                               action();
                           }}});
        const int result = shown.DoModal();
        EXPECT_TRUE(application.PlayedToTheEnd());
        EXPECT_FALSE(shown.hwnd || shown.modal);
        EXPECT_TRUE(IsWindowEnabled(owner));
        return result;
    }
    int Run(const std::function<void()>& action) { return Run(dialog, frame.hwnd, action); }

    Owned<Recorder<Frame>> frame{log, "frame"};
    TestDialog dialog;
};

TEST_F(Dialog, LoopIsIdleOnceEachTimeTheQueueRunsDry) {
    frame.loggedMessage = WM_APP;
    application.PumpPending();
    application.idleCount = 0;
    for (int i = 0; i < 50; ++i)
        PostMessageW(frame.hwnd, WM_APP, 0, 0);
    application.Play({{[&] { return log.size() == 50; },
                       [&] {
                           EXPECT_EQ(application.idleCount, 1);
                           PostQuitMessage(3);
                       }}});
    EXPECT_EQ(application.Run(), 3);
}

TEST_F(Dialog, EndsWithTheResultOfTheUsersChoice) {
    EXPECT_EQ(Run([&] { PostMessageW(dialog.hwnd, WM_SYSCOMMAND, SC_CLOSE, 0); }), 2) << "the close box";
    EXPECT_EQ(GetActiveWindow(), frame.hwnd);
    EXPECT_EQ(Run([] { PressKeys({VK_ESCAPE}); }), 2);
    EXPECT_EQ(Run([] { PressKeys({VK_RETURN}); }), 1);
    EXPECT_EQ(Run([&] { dialog.EndDialog(-5); }), -5);
}

TEST_F(Dialog, FocusIsOnTheFirstTabStopOrWhereItWasSet) {
    for (const int expected : {kFirstEdit, kSecondEdit}) {
        if (expected == kSecondEdit)
            dialog.onAttach = [&] { SetFocus(GetDlgItem(dialog.hwnd, kSecondEdit)); };
        Run([&] {
            EXPECT_EQ(GetDlgCtrlID(GetFocus()), expected);
            // The first activation comes late when the dialog has been opened in the background.
            SendMessageW(dialog.hwnd, WM_ACTIVATE, MAKEWPARAM(WA_ACTIVE, 0), 0);
            EXPECT_EQ(GetDlgCtrlID(GetFocus()), expected);
            dialog.EndDialog(0);
        });
    }
}

TEST_F(Dialog, CaptureIsCancelledBeforeTheLoop) {
    Owned<Recorder<Frame>> holder(log, "holder");
    ASSERT_NE(holder.Create(), nullptr);
    holder.loggedMessage = WM_CANCELMODE;
    dialog.onAttach = [&] { SetCapture(holder.hwnd); };
    Run([&] {
        EXPECT_EQ(log, (Log{"holder message"}));
        dialog.EndDialog(0);
    });
}

TEST_F(Dialog, NestedOnesEndFromTheInnermost) {
    EXPECT_EQ(Run([&] {
                  TestDialog inner;
                  EXPECT_EQ(Run(inner, dialog.hwnd, [&] { inner.EndDialog(7); }), 7);
                  EXPECT_FALSE(IsWindowEnabled(frame.hwnd));
                  dialog.EndDialog(5);
              }),
              5);
}

TEST_F(Dialog, ModelessOnesPostNoQuit) {
    frame.loggedMessage = WM_ENABLE;
    for (const WORD key : {WORD{VK_RETURN}, WORD{VK_ESCAPE}}) {
        dialog.owner = frame.hwnd;
        ASSERT_TRUE(Activate(static_cast<BDialog&>(dialog).Create()));
        PressKeys({key});
        EXPECT_TRUE(PumpUntil([&] { return dialog.hwnd == nullptr; }));
    }
    BDialog missing;
    EXPECT_EQ(missing.DoModal(frame.hwnd, MAKEINTRESOURCEW(9999)), 2) << "counts as cancelled";
    EXPECT_EQ(missing.DoModal(), 2) << "neither name nor memory";
    EXPECT_EQ(log, Log{}) << "the parent stays enabled";
    MSG message;
    EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE));
}

} // namespace
} // namespace quilla
