// Command states on their way from the object that knows a command to real controls, menus and toolbars.

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/edit.h"
#include "toolkit/toolbar.h"

#include <commctrl.h>

namespace quilla {
namespace {

using namespace test;

constexpr int kEdit = 8;
constexpr int kCheckBox = 33;
constexpr int kNew = 1001;
constexpr int kOpen = 1002;

/// Says all there is to say about one command.
class Answering : public Recorder<Frame> {
  public:
    using Recorder::Recorder;
    void OnUpdateCommand(BCommandState& state) override {
        Recorder::OnUpdateCommand(state);
        if (state.id != answered)
            return;
        state.Enable(isEnabled);
        state.SetCheck(!isEnabled);
        state.SetReadOnly(!isEnabled);
        state.SetText(L"answered");
    }
    int answered = -1;
    bool isEnabled = false;
};

class CommandState : public ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        frame.logUpdates = true;
    }
    Owned<Answering> frame{log, "frame"};
};

TEST_F(CommandState, OfControlsIsAskedForAtTheOutermostObject) {
    BWindow panel;
    ASSERT_NE(panel.Create(frame.hwnd, nullptr, 5), nullptr);
    BEdit edit;
    ASSERT_NE(edit.Create(panel.hwnd, nullptr, kEdit), nullptr);
    const HWND checkBox = CreateWindowExW(0, L"BUTTON", L"", WS_CHILD | BS_CHECKBOX, 0, 0, 9, 9, panel.hwnd,
                                          reinterpret_cast<HMENU>(INT_PTR{kCheckBox}), nullptr, nullptr);
    frame.answered = kCheckBox;
    Take();
    panel.UpdateCommandStates();
    EXPECT_EQ(Take().size(), 3U) << "the panel and what is in it, bound or not";
    EXPECT_FALSE(IsWindowEnabled(checkBox));
    EXPECT_EQ(SendMessageW(checkBox, BM_GETCHECK, 0, 0), BST_CHECKED);
    EXPECT_EQ(TextOf(checkBox), L"answered");

    frame.answered = kEdit;
    for (const bool isEnabled : {false, true}) {
        frame.isEnabled = isEnabled;
        frame.UpdateCommandStates();
        EXPECT_EQ(Take().size(), 4U);
        EXPECT_EQ(IsWindowEnabled(edit.hwnd) != FALSE, isEnabled);
        EXPECT_EQ((GetWindowLongW(edit.hwnd, GWL_STYLE) & ES_READONLY) == 0, isEnabled);
    }
}

TEST_F(CommandState, OfMenuItemsIsAskedForWhenTheMenuOpens) {
    const HMENU menu = CreatePopupMenu();
    AppendMenuW(menu, MF_STRING, kNew, L"New");
    AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
    AppendMenuW(menu, MF_POPUP, reinterpret_cast<UINT_PTR>(CreatePopupMenu()), L"More");
    AppendMenuW(menu, MF_STRING, kOpen, L"Open");
    frame.answered = kOpen;
    for (const bool isEnabled : {false, true}) {
        frame.isEnabled = isEnabled;
        Take();
        SendMessageW(frame.hwnd, WM_INITMENUPOPUP, reinterpret_cast<WPARAM>(menu), 0);
        EXPECT_EQ(Take(), (Log{"frame update 1001", "frame update 1002"}));
        EXPECT_EQ(GetMenuState(menu, 3, MF_BYPOSITION),
                  static_cast<UINT>(isEnabled ? MF_ENABLED : MF_GRAYED | MF_CHECKED));
        EXPECT_EQ(GetMenuState(menu, 0, MF_BYPOSITION), static_cast<UINT>(MF_ENABLED));
    }
    DestroyMenu(menu);
}

TEST_F(CommandState, OfToolbarButtonsIsAskedForWithTheirToolbar) {
    BToolbar toolbar;
    ASSERT_NE(toolbar.Create(frame.hwnd, nullptr, 3), nullptr);
    SendMessageW(toolbar.hwnd, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    TBBUTTON buttons[3] = {};
    buttons[0].idCommand = kNew;
    buttons[1].fsStyle = TBSTYLE_SEP;
    buttons[2].idCommand = kOpen;
    buttons[0].fsState = buttons[2].fsState = TBSTATE_ENABLED;
    SendMessageW(toolbar.hwnd, TB_ADDBUTTONSW, 3, reinterpret_cast<LPARAM>(buttons));
    frame.answered = kNew;
    Take();
    toolbar.UpdateCommandStates();
    EXPECT_EQ(Take(), (Log{"frame update 3", "frame update 1002", "frame update 0", "frame update 1001"}));
    EXPECT_EQ(SendMessageW(toolbar.hwnd, TB_GETSTATE, kNew, 0), TBSTATE_CHECKED);
    EXPECT_EQ(SendMessageW(toolbar.hwnd, TB_GETSTATE, kOpen, 0), TBSTATE_ENABLED);
}

} // namespace
} // namespace quilla
