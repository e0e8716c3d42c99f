// The random pool: what goes in is mixed as defined, and what comes out never repeats.

#include "tests/support/hex.h"
#include "volume/crc32.h"
#include "volume/random_pool.h"

#include <gtest/gtest.h>
#include <numeric>
#include <set>

namespace quilla {
namespace {

using test::Bytes;

template <typename T>
void FillByNumber(T& bytes, std::uint8_t first) {
    auto* const begin = reinterpret_cast<std::uint8_t*>(&bytes);
    std::iota(begin, begin + sizeof(bytes), first);
}

/// A snapshot is long enough to go through the pool more than twice. The checksum comes from a byte by byte
/// model over nettle's SHA-1 compression.
TEST(RandomPool, ASnapshotGoesInAndIsStirred) {
    EntropyPool pool;
    EntropySnapshot snapshot;
    FillByNumber(pool, 0);
    pool.position = 0;
    FillByNumber(snapshot, 1);
    snapshot.hasFrequency = snapshot.hasCounter = true;
    AddSnapshot(pool, snapshot);
    StirPool(pool);
    EXPECT_EQ(Crc32(std::as_bytes(std::span(&pool, 1))), 0x75A8019CU);
}

TEST(RandomPool, TakesInNothingThatTheSystemLacks) {
    EntropySnapshot snapshot;
    FillByNumber(snapshot, 1);
    const auto stir = [&snapshot](bool hasFrequency, bool hasCounter, std::byte content) {
        EntropyPool pool{};
        snapshot.hasFrequency = hasFrequency;
        snapshot.hasCounter = hasCounter;
        snapshot.counterFrequency.fill(hasFrequency ? std::byte{7} : content);
        snapshot.counter.fill(hasCounter ? std::byte{8} : content);
        AddSnapshot(pool, snapshot);
        StirPool(pool);
        return Crc32(std::as_bytes(std::span(&pool, 1)));
    };
    std::set<std::uint32_t> sums;
    for (const auto& [hasFrequency, hasCounter] : {std::pair(false, false), {false, true}, {true, false}}) {
        const std::uint32_t sum = stir(hasFrequency, hasCounter, std::byte{0});
        EXPECT_EQ(sum, stir(hasFrequency, hasCounter, std::byte{0x55}));
        sums.insert(sum);
    }
    EXPECT_EQ(sums.size(), 3U);
}

TEST(RandomPool, GivesAtMost256BytesAndNeverTheSame) {
    std::set<Bytes> seen;
    for (const std::size_t size : {20U, 20U, 128U, 128U, 300U}) {
        Bytes buffer(size);
        const std::size_t count = RandomFill(buffer);
        EXPECT_EQ(count, std::min<std::size_t>(size, 256));
        for (std::size_t i = count; i < size; ++i)
            EXPECT_EQ(buffer[i], std::byte{0}) << "of " << size << " at " << i;
        EXPECT_TRUE(seen.insert(buffer).second);
    }
}

} // namespace
} // namespace quilla
