// Binding, creating and closing windows, and the focus that a window remembers.

#include "toolkit/window.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/edit.h"
#include "toolkit/window_procedure.h"

#include <atomic>
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
    EXPECT_EQ(object.hwnd, nullptr);

    const HWND child = object.Create(frame.hwnd, L"name", 42);
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(object.hwnd, child);
    EXPECT_EQ(SendMessageW(child, 0x81C8, 0, 0), reinterpret_cast<LRESULT>(&object));
    EXPECT_EQ(GetDlgCtrlID(child), 42);
    EXPECT_EQ(TextOf(child), L"name");

    object.Detach();
    EXPECT_TRUE(IsWindow(child));
    EXPECT_FALSE(object.hwnd || object.prevProc);
    EXPECT_EQ(ObjectFromHandle(child), nullptr);
    EXPECT_EQ(FindObjectUpward(child), &frame);
    EXPECT_EQ(FindObjectUpward(nullptr), nullptr);
    EXPECT_EQ(GetWindowLongPtrW(child, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(DefWindowProcW));
    object.Detach(); // nothing happens
    object.Attach(nullptr);
    EXPECT_EQ(object.hwnd, nullptr);

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
    EXPECT_EQ(above.hwnd, nullptr);
}

TEST_F(Window, OtherThreadsFindNoObject) {
    const BWindow* found = &frame;
    std::atomic<bool> hasAsked = false;
    std::thread other([&] {
        found = ObjectFromHandle(frame.hwnd);
        hasAsked = true;
    });
    EXPECT_TRUE(PumpUntil([&] { return hasAsked.load(); }));
    other.join();
    EXPECT_EQ(found, nullptr);
}

TEST_F(Window, NestedDispatchRestoresTheCurrentMessage) {
    class Nesting : public BWindow {
      public:
        LRESULT OnMessage(BMessage& message) override {
            if (message.message == WM_APP)
                SendMessageW(hwnd, WM_APP + 1, 0, 0);
            EXPECT_EQ(BApplication::Current()->currentMessage, &message);
            return BWindow::OnMessage(message);
        }
    };
    Owned<Nesting> nesting;
    ASSERT_NE(nesting.Create(frame.hwnd, nullptr, 0), nullptr);
    SendMessageW(nesting.hwnd, WM_APP, 0, 0);
    EXPECT_EQ(application.currentMessage, nullptr);
}

TEST_F(Window, FocusComesBackWithTheActivation) {
    Owned<Frame> other;
    BEdit first;
    BEdit second;
    ASSERT_NE(other.Create(), nullptr);
    ASSERT_NE(first.Create(frame.hwnd, nullptr, 1), nullptr);
    ASSERT_NE(second.Create(frame.hwnd, nullptr, 2), nullptr);
    ASSERT_TRUE(Activate(frame.hwnd));
    SetFocus(second.hwnd);
    ASSERT_TRUE(Activate(other.hwnd));
    ASSERT_TRUE(Activate(frame.hwnd));
    EXPECT_EQ(GetFocus(), second.hwnd);

    SetFocus(first.hwnd);
    ShowWindow(frame.hwnd, SW_MINIMIZE);
    ASSERT_TRUE(Activate(other.hwnd));
    EXPECT_EQ(frame.savedFocus, second.hwnd) << "minimising keeps that of the deactivation before";

    frame.savedFocus = nullptr;
    SendMessageW(frame.hwnd, WM_ACTIVATE, MAKEWPARAM(WA_ACTIVE, 0), 0);
    EXPECT_EQ(GetFocus(), nullptr) << "nothing saved";
}

} // namespace
} // namespace quilla
