// Which objects commands, notifications, reflected messages and questions about command states reach, in
// which order.

#include "tests/toolkit/recorder.h"
#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/edit.h"
#include "toolkit/list_view.h"

#include <commctrl.h>

namespace quilla {
namespace {

using test::Frame;
using test::Log;
using test::Owned;
using test::Recorder;

constexpr int kButtonId = 7;
constexpr int kEditId = 8;

/// A frame with a panel with an edit, and a button beside the panel.
class Routing : public test::ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_NE(panel.Create(frame.hwnd, nullptr, 5), nullptr);
        SetWindowPos(panel.hwnd, nullptr, 0, 0, 200, 100, SWP_NOZORDER);
        ASSERT_NE(edit.Create(panel.hwnd, nullptr, kEditId), nullptr);
        SetWindowPos(edit.hwnd, nullptr, 0, 0, 100, 24, SWP_NOZORDER);
        plainButton =
            CreateWindowExW(0, L"BUTTON", L"Push", WS_CHILD | WS_VISIBLE, 0, 120, 80, 24, frame.hwnd,
                            reinterpret_cast<HMENU>(INT_PTR{kButtonId}), nullptr, nullptr);
        ASSERT_TRUE(Activate(frame.hwnd));
        Focus(edit.hwnd);
    }

    Log Take() { return std::exchange(log, {}); }

    void Focus(HWND window) {
        SetFocus(window);
        log.clear(); // the edit's notification that it lost the focus
    }

    void SendCommand(int id, int code = 0, HWND control = nullptr) {
        SendMessageW(frame.hwnd, WM_COMMAND, MAKEWPARAM(id, code), reinterpret_cast<LPARAM>(control));
    }

    Log log;
    Owned<Recorder<Frame>> frame{log, "frame"};
    Recorder<BWindow> panel{log, "panel"};
    Recorder<BEdit> edit{log, "edit"};
    Recorder<BWindow> button{log, "button"};
    HWND plainButton = nullptr;
};

TEST_F(Routing, MenuCommandsRiseFromTheFocus) {
    SendCommand(1001);
    EXPECT_EQ(Take(), (Log{"edit command 1001/0", "panel command 1001/0", "frame command 1001/0"}));
    panel.handledCommand = 1001;
    SendCommand(1001);
    EXPECT_EQ(Take(), (Log{"edit command 1001/0", "panel command 1001/0"}));
    Focus(frame.hwnd);
    SendCommand(1001);
    EXPECT_EQ(Take(), (Log{"frame command 1001/0"}));
}

TEST_F(Routing, WithoutFocusTheSavedOneCounts) {
    Owned<Frame> other;
    other.Create();
    ASSERT_TRUE(Activate(other.hwnd));
    Focus(other.hwnd);
    ASSERT_EQ(frame.savedFocus, edit.hwnd);
    EXPECT_EQ(frame.GetFocusObject(), &edit);
    SendCommand(1001);
    EXPECT_EQ(Take(), (Log{"edit command 1001/0", "panel command 1001/0", "frame command 1001/0"}));
    frame.savedFocus = nullptr;
    EXPECT_EQ(frame.GetFocusObject(), nullptr);
    EXPECT_EQ(panel.GetFocusObject(), nullptr);
    SendCommand(1001);
    EXPECT_EQ(Take(), (Log{"frame command 1001/0"}));

    // Below a top-level window that has no object, each object stands for itself.
    const HWND frameWindow = frame.hwnd;
    frame.Detach();
    EXPECT_EQ(panel.GetFocusObject(), &panel);
    frame.Attach(frameWindow);
}

