// Dialogs from templates: creation, focus, keyboard, modal loops and their results.

#include "toolkit/dialog.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/edit.h"

#include <functional>

namespace quilla {
namespace {

using test::DialogTemplate;
using test::Frame;
using test::Owned;

constexpr int kFirstEdit = 10;
constexpr int kSecondEdit = 11;
constexpr int kCheckBox = 12;
constexpr int kResourceDialog = 100;
constexpr RECT kPlace = {4, 4, 60, 16};

/// A dialog with two edits, a check box and OK and Cancel buttons.
DialogTemplate MakeTemplate(DWORD style = WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU | DS_MODALFRAME) {
    DialogTemplate made(L"Dialog", 120, 90, style);
    made.Add(kFirstEdit, L"EDIT", L"", {4, 4, 60, 16}, WS_TABSTOP | WS_BORDER)
        .Add(kSecondEdit, L"EDIT", L"", {4, 20, 60, 32}, WS_TABSTOP | WS_BORDER)
        .Add(kCheckBox, L"BUTTON", L"&Check", {4, 36, 60, 48}, WS_TABSTOP | BS_AUTOCHECKBOX)
        .Add(IDOK, L"BUTTON", L"OK", {4, 60, 40, 74}, WS_TABSTOP | BS_DEFPUSHBUTTON)
        .Add(IDCANCEL, L"BUTTON", L"Cancel", {44, 60, 80, 74}, WS_TABSTOP);
    return made;
}

class TestDialog : public BDialog {
  public:
    ~TestDialog() {
        if (hwnd)
            DestroyWindow(hwnd);
    }
    void GetDialogDefaults(DialogParams& params) override {
        BDialog::GetDialogDefaults(params);
        params.parent = owner;
        params.inMemory = layout.Get();
    }
    void Attach(HWND handle) override {
        BDialog::Attach(handle);
        ++attached;
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
    void OnUpdateCommand(BCommandState& state) override {
        if (state.id == disabledId)
            state.Enable(false);
        BDialog::OnUpdateCommand(state);
    }

    DialogTemplate layout = MakeTemplate();
    HWND owner = nullptr;
    BEdit first;
    BEdit second;
    int attached = 0;
    int disabledId = -1;
    std::function<void()> onAttach;
    std::function<void(int)> onCommand;
};

class Dialog : public test::ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_TRUE(Activate(frame.hwnd));
        dialog.owner = frame.hwnd;
    }

    bool DialogIsReady() const { return dialog.hwnd && GetForegroundWindow() == dialog.hwnd; }

    /// Runs the dialog; the action is done when it is on the screen and active.
    int RunAnd(std::function<void()> action) {
        application.Play({{[this] { return DialogIsReady(); }, std::move(action)}});
        const int result = dialog.DoModal();
        EXPECT_TRUE(application.PlayedToTheEnd());
        EXPECT_EQ(dialog.hwnd, nullptr);
        EXPECT_FALSE(dialog.modal);
        return result;
    }

