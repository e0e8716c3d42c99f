// What a caller sees of the random pool; its arithmetic is checked in random_pool_oracle_test.cpp.

#include "tests/support/hex.h"
#include "volume/random_pool.h"

#include <gtest/gtest.h>
#include <set>
#include <string>
#ifdef _WIN32
#include "platform/byte_order.h"

#include <windows.h>
#endif

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

TEST(RandomFill, GivesAtMost256Bytes) {
    for (const std::size_t size : {0U, 1U, 20U, 128U, 256U, 300U}) {
        Bytes buffer(size + 8, std::byte{0xA5});
        EXPECT_EQ(RandomFill(std::span(buffer).first(size)), std::min<std::size_t>(size, 256));
        for (std::size_t i = std::min<std::size_t>(size, 256); i < buffer.size(); ++i)
            EXPECT_EQ(buffer[i], std::byte{0xA5}) << "of " << size << " at " << i;
    }
}

TEST(RandomFill, NeverRepeatsAndLooksEven) {
    std::set<std::string> seen;
    std::size_t bits = 0;
    constexpr int kRequests = 500;
    for (int i = 0; i < kRequests; ++i) {
        Bytes buffer(256);
        RandomFill(buffer);
        EXPECT_TRUE(seen.insert(ToHex(std::span(buffer).first(20))).second);
        for (const std::byte byte : buffer)
            bits += static_cast<std::size_t>(std::popcount(std::to_integer<unsigned>(byte)));
    }
    // Half of the bits are set, give or take: six standard deviations are 3,036 here.
    constexpr double kBits = 256.0 * 8 * kRequests;
    EXPECT_NEAR(static_cast<double>(bits), kBits / 2, 3100);
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
    EXPECT_LE(LoadLittle<std::uint32_t>(&snapshot.memoryStatus[4]), 100U); // per cent in use
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
