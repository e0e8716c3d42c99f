// The wrappers of the platform's controls as windows of their classes, and the toolbar's buttons.

#include "tests/toolkit/recorder.h"
#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/combo_box.h"
#include "toolkit/edit.h"
#include "toolkit/file_field.h"
#include "toolkit/list_view.h"
#include "toolkit/toolbar.h"
#include "toolkit/up_down.h"

#include <commctrl.h>

namespace quilla {
namespace {

using test::Frame;
using test::Log;
using test::Owned;
using test::Recorder;

class Controls : public test::ToolkitTest {
  protected:
    void SetUp() override {
        INITCOMMONCONTROLSEX controls = {sizeof(controls),
                                         ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES | ICC_UPDOWN_CLASS};
        ASSERT_TRUE(InitCommonControlsEx(&controls));
        ASSERT_NE(frame.Create(), nullptr);
    }

    Log log;
    Owned<Recorder<Frame>> frame{log, "frame"};
};

struct Look {
    const wchar_t* className;
    LONG style;
    DWORD extendedStyle;
};

template <typename Control>
void ExpectLook(HWND parent, const Look& look) {
    Control control;
    WNDCLASSW windowClass;
    CREATESTRUCTW creation;
    control.GetCreateDefaults(windowClass, creation);
    EXPECT_EQ(_wcsicmp(windowClass.lpszClassName, look.className), 0);
    EXPECT_EQ(creation.style, static_cast<LONG>(WS_CHILD | WS_VISIBLE) | look.style);
    EXPECT_EQ(creation.dwExStyle, look.extendedStyle);

    ASSERT_NE(control.Create(parent, nullptr, 12), nullptr);
    wchar_t name[64] = {};
    GetClassNameW(control.hwnd, name, 64);
    EXPECT_EQ(_wcsicmp(name, look.className), 0);
    EXPECT_NE(control.prevProc, DefWindowProcW);
    DestroyWindow(control.hwnd);
    EXPECT_EQ(control.hwnd, nullptr);
}

TEST_F(Controls, AreWindowsOfTheirClasses) {
    ExpectLook<BEdit>(frame.hwnd, {L"EDIT", WS_TABSTOP | 0xC0, WS_EX_CLIENTEDGE});
    ExpectLook<BComboBox>(frame.hwnd, {L"COMBOBOX", WS_TABSTOP, 0});
    ExpectLook<BUpDown>(frame.hwnd, {L"msctls_updown32", 0, 0});
    ExpectLook<BToolbar>(frame.hwnd, {L"ToolbarWindow32", 0x40, 0});
    ExpectLook<BListView>(frame.hwnd, {L"SysListView32", 0, WS_EX_CLIENTEDGE});
    ExpectLook<FileFieldEdit>(frame.hwnd, {L"EDIT", WS_TABSTOP | 0xC0, 0});
}

TEST_F(Controls, ToolbarButtonsFollowTheStatesOfTheirCommands) {
    BToolbar toolbar;
    ASSERT_NE(toolbar.Create(frame.hwnd, nullptr, 3), nullptr);
    SendMessageW(toolbar.hwnd, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    TBBUTTON buttons[3] = {};
    buttons[0].idCommand = 1001;
    buttons[1].fsStyle = TBSTYLE_SEP;
    buttons[2].idCommand = 1002;
    buttons[0].fsState = buttons[2].fsState = TBSTATE_ENABLED;
    SendMessageW(toolbar.hwnd, TB_ADDBUTTONSW, 3, reinterpret_cast<LPARAM>(buttons));

    frame.disabledCommand = 1001;
    frame.logUpdates = true;
    log.clear();
    frame.UpdateCommandStates();
    // The frame, the toolbar as a control, then its buttons from the last to the first, separators too.
    EXPECT_EQ(log, (Log{"frame update 0", "frame update 3", "frame update 1002", "frame update 0",
                        "frame update 1001"}));
    EXPECT_FALSE(SendMessageW(toolbar.hwnd, TB_ISBUTTONENABLED, 1001, 0));
    EXPECT_TRUE(SendMessageW(toolbar.hwnd, TB_ISBUTTONENABLED, 1002, 0));
    frame.disabledCommand = -1;

    // A click of the user sends the command to the frame; one on a disabled button does not.
    RECT place = {};
    SendMessageW(toolbar.hwnd, TB_GETITEMRECT, 2, reinterpret_cast<LPARAM>(&place));
    const LPARAM at = test::PointParam((place.left + place.right) / 2, (place.top + place.bottom) / 2);
    log.clear();
    frame.logUpdates = false;
    SendMessageW(toolbar.hwnd, WM_LBUTTONDOWN, MK_LBUTTON, at);
    SendMessageW(toolbar.hwnd, WM_LBUTTONUP, 0, at);
    EXPECT_EQ(std::count(log.begin(), log.end(), "frame command 1002/0"), 1);
    DestroyWindow(toolbar.hwnd);
}

} // namespace
} // namespace quilla
