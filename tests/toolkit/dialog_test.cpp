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

    /// Runs the dialog over the frame; the action is done when it is on the screen and active.
    int Run(const std::function<void()>& action) {
        dialog.owner = frame.hwnd;
        application.Play({{[&] { return dialog.hwnd && GetForegroundWindow() == dialog.hwnd; },
                           [&] {
                               EXPECT_FALSE(IsWindowEnabled(frame.hwnd));
                               action();
                           }}});
        const int result = dialog.DoModal();
        EXPECT_TRUE(application.PlayedToTheEnd());
        EXPECT_FALSE(dialog.hwnd || dialog.modal);
        EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
        return result;
    }

    Owned<Recorder<Frame>> frame{log, "frame"};
    TestDialog dialog;
};

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

TEST_F(Dialog, EndsAtOnceWithoutALoopOrATemplate) {
    dialog.owner = frame.hwnd;
    ASSERT_NE(dialog.Create(), nullptr);
    SendMessageW(dialog.hwnd, WM_COMMAND, IDOK, 0);
    EXPECT_EQ(dialog.hwnd, nullptr);
    MSG quit;
    EXPECT_FALSE(PeekMessageW(&quit, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE)) << "nobody waits for that";

    const int kNoTemplate = 99;
    EXPECT_EQ(static_cast<BDialog&>(dialog).DoModal(frame.hwnd, MAKEINTRESOURCEW(kNoTemplate)), IDCANCEL);
    EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
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

} // namespace
} // namespace quilla