    Owned<Frame> frame;
    TestDialog dialog;
};

TEST_F(Dialog, ModalResults) {
    EXPECT_EQ(RunAnd([&] { PostMessageW(dialog.hwnd, WM_SYSCOMMAND, SC_CLOSE, 0); }), 2) << "the close box";
    EXPECT_EQ(RunAnd([&] { test::PressKeys({VK_ESCAPE}); }), 2);
    EXPECT_EQ(RunAnd([&] { test::PressKeys({VK_RETURN}); }), 1);
    EXPECT_EQ(RunAnd([&] { test::PressKeys({VK_MENU, VK_F4}); }), 2);
    EXPECT_EQ(RunAnd([&] { SendMessageW(GetDlgItem(dialog.hwnd, IDOK), BM_CLICK, 0, 0); }), 1);
    EXPECT_EQ(RunAnd([&] { dialog.EndDialog(1234); }), 1234);
    EXPECT_EQ(RunAnd([&] { dialog.EndDialog(-5); }), -5);
    EXPECT_EQ(dialog.attached, 7) << "the same object each time";
}

TEST_F(Dialog, ParentIsDisabledWhileModalAndActiveAfterwards) {
    const auto checkInside = [&] {
        EXPECT_TRUE(dialog.modal);
        EXPECT_FALSE(IsWindowEnabled(frame.hwnd));
        EXPECT_EQ(GetParent(dialog.hwnd), frame.hwnd);
        EXPECT_EQ(dialog.GetTopLevelObject(), &frame);
        dialog.EndDialog(IDOK);
        EXPECT_NE(dialog.hwnd, nullptr) << "destroyed by the loop's end, not before";
    };
    EXPECT_EQ(RunAnd(checkInside), IDOK);
    EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
    EXPECT_EQ(GetActiveWindow(), frame.hwnd);
}

TEST_F(Dialog, FocusIsPutOnTheFirstTabStop) {
    RunAnd([&] {
        EXPECT_EQ(GetFocus(), dialog.first.hwnd);
        dialog.EndDialog(0);
    });
}

TEST_F(Dialog, FocusThatWasSetWhileAttachingStays) {
    dialog.onAttach = [&] { SetFocus(dialog.second.hwnd); };
    RunAnd([&] {
        EXPECT_EQ(GetFocus(), dialog.second.hwnd);
        dialog.EndDialog(0);
    });
}

TEST_F(Dialog, TypedTextAndTabsReachTheControls) {
    application.Play(
        {{[&] { return DialogIsReady(); }, [] { test::PressKeys({'A'}); }},
         {[&] { return test::TextOf(dialog.first.hwnd) == L"a"; }, [] { test::PressKeys({VK_TAB}); }},
         {[&] { return GetFocus() == dialog.second.hwnd; },
          [] {
              test::PressKeys({VK_SHIFT, VK_TAB});
          }},
         {[&] { return GetFocus() == dialog.first.hwnd; },
          [] {
              test::PressKeys({VK_MENU, 'C'});
          }},
         {[&] { return IsDlgButtonChecked(dialog.hwnd, kCheckBox) == BST_CHECKED; },
          [] { test::PressKeys({VK_ESCAPE}); }}});
    EXPECT_EQ(dialog.DoModal(), IDCANCEL);
    EXPECT_TRUE(application.PlayedToTheEnd());
}

TEST_F(Dialog, FocusSurvivesLosingTheActivation) {
    Owned<Frame> other;
    ASSERT_NE(other.Create(), nullptr);
    application.Play(
        {{[&] { return DialogIsReady(); },
          [&] {
              SetFocus(dialog.second.hwnd);
              SetForegroundWindow(other.hwnd);
          }},
         {[&] { return GetActiveWindow() == other.hwnd; }, [&] { SetForegroundWindow(dialog.hwnd); }},
         {[&] { return GetActiveWindow() == dialog.hwnd; },
          [&] {
              EXPECT_EQ(GetFocus(), dialog.second.hwnd);
              dialog.EndDialog(0);
          }}});
    dialog.DoModal();
    EXPECT_TRUE(application.PlayedToTheEnd());
}

TEST_F(Dialog, FocusSurvivesTheFirstActivation) {
    // It comes late when the dialog has been opened in the background.
    for (BEdit* expected : {&dialog.first, &dialog.second}) {
        if (expected == &dialog.second)
            dialog.onAttach = [&] { SetFocus(dialog.second.hwnd); };
        RunAnd([&] {
            SendMessageW(dialog.hwnd, WM_ACTIVATE, MAKEWPARAM(WA_ACTIVE, 0), 0);
            EXPECT_EQ(GetFocus(), expected->hwnd);
            dialog.EndDialog(0);
        });
    }
}

TEST_F(Dialog, CommandStatesAreSetBeforeItShows) {
    dialog.disabledId = kSecondEdit;
    RunAnd([&] {
        EXPECT_FALSE(IsWindowEnabled(dialog.second.hwnd));
        EXPECT_TRUE(IsWindowEnabled(dialog.first.hwnd));
        dialog.EndDialog(0);
    });
}

TEST_F(Dialog, DisabledOkDoesNotEndIt) {
    dialog.disabledId = IDOK;
    EXPECT_EQ(RunAnd([&] {
                  SendMessageW(dialog.hwnd, WM_COMMAND, IDOK, 0);
                  SendMessageW(dialog.hwnd, WM_COMMAND, IDCANCEL, 0);
              }),
              IDCANCEL);
}

TEST_F(Dialog, MissingTemplateCountsAsCancelled) {
    class Watching : public Frame {
      public:
        LRESULT OnMessage(BMessage& message) override {
            enableChanges += message.message == WM_ENABLE;
            return Frame::OnMessage(message);
        }
        int enableChanges = 0;
    };
    Owned<Watching> parent;
    ASSERT_NE(parent.Create(), nullptr);
    BDialog missing;
    EXPECT_EQ(missing.DoModal(parent.hwnd, MAKEINTRESOURCEW(9999)), 2);
    EXPECT_EQ(missing.DoModal(parent.hwnd, L"NoSuchDialog"), 2);
    EXPECT_EQ(missing.DoModal(), 2) << "neither name nor memory";
    EXPECT_EQ(missing.Create(parent.hwnd, MAKEINTRESOURCEW(9999)), nullptr);
    EXPECT_EQ(parent.enableChanges, 0);
    EXPECT_EQ(missing.hwnd, nullptr);
    EXPECT_FALSE(missing.modal);
}

TEST_F(Dialog, TemplateFromTheResources) {
    class FromResource : public BDialog {
      public:
        void Attach(HWND handle) override {
            BDialog::Attach(handle);
            caption = test::TextOf(handle);
            field.Attach(GetDlgItem(handle, kFirstEdit));
        }
        std::wstring caption;
        BWindow field;
    } named;
    // Its custom control is of the toolkit's class, which nobody has registered yet.
    frame.Close();
    ASSERT_TRUE(UnregisterClassW(kWindowClass, GetModuleHandleW(nullptr)));
    application.Play({{[&] { return named.hwnd != nullptr; },
                       [&] {
                           EXPECT_NE(named.field.hwnd, nullptr);
                           named.EndDialog(9);
                       }}});
    EXPECT_EQ(named.DoModal(nullptr, MAKEINTRESOURCEW(kResourceDialog)), 9);
    EXPECT_EQ(named.caption, L"From the resources");

    const HWND modeless = named.Create(nullptr, MAKEINTRESOURCEW(kResourceDialog));
    EXPECT_NE(modeless, nullptr);
    EXPECT_EQ(named.hwnd, modeless);
    named.Close();
    EXPECT_FALSE(IsWindow(modeless));
}

TEST_F(Dialog, CaptureIsCancelledBeforeTheLoop) {
    class Capturing : public Frame {
      public:
        LRESULT OnMessage(BMessage& message) override {
            cancelled += message.message == WM_CANCELMODE;
            return Frame::OnMessage(message);
        }
        int cancelled = 0;
    };
    Owned<Capturing> holder;
    ASSERT_NE(holder.Create(), nullptr);
    dialog.onAttach = [&] {
        SetCapture(holder.hwnd);
        holder.cancelled = 0;
    };
    RunAnd([&] {
        EXPECT_EQ(holder.cancelled, 1);
        EXPECT_EQ(GetCapture(), nullptr);
        dialog.EndDialog(0);
    });
}

TEST_F(Dialog, NestedDialogs) {
    TestDialog inner;
    inner.owner = nullptr;
    int innerResult = 0;
    dialog.onCommand = [&](int id) {
        if (id != kCheckBox)
            return;
        inner.owner = dialog.hwnd;
        innerResult = inner.DoModal();
        EXPECT_TRUE(IsWindowEnabled(dialog.hwnd));
        EXPECT_TRUE(dialog.modal);
        dialog.EndDialog(5);
    };
    application.Play(
        {{[&] { return DialogIsReady(); }, [&] { PostMessageW(dialog.hwnd, WM_COMMAND, kCheckBox, 0); }},
         {[&] { return inner.hwnd && GetForegroundWindow() == inner.hwnd; },
          [&] {
              EXPECT_FALSE(IsWindowEnabled(dialog.hwnd));
              EXPECT_FALSE(IsWindowEnabled(frame.hwnd));
              inner.EndDialog(7);
          }}});
    EXPECT_EQ(dialog.DoModal(), 5);
    EXPECT_EQ(innerResult, 7);
    EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
    MSG message;
    EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE));
}

