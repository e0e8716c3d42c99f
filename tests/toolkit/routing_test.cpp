// Which objects commands, notifications and reflected messages reach, in which order.

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/edit.h"

#include <commctrl.h>

namespace quilla {
namespace {

using namespace test;

constexpr int kButtonId = 7;
constexpr int kEditId = 8;

/// A frame with a panel with an edit, and a button beside the panel.
class Routing : public ToolkitTest {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_NE(panel.Create(frame.hwnd, nullptr, 5), nullptr);
        ASSERT_NE(edit.Create(panel.hwnd, nullptr, kEditId), nullptr);
        SetWindowPos(panel.hwnd, nullptr, 0, 0, 200, 100, SWP_NOZORDER);
        SetWindowPos(edit.hwnd, nullptr, 0, 0, 100, 24, SWP_NOZORDER);
        plainButton =
            CreateWindowExW(0, L"BUTTON", L"Push", WS_CHILD | WS_VISIBLE, 0, 120, 80, 24, frame.hwnd,
                            reinterpret_cast<HMENU>(INT_PTR{kButtonId}), nullptr, nullptr);
        ASSERT_TRUE(Activate(frame.hwnd));
        Focus(edit.hwnd);
    }

    void Focus(HWND window) {
        SetFocus(window);
        log.clear(); // the edit's notification that it lost the focus
    }

    /// Where a command goes that the frame receives.
    Log Send(int id, int code = 0, HWND control = nullptr) {
        log.clear();
        SendMessageW(frame.hwnd, WM_COMMAND, MAKEWPARAM(id, code), reinterpret_cast<LPARAM>(control));
        return Take();
    }

    Owned<Recorder<Frame>> frame{log, "frame"};
    Recorder<BWindow> panel{log, "panel"};
    Recorder<BEdit> edit{log, "edit"};
    Recorder<BWindow> button{log, "button"};
    HWND plainButton = nullptr;
};

TEST_F(Routing, MenuCommandsRiseFromTheFocus) {
    const Log allTheWay = {"edit command 1001/0", "panel command 1001/0", "frame command 1001/0"};
    EXPECT_EQ(Send(1001), allTheWay);
    panel.handledCommand = 1001;
    EXPECT_EQ(Send(1001), (Log{"edit command 1001/0", "panel command 1001/0"}));
    panel.handledCommand = -1;
    Focus(frame.hwnd);
    EXPECT_EQ(Send(1001), (Log{"frame command 1001/0"}));

    Focus(edit.hwnd);
    Owned<Frame> other;
    other.Create();
    ASSERT_TRUE(Activate(other.hwnd));
    EXPECT_EQ(Send(1001), allTheWay) << "in the background the focus counts that will come back";
    frame.savedFocus = nullptr;
    EXPECT_EQ(Send(1001), (Log{"frame command 1001/0"}));
}

TEST_F(Routing, WithoutABoundTopLevelWindowEachObjectStandsForItself) {
    const HWND window = frame.hwnd;
    SetFocus(nullptr);
    frame.Detach();
    EXPECT_EQ(panel.GetFocusObject(), &panel);
    EXPECT_EQ(edit.GetTopLevelObject(), &panel);
    frame.Attach(window);
    EXPECT_EQ(edit.GetTopLevelObject(), &frame);
}

TEST_F(Routing, QuestionsRiseFromTheFocusToTheirOwner) {
    edit.logUpdates = panel.logUpdates = frame.logUpdates = true;
    BProbeState probe(1001);
    frame.RouteUpdateCommand(probe);
    EXPECT_EQ(Take(), (Log{"edit update 1001", "panel update 1001", "frame update 1001"}));
    panel.RouteUpdateCommand(probe);
    EXPECT_EQ(Take(), (Log{"edit update 1001", "panel update 1001"}));
    EXPECT_TRUE(probe.enabled) << "until somebody objects";
}

TEST_F(Routing, ClicksGoFromTheControlToTheFocusThenUp) {
    EXPECT_EQ(Send(kButtonId, BN_CLICKED, plainButton), (Log{"frame command 7/0"})) << "no object";
    button.Attach(plainButton);
    EXPECT_EQ(Send(kButtonId, BN_CLICKED, button.hwnd),
              (Log{"button command 7/0", "edit command 7/0", "panel command 7/0", "frame command 7/0"}));
    Focus(button.hwnd);
    EXPECT_EQ(Send(kButtonId, BN_CLICKED, button.hwnd), (Log{"button command 7/0", "frame command 7/0"}));
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
        EXPECT_EQ(Send(1001), Log{});
        EXPECT_EQ(Send(1001, 1), Log{}) << "by accelerator";
        *disabled = -1;
        EXPECT_EQ(Send(1001).size(), 3U);
    }
    frame.disabledCommand = kButtonId;
    EXPECT_EQ(Send(kButtonId, BN_CLICKED, plainButton), Log{});
    EXPECT_EQ(Send(kButtonId, BN_SETFOCUS, plainButton), (Log{"frame command 7/6"})) << "not a command";
}