TEST_F(Routing, ClicksGoFromTheControlToTheFocusThenUp) {
    button.Attach(plainButton);
    SendCommand(kButtonId, BN_CLICKED, button.hwnd); // as a toolbar does, which takes no focus
    EXPECT_EQ(Take(),
              (Log{"button command 7/0", "edit command 7/0", "panel command 7/0", "frame command 7/0"}));
    edit.handledCommand = kButtonId;
    SendCommand(kButtonId, BN_CLICKED, button.hwnd);
    EXPECT_EQ(Take(), (Log{"button command 7/0", "edit command 7/0"}));

    SendMessageW(button.hwnd, WM_LBUTTONDOWN, MK_LBUTTON, test::PointParam(5, 5));
    ASSERT_EQ(GetFocus(), button.hwnd);
    Take();
    SendMessageW(button.hwnd, WM_LBUTTONUP, 0, test::PointParam(5, 5));
    const Log clicked = Take();
    EXPECT_EQ(clicked.front(), "button command 7/0");
    EXPECT_EQ(clicked.back(), "frame command 7/0") << "the control itself has the focus: on to the receiver";
}

TEST_F(Routing, ClicksOnControlsWithoutObjectReachTheReceiver) {
    SendCommand(kButtonId, BN_CLICKED, plainButton);
    EXPECT_EQ(Take(), (Log{"frame command 7/0"}));
}

TEST_F(Routing, ControlNotificationsReachTheControlThenTheReceiverOnly) {
    SendMessageW(edit.hwnd, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(L"x"));
    EXPECT_EQ(Take(), (Log{"edit command 8/1024", "panel command 8/1024",  // EN_UPDATE
                           "edit command 8/768", "panel command 8/768"})); // EN_CHANGE
    edit.Detach();
    SendMessageW(GetFocus(), EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(L"y"));
    EXPECT_EQ(Take(), (Log{"panel command 8/1024", "panel command 8/768"}));
}

TEST_F(Routing, DisabledCommandsAreNotExecuted) {
    for (int* disabled : {&edit.disabledCommand, &panel.disabledCommand, &frame.disabledCommand}) {
        *disabled = 1001;
        SendCommand(1001);
        EXPECT_EQ(Take(), Log{});
        *disabled = -1;
        SendCommand(1001);
        EXPECT_EQ(Take().size(), 3U);
    }
    // Clicks of a control as well, but not its other notifications.
    frame.disabledCommand = kButtonId;
    SendCommand(kButtonId, BN_CLICKED, plainButton);
    EXPECT_EQ(Take(), Log{});
    SendCommand(kButtonId, BN_SETFOCUS, plainButton);
    EXPECT_EQ(Take(), (Log{"frame command 7/6"}));
}

TEST_F(Routing, DisabledCommandsAreNotExecutedByAccelerator) {
    class WithAccelerators : public Recorder<Frame> {
      public:
        using Recorder::Recorder;
        bool PreTranslate(MSG& message) override { return TranslateAcceleratorW(hwnd, table, &message) != 0; }
        HACCEL table = nullptr;
    };
    Owned<WithAccelerators> window(log, "window");
    ACCEL entry = {FVIRTKEY, VK_F5, 1001};
    window.table = CreateAcceleratorTableW(&entry, 1);
    ASSERT_NE(window.Create(), nullptr);
    ASSERT_TRUE(Activate(window.hwnd));
    SetFocus(window.hwnd);

    Take();
    test::PressKeys({VK_F5});
    ASSERT_TRUE(PumpUntil([&] { return !log.empty(); }));
    EXPECT_EQ(Take(), (Log{"window command 1001/1"}));

    window.disabledCommand = 1001;
    window.loggedMessage = WM_KEYUP;
    test::PressKeys({VK_F5});
    ASSERT_TRUE(PumpUntil([&] { return !log.empty(); }));
    EXPECT_EQ(Take(), (Log{"window message"})) << "the key has been let go, and nothing was executed";
    DestroyAcceleratorTable(window.table);
}

