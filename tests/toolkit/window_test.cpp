// Binding, creating and closing windows, and the focus that a window remembers.

#include "toolkit/window.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/controls.h"

#include <thread>

namespace quilla {
namespace {

using namespace test;

class Window : public ToolkitTest {
  protected:
    void SetUp() override { ASSERT_NE(frame.Create(), nullptr); }
    Owned<Frame> frame;
};

TEST_F(Window, LifeOfABinding) {
    BWindow object;
    EXPECT_EQ(object.Create(), nullptr) << "a child without a parent";

    const HWND child = object.Create(frame.hwnd, L"name", 42);
    EXPECT_EQ(object.hwnd, child);
    EXPECT_EQ(ObjectFromHandle(child), &object);
    EXPECT_EQ(GetDlgCtrlID(child), 42);
    EXPECT_EQ(TextOf(child), L"name");

    object.Detach();
    EXPECT_TRUE(IsWindow(child));
    EXPECT_FALSE(object.hwnd || object.prevProc || ObjectFromHandle(child));
    EXPECT_EQ(FindObjectUpward(child), &frame);

    object.Attach(child);
    SendMessageW(child, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(child));
    EXPECT_EQ(object.hwnd, nullptr) << "unbound by its destruction";
    EXPECT_NE(object.Create(frame.hwnd, nullptr, 0), nullptr) << "and reusable";
    object.Close();
}

TEST_F(Window, ADyingWindowIsUnboundBeforeItsLastMessages) {
    Recorder<BWindow> below(log, "below");
    Recorder<BWindow> above(log, "above");
    ASSERT_NE(below.Create(frame.hwnd, nullptr, 0), nullptr);
    above.Attach(below.hwnd);
    below.loggedMessage = WM_DESTROY;
    above.loggedMessage = WM_NCDESTROY;
    above.Close();
    EXPECT_EQ(log, (Log{"below message"})) << "the replaced procedure gets it";
}

TEST_F(Window, OtherThreadsFindNoObject) {
    const BWindow* found = &frame;
    std::thread([&] { found = ObjectFromHandle(frame.hwnd); }).join(); // asking the window would never end
    EXPECT_EQ(found, nullptr);
}

TEST_F(Window, FocusComesBackWithTheActivation) {
    Owned<Frame> other;
    BEdit edit;
    ASSERT_NE(other.Create(), nullptr);
    ASSERT_NE(edit.Create(frame.hwnd, nullptr, 1), nullptr);
    ASSERT_TRUE(Activate(frame.hwnd));
    SetFocus(edit.hwnd);
    ASSERT_TRUE(Activate(other.hwnd));
    ASSERT_TRUE(Activate(frame.hwnd));
    EXPECT_EQ(GetFocus(), edit.hwnd);

    SetFocus(frame.hwnd);
    SendMessageW(frame.hwnd, WM_ACTIVATE, MAKEWPARAM(WA_INACTIVE, TRUE), 0);
    EXPECT_EQ(frame.savedFocus, edit.hwnd) << "minimising keeps that of the deactivation before";
}

} // namespace
} // namespace quilla
