// Threads, locks and conditions working together.

#include "platform/thread.h"

#include <array>
#include <gtest/gtest.h>

namespace quilla {
namespace {

struct Turnstile {
    Lock lock;
    Condition changed;
    int turns = 0;
};

void TakeThousandTurns(void* context) {
    auto& turnstile = *static_cast<Turnstile*>(context);
    for (int i = 0; i < 1000; ++i) {
        const LockGuard guard(turnstile.lock);
        ++turnstile.turns;
        turnstile.changed.WakeAll();
    }
}

TEST(ThreadTest, CountsExactlyAndWakesWaiters) {
    Turnstile turnstile;
    std::array<Thread, 4> threads;
    for (Thread& thread : threads)
        ASSERT_TRUE(thread.Start(TakeThousandTurns, &turnstile));
    {
        const LockGuard guard(turnstile.lock);
        while (turnstile.turns < 4000)
            turnstile.changed.Wait(turnstile.lock);
    }
    for (Thread& thread : threads)
        thread.Join();
    EXPECT_EQ(turnstile.turns, 4000);
}

TEST(ThreadTest, ConditionWaitEndsWithTime) {
    Lock lock;
    Condition never;
    const LockGuard guard(lock);
    EXPECT_FALSE(never.WaitFor(lock, 20));
}

} // namespace
} // namespace quilla