TEST_F(Dialog, ModelessOkDestroysItAndPostsNoQuit) {
    for (const int id : {IDOK, IDCANCEL}) {
        const HWND handle = dialog.Create();
        ASSERT_NE(handle, nullptr);
        EXPECT_FALSE(dialog.modal);
        EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
        SendMessageW(handle, WM_COMMAND, static_cast<WPARAM>(id), 0);
        EXPECT_FALSE(IsWindow(handle));
        EXPECT_EQ(dialog.hwnd, nullptr);
        EXPECT_EQ(dialog.first.hwnd, nullptr) << "its controls are unbound too";
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
            EXPECT_NE(message.message, static_cast<UINT>(WM_QUIT));
    }
    ASSERT_NE(dialog.Create(), nullptr);
    ASSERT_TRUE(Activate(dialog.hwnd));
    test::PressKeys({VK_ESCAPE});
    EXPECT_TRUE(PumpUntil([&] { return dialog.hwnd == nullptr; }))
        << "modeless ones have the keyboard interface too";
}

TEST_F(Dialog, ParentComesBackWhenADialogVanishesUnderItsLoop) {
    EXPECT_EQ(RunAnd([&] {
                  DestroyWindow(dialog.hwnd);
                  PostQuitMessage(3);
              }),
              3);
    EXPECT_TRUE(IsWindowEnabled(frame.hwnd));
}

} // namespace
} // namespace quilla