TEST_F(Routing, NotificationsReachTheControlThenTheReceiver) {
    INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_LISTVIEW_CLASSES};
    InitCommonControlsEx(&controls);
    Recorder<BListView> list(log, "list");
    ASSERT_NE(list.Create(frame.hwnd, nullptr, 9), nullptr);
    Take();
    const auto insert = [&] {
        LVITEMW item = {};
        SendMessageW(list.hwnd, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
    };
    const std::string inserted = std::to_string(static_cast<int>(LVN_INSERTITEM));
    insert();
    EXPECT_EQ(Take(), (Log{"list notify " + inserted, "frame notify " + inserted}));
    list.notifyResult = 5;
    insert();
    EXPECT_EQ(Take(), (Log{"list notify " + inserted}));

    NMHDR header = {list.hwnd, 9, static_cast<UINT>(NM_CLICK)};
    EXPECT_EQ(SendMessageW(frame.hwnd, WM_NOTIFY, 9, reinterpret_cast<LPARAM>(&header)), 5)
        << "the result counts";
    list.notifyResult = 0;
    frame.notifyResult = 6;
    EXPECT_EQ(SendMessageW(frame.hwnd, WM_NOTIFY, 9, reinterpret_cast<LPARAM>(&header)), 6);
    Take();
    header.hwndFrom = plainButton; // has no object
    SendMessageW(frame.hwnd, WM_NOTIFY, 9, reinterpret_cast<LPARAM>(&header));
    EXPECT_EQ(Take().size(), 1U);
    DestroyWindow(list.hwnd);
}

TEST_F(Routing, ColourMessagesAreReflectedAndComeBack) {
    edit.loggedMessage = panel.loggedMessage = WM_CTLCOLOREDIT;
    RedrawWindow(edit.hwnd, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW);
    const Log seen = Take();
    ASSERT_GE(seen.size(), 2U);
    EXPECT_EQ(seen[0], "edit message");
    EXPECT_EQ(seen[1], "panel message");

    const HDC context = GetDC(edit.hwnd);
    const auto ask = [&](HWND control) {
        return SendMessageW(panel.hwnd, WM_CTLCOLOREDIT, reinterpret_cast<WPARAM>(context),
                            reinterpret_cast<LPARAM>(control));
    };
    Take();
    EXPECT_NE(ask(edit.hwnd), 0) << "the platform's own brush, by the panel's replaced procedure";
    EXPECT_EQ(Take(), (Log{"edit message", "panel message"}));
    panel.messageResult = 77;
    EXPECT_EQ(ask(edit.hwnd), 77);
    edit.messageResult = 78;
    EXPECT_EQ(ask(edit.hwnd), 78);
    Take();
    EXPECT_EQ(ask(plainButton), 77);
    EXPECT_EQ(Take(), (Log{"panel message"})) << "no object: the parent's own";
    ReleaseDC(edit.hwnd, context);
}

TEST_F(Routing, ReflectedColourIsSeenOnTheScreen) {
    class RedEdit : public BEdit {
      public:
        LRESULT OnMessage(BMessage& message) override {
            if (message.message != WM_CTLCOLOREDIT)
                return BEdit::OnMessage(message);
            EXPECT_NE(message.hwnd, hwnd) << "the receiver is the parent";
            SetDCBrushColor(reinterpret_cast<HDC>(message.wParam), RGB(255, 0, 0));
            return reinterpret_cast<LRESULT>(GetStockObject(DC_BRUSH));
        }
    } red;
    ASSERT_NE(red.Create(frame.hwnd, nullptr, 1), nullptr);
    SetWindowPos(red.hwnd, HWND_TOP, 220, 20, 60, 40, 0);
    RedrawWindow(red.hwnd, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW);
    const HDC context = GetDC(red.hwnd);
    EXPECT_EQ(GetPixel(context, 40, 20), RGB(255, 0, 0));
    ReleaseDC(red.hwnd, context);
    DestroyWindow(red.hwnd);
}