TEST_F(Routing, NotificationsReachTheControlThenTheReceiver) {
    button.Attach(plainButton);
    NMHDR header = {button.hwnd, kButtonId, static_cast<UINT>(NM_CLICK)};
    const auto notify = [&] {
        log.clear();
        return SendMessageW(frame.hwnd, WM_NOTIFY, kButtonId, reinterpret_cast<LPARAM>(&header));
    };
    frame.notifyResult = 6;
    EXPECT_EQ(notify(), 6);
    EXPECT_EQ(Take(), (Log{"button notify -2", "frame notify -2"}));
    button.notifyResult = 5;
    EXPECT_EQ(notify(), 5);
    EXPECT_EQ(Take(), (Log{"button notify -2"}));
    button.Detach();
    EXPECT_EQ(notify(), 6);
    EXPECT_EQ(Take(), (Log{"frame notify -2"}));
}

TEST_F(Routing, ColourMessagesAreReflectedAndComeBack) {
    edit.loggedMessage = panel.loggedMessage = WM_CTLCOLOREDIT;
    const HDC context = GetDC(edit.hwnd);
    const auto ask = [&](HWND control) {
        log.clear();
        return SendMessageW(panel.hwnd, WM_CTLCOLOREDIT, reinterpret_cast<WPARAM>(context),
                            reinterpret_cast<LPARAM>(control));
    };
    EXPECT_NE(ask(edit.hwnd), 0) << "the platform's own brush, by the panel's replaced procedure";
    EXPECT_EQ(Take(), (Log{"edit message", "panel message"}));
    panel.messageResult = 77;
    EXPECT_EQ(ask(edit.hwnd), 77);
    edit.messageResult = 78;
    EXPECT_EQ(ask(edit.hwnd), 78);
    EXPECT_EQ(ask(plainButton), 77) << "no object: the parent's own";
    EXPECT_EQ(Take(), (Log{"panel message"}));
    ReleaseDC(edit.hwnd, context);
}

TEST_F(Routing, DrawMessagesAreReflectedAndComeBack) {
    SetWindowLongW(plainButton, GWL_STYLE, WS_CHILD | WS_VISIBLE | BS_OWNERDRAW);
    frame.loggedMessage = button.loggedMessage = WM_DRAWITEM;
    const auto redraw = [&] {
        log.clear();
        RedrawWindow(plainButton, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
        return Take();
    };
    application.PumpPending();
    EXPECT_EQ(redraw(), (Log{"frame message"}));
    button.Attach(plainButton);
    EXPECT_EQ(redraw(), (Log{"button message", "frame message"}));
    button.messageResult = TRUE;
    EXPECT_EQ(redraw(), (Log{"button message"}));
}

} // namespace
} // namespace quilla
