// The lock of the combo box against a user with keyboard and mouse.

#include "toolkit/combo_box.h"

#include "tests/toolkit/toolkit_fixture.h"

namespace quilla {
namespace {

using namespace test;

class DropDownList : public BComboBox {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override {
        BComboBox::GetCreateDefaults(windowClass, creation);
        creation.style |= CBS_DROPDOWNLIST;
    }
};

class ComboBox : public ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_NE(combo.Create(frame.hwnd, nullptr, 6), nullptr);
        SetWindowPos(combo.hwnd, nullptr, 10, 10, 120, 150, SWP_NOZORDER);
        for (const wchar_t* text : {L"None", L"Twofish - 256", L"CAST - 128"})
            SendMessageW(combo.hwnd, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text));
        Select(1);
        combo.SetLocked(true);
    }

    void Select(int index) { SendMessageW(combo.hwnd, CB_SETCURSEL, static_cast<WPARAM>(index), 0); }
    void Press(WPARAM key) { SendMessageW(combo.hwnd, WM_KEYDOWN, key, 1); }

    /// Drops the list down, moves in it and ends the choice.
    void Choose(WPARAM move, WPARAM end = VK_RETURN) {
        SendMessageW(combo.hwnd, CB_SHOWDROPDOWN, TRUE, 0);
        Press(move);
        Press(end);
    }

    /// What the combo box reports and what it shows.
    void ExpectSelection(int index) const {
        EXPECT_EQ(SendMessageW(combo.hwnd, CB_GETCURSEL, 0, 0), index);
        EXPECT_EQ(CallWindowProcW(combo.prevProc, combo.hwnd, CB_GETCURSEL, 0, 0), index);
    }

    Owned<Recorder<Frame>> frame{log, "frame"};
    DropDownList combo;
};

TEST_F(ComboBox, LockedKeepsItsSelectionAgainstTheUser) {
    for (const WPARAM key : {VK_DOWN, VK_UP, VK_UP, VK_END, VK_HOME}) {
        Press(key);
        ExpectSelection(1);
    }
    for (const WPARAM end : {VK_RETURN, VK_ESCAPE}) {
        Choose(VK_DOWN, end);
        ExpectSelection(1);
    }
}

TEST_F(ComboBox, LockedStillTakesASelectionOfTheProgram) {
    Select(2);
    Choose(VK_HOME);
    ExpectSelection(2);
    combo.SetLocked(false);
    Press(VK_UP);
    ExpectSelection(1);
    Choose(VK_HOME);
    ExpectSelection(0);
}

TEST_F(ComboBox, LockedLooksLikeStaticText) {
    frame.loggedMessage = WM_CTLCOLORSTATIC;
    frame.messageResult = 77;
    const auto looksStatic = [&](UINT message) {
        const HDC context = GetDC(combo.hwnd);
        const LRESULT answer = SendMessageW(frame.hwnd, message, reinterpret_cast<WPARAM>(context),
                                            reinterpret_cast<LPARAM>(combo.hwnd));
        ReleaseDC(combo.hwnd, context);
        return answer == 77;
    };
    EXPECT_TRUE(looksStatic(WM_CTLCOLOREDIT) && looksStatic(WM_CTLCOLORLISTBOX));
    combo.SetLocked(false);
    EXPECT_FALSE(looksStatic(WM_CTLCOLOREDIT) || looksStatic(WM_CTLCOLORLISTBOX));
}

} // namespace
} // namespace quilla
