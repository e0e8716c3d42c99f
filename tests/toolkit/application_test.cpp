// The message loop: idle turns, quitting, nesting and messages dealt with before their dispatch.

#include "tests/toolkit/recorder.h"
#include "tests/toolkit/toolkit_fixture.h"

namespace quilla {
namespace {

using test::Frame;
using test::Owned;

constexpr UINT kPing = WM_APP + 1;

class Application : public test::ToolkitTest {
  protected:
    template <typename Base>
    class Counter : public Base {
      public:
        LRESULT OnMessage(BMessage& message) override {
            if (message.message != kPing)
                return Base::OnMessage(message);
            ++pings;
            idleAtPing = static_cast<test::TestApplication*>(BApplication::Current())->idleCount;
            if (message.wParam > 0)
                PostMessageW(this->hwnd, kPing, message.wParam - 1, 0);
            return 0;
        }
        bool PreTranslate(MSG& message) override {
            ++preTranslated;
            return message.message == kPing && eatPings;
        }
        int pings = 0;
        int preTranslated = 0;
        int idleAtPing = -1;
        bool eatPings = false;
    };

    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_NE(child.Create(frame.hwnd, nullptr, 1), nullptr);
        application.PumpPending();
        frame.preTranslated = child.preTranslated = 0;
        application.idleCount = 0;
    }

    Owned<Counter<Frame>> frame;
    Counter<BWindow> child;
};

TEST_F(Application, RunReturnsTheQuitCode) {
    PostQuitMessage(0x1234);
    EXPECT_EQ(application.Run(), 0x1234);
    PostQuitMessage(-1);
    EXPECT_EQ(application.Run(), -1);
}

TEST_F(Application, IdleOncePerDrainedQueueBeforeWaiting) {
    // 50 messages, each posting the next: the queue never runs dry between them.
    PostMessageW(frame.hwnd, kPing, 49, 0);
    application.Play({{[&] { return frame.pings == 50; },
                       [&] {
                           EXPECT_EQ(frame.idleAtPing, 0) << "a busy queue is not idle";
                           EXPECT_EQ(application.idleCount, 1);
                           PostMessageW(frame.hwnd, kPing, 0, 0);
                       }},
                      {[&] { return frame.pings == 51; },
                       [&] {
                           EXPECT_EQ(frame.idleAtPing, 1);
                           EXPECT_EQ(application.idleCount, 2);
                           PostQuitMessage(3);
                       }}});

    EXPECT_EQ(application.Run(), 3);
    EXPECT_TRUE(application.PlayedToTheEnd());
}

TEST_F(Application, QuitEndsTheInnermostRun) {
    int inner = 0;
    application.Play({{[] { return true; }, [&] { inner = application.Run(); }},
                      {[] { return true; }, [] { PostQuitMessage(1); }},
                      {[] { return true; },
                       [&] {
                           EXPECT_EQ(inner, 1);
                           PostQuitMessage(2);
                       }}});
    EXPECT_EQ(application.Run(), 2);
}

TEST_F(Application, PumpPendingEmptiesTheQueueAndReturns) {
    PostMessageW(frame.hwnd, kPing, 9, 0);
    application.PumpPending();
    EXPECT_EQ(frame.pings, 10);
    MSG message;
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(application.idleCount, 0);
    application.PumpPending();
}

TEST_F(Application, MessagesAreOfferedUpTheParents) {
    PostMessageW(child.hwnd, kPing, 0, 0);
    application.PumpPending();
    EXPECT_EQ(child.preTranslated, 1);
    EXPECT_EQ(frame.preTranslated, 1);
    EXPECT_EQ(child.pings, 1);

    frame.eatPings = true;
    PostMessageW(child.hwnd, kPing, 0, 0);
    application.PumpPending();
    EXPECT_EQ(child.pings, 1) << "dealt with by the parent";
    child.eatPings = true;
    PostMessageW(child.hwnd, kPing, 0, 0);
    application.PumpPending();
    EXPECT_EQ(frame.preTranslated, 2) << "dealt with by the child";

    MSG forThread = {};
    forThread.message = kPing;
    EXPECT_FALSE(application.PreTranslateMessage(forThread));
}

TEST_F(Application, ThereIsOne) {
    EXPECT_EQ(BApplication::Current(), &application);
    EXPECT_EQ(application.currentMessage, nullptr);
}

} // namespace
} // namespace quilla
