// Which objects commands and questions reach, in which order.

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/controls.h"

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

} // namespace
} // namespace quilla