TEST_F(Routing, DrawMessagesAreReflectedAndComeBack) {
    SetWindowLongW(plainButton, GWL_STYLE, WS_CHILD | WS_VISIBLE | BS_OWNERDRAW);
    const auto redraw = [&] {
        RedrawWindow(plainButton, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
        return Take();
    };
    PumpUntil([] { return true; });
    frame.loggedMessage = button.loggedMessage = WM_DRAWITEM;
    Take();
    EXPECT_EQ(redraw(), (Log{"frame message"}));
    button.Attach(plainButton);
    EXPECT_EQ(redraw(), (Log{"button message", "frame message"}));
    button.messageResult = TRUE;
    EXPECT_EQ(redraw(), (Log{"button message"}));
}

TEST_F(Routing, OtherMessagesAreNotReflected) {
    BMessage foreign(panel.hwnd, WM_GETTEXTLENGTH, 0, 0);
    SetWindowTextW(edit.hwnd, L"text");
    EXPECT_EQ(edit.DefaultProc(foreign), 0);
    BMessage own(edit.hwnd, WM_GETTEXTLENGTH, 0, 0);
    EXPECT_EQ(edit.DefaultProc(own), 4);
}

TEST_F(Routing, QuestionsRiseFromTheFocusToTheirOwner) {
    edit.logUpdates = panel.logUpdates = frame.logUpdates = true;
    BProbeState probe(1001);
    frame.RouteUpdateCommand(probe);
    EXPECT_EQ(probe.owner, frame.hwnd);
    EXPECT_EQ(Take(), (Log{"edit update 1001", "panel update 1001", "frame update 1001"}));
    panel.RouteUpdateCommand(probe);
    EXPECT_EQ(probe.owner, panel.hwnd);
    EXPECT_EQ(Take(), (Log{"edit update 1001", "panel update 1001"}));
    Focus(frame.hwnd);
    frame.RouteUpdateCommand(probe);
    EXPECT_EQ(Take(), (Log{"frame update 1001"}));
}

TEST_F(Routing, ControlStatesAreAskedForEveryControl) {
    button.Attach(plainButton);
    const HWND plain = CreateWindowExW(0, L"STATIC", L"", WS_CHILD, 0, 0, 1, 1, panel.hwnd,
                                       reinterpret_cast<HMENU>(INT_PTR{33}), nullptr, nullptr);
    frame.disabledCommand = kEditId;
    frame.logUpdates = true;
    EXPECT_EQ(edit.GetTopLevelObject(), &frame);
    EXPECT_EQ(frame.GetTopLevelObject(), &frame);
    Take();
    frame.UpdateCommandStates();
    Log asked = Take();
    const auto has = [&](int id) {
        return std::count(asked.begin(), asked.end(), "frame update " + std::to_string(id)) == 1;
    };
    EXPECT_TRUE(has(5) && has(kEditId) && has(33) && has(kButtonId));
    EXPECT_FALSE(IsWindowEnabled(edit.hwnd));
    EXPECT_TRUE(IsWindowEnabled(button.hwnd));

    panel.UpdateCommandStates(); // only the panel and what is in it, but answered by the outermost object
    asked = Take();
    EXPECT_TRUE(has(5) && has(kEditId) && has(33) && !has(kButtonId));
    frame.disabledCommand = 33;
    edit.disabledCommand = -1;
    frame.UpdateCommandStates();
    EXPECT_FALSE(IsWindowEnabled(plain));
}

TEST_F(Routing, MenusAreUpdatedWhenTheyOpen) {
    const HMENU inner = CreatePopupMenu();
    const HMENU menu = CreatePopupMenu();
    AppendMenuW(menu, MF_STRING, 1001, L"New");
    AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
    AppendMenuW(menu, MF_POPUP, reinterpret_cast<UINT_PTR>(inner), L"More");
    AppendMenuW(menu, MF_STRING, 1002, L"Open");
    frame.disabledCommand = 1002;
    frame.logUpdates = true;
    Take();
    // The menu really opens, until a timer of its loop ends it.
    SetTimer(frame.hwnd, 1, 10, [](HWND window, UINT, UINT_PTR timer, DWORD) {
        KillTimer(window, timer);
        EndMenu();
    });
    TrackPopupMenuEx(menu, 0, 30, 30, frame.hwnd, nullptr);
    EXPECT_EQ(Take(), (Log{"frame update 1001", "frame update 1002"}));
    EXPECT_EQ(GetMenuState(menu, 0, MF_BYPOSITION) & MF_GRAYED, 0U);
    EXPECT_EQ(GetMenuState(menu, 3, MF_BYPOSITION) & MF_GRAYED, static_cast<UINT>(MF_GRAYED));
    DestroyMenu(menu);
}

} // namespace
} // namespace quilla
