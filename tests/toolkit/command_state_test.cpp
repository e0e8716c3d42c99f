// The four kinds of command states applied to real controls, menus and toolbars.

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/command_state.h"

#include <commctrl.h>

namespace quilla {
namespace {

using test::Frame;
using test::Owned;

class CommandState : public test::ToolkitTest {
  protected:
    void SetUp() override { ASSERT_NE(frame.Create(), nullptr); }

    HWND Child(const wchar_t* className, DWORD style) {
        return CreateWindowExW(0, className, L"", WS_CHILD | WS_VISIBLE | style, 0, 0, 100, 20, frame.hwnd,
                               nullptr, nullptr, nullptr);
    }

    Owned<Frame> frame;
};

TEST_F(CommandState, Control) {
    const HWND box = Child(L"BUTTON", BS_CHECKBOX);
    BControlState onBox(7, box);
    onBox.Enable(false);
    EXPECT_FALSE(IsWindowEnabled(box));
    onBox.Enable(true);
    EXPECT_TRUE(IsWindowEnabled(box));
    onBox.SetCheck(1);
    EXPECT_EQ(SendMessageW(box, BM_GETCHECK, 0, 0), 1);
    onBox.SetText(L"Encrypted");
    EXPECT_EQ(test::TextOf(box), L"Encrypted");

    const HWND edit = Child(L"EDIT", 0);
    BControlState onEdit(8, edit);
    onEdit.SetReadOnly(true);
    EXPECT_NE(GetWindowLongW(edit, GWL_STYLE) & ES_READONLY, 0);
    onEdit.SetReadOnly(false);
    EXPECT_EQ(GetWindowLongW(edit, GWL_STYLE) & ES_READONLY, 0);
}

TEST_F(CommandState, MenuItemIsMeantByPosition) {
    const HMENU menu = CreatePopupMenu();
    AppendMenuW(menu, MF_STRING, 1, L"id 1 at 0");
    AppendMenuW(menu, MF_STRING, 0, L"id 0 at 1");
    BMenuItemState state(1, menu, 1);
    state.Enable(false);
    state.SetCheck(0x100); // the whole word counts
    EXPECT_EQ(GetMenuState(menu, 0, MF_BYPOSITION), static_cast<UINT>(MF_ENABLED));
    EXPECT_EQ(GetMenuState(menu, 1, MF_BYPOSITION), static_cast<UINT>(MF_GRAYED | MF_CHECKED));
    state.Enable(true);
    state.SetCheck(0);
    state.SetText(L"other");
    state.SetReadOnly(true);
    EXPECT_EQ(GetMenuState(menu, 1, MF_BYPOSITION), static_cast<UINT>(MF_ENABLED | MF_UNCHECKED));
    wchar_t text[16] = {};
    GetMenuStringW(menu, 1, text, 16, MF_BYPOSITION);
    EXPECT_STREQ(text, L"id 0 at 1");
    DestroyMenu(menu);
}

TEST_F(CommandState, ProbeIsEnabledUntilSomebodyObjects) {
    BProbeState probe(5);
    EXPECT_EQ(probe.id, 5);
    EXPECT_TRUE(probe.enabled);
    probe.SetCheck(0);
    probe.SetText(L"");
    probe.SetReadOnly(true);
    EXPECT_TRUE(probe.enabled);
    probe.Enable(false);
    EXPECT_FALSE(probe.enabled);
    probe.Enable(true);
    EXPECT_TRUE(probe.enabled);
}

TEST_F(CommandState, ToolbarButtonIsMeantByCommand) {
    const HWND toolbar = Child(TOOLBARCLASSNAMEW, 0);
    SendMessageW(toolbar, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    TBBUTTON buttons[2] = {};
    buttons[0].idCommand = 1001;
    buttons[1].idCommand = 1002;
    for (TBBUTTON& button : buttons) {
        button.fsState = TBSTATE_ENABLED;
        button.fsStyle = TBSTYLE_CHECK;
    }
    SendMessageW(toolbar, TB_ADDBUTTONSW, 2, reinterpret_cast<LPARAM>(buttons));

    BToolbarButtonState state(1002, toolbar);
    state.Enable(false);
    state.SetCheck(1);
    EXPECT_EQ(SendMessageW(toolbar, TB_GETSTATE, 1001, 0), TBSTATE_ENABLED);
    EXPECT_EQ(SendMessageW(toolbar, TB_GETSTATE, 1002, 0), TBSTATE_CHECKED);
    state.Enable(true);
    state.SetCheck(0);
    EXPECT_EQ(SendMessageW(toolbar, TB_GETSTATE, 1002, 0), TBSTATE_ENABLED);
}

} // namespace
} // namespace quilla
