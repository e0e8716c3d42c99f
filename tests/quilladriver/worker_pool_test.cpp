// Jobs of many steps on several threads: nothing left out, nothing done twice, nothing begun after a failure.

#include "quilladriver/worker_pool.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace quilla {
namespace {

/// How often each step of a job ran.
using Counts = std::vector<std::atomic<int>>;

bool CountSteps(WorkerPool& pool, std::size_t steps) {
    Counts counts(steps);
    const bool succeeded = pool.ForEach(steps, [&](std::size_t index) {
        std::this_thread::yield(); // so that who does not wait for a helper's last step misses its count
        return ++counts[index] == 1;
    });
    return succeeded && std::ranges::all_of(counts, [](const auto& count) { return count == 1; });
}

TEST(WorkerPoolTest, BeginsNothingAfterAFailure) {
    WorkerPool pool;
    std::atomic<std::size_t> begun = 0;
    EXPECT_FALSE(pool.ForEach(1'000'000, [&](std::size_t index) {
        ++begun;
        return index != 10;
    }));
    EXPECT_LT(begun, 1'000'000U);
    EXPECT_TRUE(CountSteps(pool, 10));
}

struct Caller {
    WorkerPool* pool = nullptr;
    int faults = 0;
    Thread thread;

    static void Run(void* context) {
        auto& caller = *static_cast<Caller*>(context);
        for (std::size_t i = 0; i < 500; ++i)
            caller.faults += !CountSteps(*caller.pool, i % 7);
    }
};

TEST(WorkerPoolTest, ServesOneCallerAndSeveralAtOnce) {
    WorkerPool pool;
    for (std::size_t i = 0; i < 2000; ++i)
        ASSERT_TRUE(CountSteps(pool, i % 7)); // workers that come late find the job over
    std::array<Caller, 4> callers;
    for (Caller& caller : callers) {
        caller.pool = &pool;
        ASSERT_TRUE(caller.thread.Start(Caller::Run, &caller));
    }
    for (Caller& caller : callers) {
        caller.thread.Join();
        EXPECT_EQ(caller.faults, 0);
    }
}

} // namespace
} // namespace quilla
