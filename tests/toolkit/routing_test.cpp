// Which objects commands, notifications, reflected messages and questions reach, in which order.

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
        plainButton =
            CreateWindowExW(0, L"BUTTON", L"Push", WS_CHILD | WS_VISIBLE | BS_OWNERDRAW, 0, 0, 80, 24,
                            frame.hwnd, reinterpret_cast<HMENU>(INT_PTR{kButtonId}), nullptr, nullptr);
        ASSERT_TRUE(Activate(frame.hwnd));
        SetFocus(edit.hwnd);
    }

    /// Where a command goes that the frame receives.
    Log Send(int id, int code = 0, HWND control = nullptr) {
        log.clear();
        SendMessageW(frame.hwnd, WM_COMMAND, MAKEWPARAM(id, code), reinterpret_cast<LPARAM>(control));
        return Take();
    }

    /// Where a message goes that names the button, without and with an object.
    void ExpectReflection(UINT message, LPARAM parameter) {
        frame.loggedMessage = button.loggedMessage = message;
        frame.messageResult = 77;
        button.messageResult = 0;
        log.clear();
        const auto send = [&] { return SendMessageW(frame.hwnd, message, 0, parameter); };
        EXPECT_EQ(send(), 77);
        button.Attach(plainButton);
        EXPECT_EQ(send(), 77);
        button.messageResult = 78;
        EXPECT_EQ(send(), 78);
        EXPECT_EQ(log, (Log{"frame message", "button message", "frame message", "button message"}));
        button.Detach();
    }

    Owned<Recorder<Frame>> frame{log, "frame"};
    Recorder<BWindow> panel{log, "panel"};
    Recorder<BEdit> edit{log, "edit"};
    Recorder<BWindow> button{log, "button"};
    HWND plainButton = nullptr;
};

TEST_F(Routing, MenuCommandsRiseFromTheFocus) {
    EXPECT_EQ(Send(1001), (Log{"edit command 1001/0", "panel command 1001/0", "frame command 1001/0"}));
    panel.handledCommand = 1001;
    EXPECT_EQ(Send(1001), (Log{"edit command 1001/0", "panel command 1001/0"}));
    panel.handledCommand = -1;
    SetFocus(frame.hwnd);
    EXPECT_EQ(Send(1001), (Log{"frame command 1001/0"}));
}

TEST_F(Routing, ClicksGoFromTheControlToTheFocusThenUp) {
    EXPECT_EQ(Send(kButtonId, BN_CLICKED, plainButton), (Log{"frame command 7/0"})) << "no object";
    button.Attach(plainButton);
    EXPECT_EQ(Send(kButtonId, BN_CLICKED, button.hwnd),
              (Log{"button command 7/0", "edit command 7/0", "panel command 7/0", "frame command 7/0"}));
    SetFocus(button.hwnd);
    EXPECT_EQ(Send(kButtonId, BN_CLICKED, button.hwnd), (Log{"button command 7/0", "frame command 7/0"}));
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
    BProbeState probe(kButtonId);
    panel.RouteUpdateCommand(probe);
    EXPECT_TRUE(probe.enabled) << "a question ends where it began";
}

TEST_F(Routing, NotificationsReachTheControlThenTheReceiverOnly) {
    log.clear();
    SendMessageW(edit.hwnd, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(L"x"));
    EXPECT_EQ(Take(), (Log{"edit command 8/1024", "panel command 8/1024",  // EN_UPDATE
                           "edit command 8/768", "panel command 8/768"})); // EN_CHANGE

    NMHDR header = {plainButton, kButtonId, static_cast<UINT>(NM_CLICK)};
    const auto expect = [&](LRESULT result, const Log& way) {
        EXPECT_EQ(SendMessageW(frame.hwnd, WM_NOTIFY, kButtonId, reinterpret_cast<LPARAM>(&header)), result);
        EXPECT_EQ(Take(), way);
    };
    frame.notifyResult = 6;
    expect(6, {"frame notify -2"});
    button.Attach(plainButton);
    expect(6, {"button notify -2", "frame notify -2"});
    button.notifyResult = 5;
    expect(5, {"button notify -2"});
}

TEST_F(Routing, ColourAndDrawMessagesAreReflectedAndComeBack) {
    DRAWITEMSTRUCT draw = {};
    draw.hwndItem = plainButton;
    ExpectReflection(WM_DRAWITEM, reinterpret_cast<LPARAM>(&draw));
    ExpectReflection(WM_CTLCOLORBTN, reinterpret_cast<LPARAM>(plainButton));
    ExpectReflection(WM_CTLCOLORSTATIC, reinterpret_cast<LPARAM>(plainButton));
}

} // namespace
} // namespace quilla
