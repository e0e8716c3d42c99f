// The lock of the combo box against a user with keyboard and mouse.

#include "toolkit/combo_box.h"

#include "tests/toolkit/recorder.h"
#include "tests/toolkit/toolkit_fixture.h"

namespace quilla {
namespace {

using test::Frame;
using test::Log;
using test::Owned;
using test::Recorder;

class DropDownList : public Recorder<BComboBox> {
  public:
    using Recorder::Recorder;
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override {
        BComboBox::GetCreateDefaults(windowClass, creation);
        creation.style |= CBS_DROPDOWNLIST;
    }
};

class ComboBox : public test::ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_NE(combo.Create(frame.hwnd, nullptr, kId), nullptr);
        SetWindowPos(combo.hwnd, nullptr, 10, 10, 120, 150, SWP_NOZORDER);
        for (const wchar_t* text : {L"None", L"Twofish - 256", L"CAST - 128"})
            SendMessageW(combo.hwnd, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text));
        Select(1);
        ASSERT_TRUE(Activate(frame.hwnd));
        SetFocus(combo.hwnd);
    }

    void Select(int index) { SendMessageW(combo.hwnd, CB_SETCURSEL, static_cast<WPARAM>(index), 0); }
    int Selection() const { return static_cast<int>(SendMessageW(combo.hwnd, CB_GETCURSEL, 0, 0)); }
    bool IsDropped() const { return SendMessageW(combo.hwnd, CB_GETDROPPEDSTATE, 0, 0) != 0; }

    /// What the control itself has selected, and shows.
    int ShownSelection() const {
        return static_cast<int>(CallWindowProcW(combo.prevProc, combo.hwnd, CB_GETCURSEL, 0, 0));
    }

    /// Presses a key and waits until it has been let go.
    void Press(WORD key) {
        combo.loggedMessage = frame.loggedMessage = WM_KEYUP;
        log.clear();
        test::PressKeys({key});
        const auto released = [&] { return GetAsyncKeyState(key) >= 0 && !log.empty(); };
        EXPECT_TRUE(PumpUntil(released));
        application.PumpPending();
    }

    void DropDown() {
        SendMessageW(combo.hwnd, CB_SHOWDROPDOWN, TRUE, 0);
        ASSERT_TRUE(IsDropped());
    }

    void ClickEntry(int index) {
        COMBOBOXINFO info = {};
        info.cbSize = sizeof(info);
        ASSERT_TRUE(GetComboBoxInfo(combo.hwnd, &info));
        const auto height = static_cast<int>(SendMessageW(combo.hwnd, CB_GETITEMHEIGHT, 0, 0));
        const LPARAM at = test::PointParam(10, height * index + height / 2);
        SendMessageW(info.hwndList, WM_MOUSEMOVE, 0, at);
        SendMessageW(info.hwndList, WM_LBUTTONDOWN, MK_LBUTTON, at);
        SendMessageW(info.hwndList, WM_LBUTTONUP, 0, at);
        application.PumpPending();
    }

    static constexpr int kId = 6;
    Log log;
    Owned<Recorder<Frame>> frame{log, "frame"};
    DropDownList combo{log, "combo"};
};

TEST_F(ComboBox, UnlockedFollowsTheUser) {
    Press(VK_DOWN);
    EXPECT_EQ(Selection(), 2);
    DropDown();
    log.clear();
    ClickEntry(0);
    EXPECT_EQ(Selection(), 0);
    EXPECT_EQ(std::count(log.begin(), log.end(), "frame command 6/9"), 1) << "CBN_SELENDOK is routed on";
}

TEST_F(ComboBox, LockedKeepsItsSelectionAgainstArrowKeys) {
    combo.SetLocked(true);
    for (const WORD key : {WORD{VK_DOWN}, WORD{VK_UP}, WORD{VK_UP}, WORD{VK_END}, WORD{VK_HOME}, WORD{'N'}}) {
        Press(key);
        EXPECT_EQ(Selection(), 1);
        EXPECT_EQ(ShownSelection(), 1) << "key " << key;
    }
}

TEST_F(ComboBox, LockedListCanBeLookedAtButSnapsBack) {
    combo.SetLocked(true);
    DropDown();
    log.clear();
    ClickEntry(2);
    EXPECT_FALSE(IsDropped());
    EXPECT_EQ(Selection(), 1);
    EXPECT_EQ(ShownSelection(), 1);
    EXPECT_EQ(test::TextOf(combo.hwnd), L"Twofish - 256");
    EXPECT_EQ(std::count(log.begin(), log.end(), "frame command 6/9"), 0);

    for (const WORD end : {WORD{VK_RETURN}, WORD{VK_ESCAPE}}) {
        DropDown();
        Press(VK_DOWN);
        EXPECT_EQ(Selection(), 1);
        Press(end);
        EXPECT_FALSE(IsDropped());
        EXPECT_EQ(Selection(), 1);
        EXPECT_EQ(ShownSelection(), 1);
    }
}

TEST_F(ComboBox, LockedStillTakesASelectionOfTheProgram) {
    combo.SetLocked(true);
    Select(2);
    EXPECT_EQ(Selection(), 2);
    EXPECT_EQ(ShownSelection(), 2);
    DropDown();
    ClickEntry(0);
    EXPECT_EQ(ShownSelection(), 2);
    combo.SetLocked(false);
    Press(VK_UP);
    EXPECT_EQ(Selection(), 1);
}

TEST_F(ComboBox, LockedLooksLikeStaticText) {
    class Coloured : public Owned<Frame> {
      public:
        LRESULT OnMessage(BMessage& message) override {
            if (message.message >= WM_CTLCOLORMSGBOX && message.message <= WM_CTLCOLORSTATIC)
                return static_cast<LRESULT>(message.message);
            return Owned<Frame>::OnMessage(message);
        }
    } parent;
    ASSERT_NE(parent.Create(), nullptr);
    DropDownList inside(log, "inside");
    ASSERT_NE(inside.Create(parent.hwnd, nullptr, 1), nullptr);
    const auto ask = [&](UINT message) {
        const HDC context = GetDC(inside.hwnd);
        const LRESULT answer = SendMessageW(parent.hwnd, message, reinterpret_cast<WPARAM>(context),
                                            reinterpret_cast<LPARAM>(inside.hwnd));
        ReleaseDC(inside.hwnd, context);
        return static_cast<UINT>(answer);
    };
    EXPECT_EQ(ask(WM_CTLCOLOREDIT), static_cast<UINT>(WM_CTLCOLOREDIT));
    inside.SetLocked(true);
    EXPECT_EQ(ask(WM_CTLCOLOREDIT), static_cast<UINT>(WM_CTLCOLORSTATIC));
    EXPECT_EQ(ask(WM_CTLCOLORLISTBOX), static_cast<UINT>(WM_CTLCOLORSTATIC));
    EXPECT_EQ(ask(WM_CTLCOLORBTN), static_cast<UINT>(WM_CTLCOLORBTN));
    inside.SetLocked(false);
    EXPECT_EQ(ask(WM_CTLCOLORLISTBOX), static_cast<UINT>(WM_CTLCOLORLISTBOX));
}

} // namespace
} // namespace quilla
