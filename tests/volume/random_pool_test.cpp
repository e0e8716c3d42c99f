// What a caller sees of the random pool; its arithmetic is checked in random_pool_oracle_test.cpp.

#include "platform/byte_order.h"
#include "tests/support/hex.h"
#include "volume/random_pool.h"

#include <gtest/gtest.h>
#include <set>
#include <string>
#ifdef _WIN32
#include <windows.h>
#endif

namespace quilla {
namespace {

using test::Bytes;

TEST(RandomFill, GivesAtMost256BytesAndNeverTheSame) {
    std::set<std::string> seen;
    for (const std::size_t size : {0U, 1U, 20U, 20U, 128U, 128U, 256U, 300U}) {
        Bytes buffer(size + 8, std::byte{0xA5});
        const std::size_t count = std::min<std::size_t>(size, 256);
        EXPECT_EQ(RandomFill(std::span(buffer).first(size)), count);
        for (std::size_t i = count; i < buffer.size(); ++i)
            EXPECT_EQ(buffer[i], std::byte{0xA5}) << "of " << size << " at " << i;
        EXPECT_TRUE(seen.insert(test::ToHex(std::span(buffer).first(count))).second);
    }
}

#ifdef _WIN32
TEST(EntropySnapshot, HoldsTheSystemState) {
    EntropySnapshot snapshot{};
    TakeEntropySnapshot(snapshot);
    EXPECT_EQ(snapshot.processId, GetCurrentProcessId());
    EXPECT_EQ(snapshot.threadId, GetCurrentThreadId());
    EXPECT_EQ(snapshot.handles[4],
              static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(GetProcessHeap())));
    EXPECT_LE(GetTickCount() - snapshot.tickCount, 60'000U);
    EXPECT_EQ(LoadLittle<std::uint32_t>(snapshot.memoryStatus.data()), 32U);
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    EXPECT_EQ(LoadLittle<std::uint32_t>(&snapshot.systemInfo[4]), info.dwPageSize);
    EXPECT_EQ(LoadLittle<std::uint32_t>(&snapshot.systemInfo[20]), info.dwNumberOfProcessors);
    EXPECT_EQ(LoadLittle<std::uint16_t>(&snapshot.systemInfo[34]), info.wProcessorRevision);
    SYSTEMTIME now;
    GetSystemTime(&now);
    EXPECT_EQ(LoadLittle<std::uint16_t>(snapshot.systemTime.data()), now.wYear);
    EXPECT_TRUE(snapshot.hasCounter);
}
#endif

} // namespace
} // namespace quilla
