// The random pool against a slow model of its definition over another library's SHA-1 compression.

#include "platform/byte_order.h"
#include "tests/support/random_bytes.h"
#include "volume/random_pool.h"

#include <cstring>
#include <gtest/gtest.h>
#include <nettle/sha1.h>
#include <set>

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

/// The pool, its spill and its position as defined, byte by byte.
class PoolModel {
  public:
    explicit PoolModel(const EntropyPool& start) : pool_(260) { std::memcpy(pool_.data(), &start, 260); }

    void Add(std::span<const std::byte> bytes) {
        for (const std::byte byte : bytes) {
            if (position_ > 255)
                Stir();
            std::byte& place = pool_[position_++];
            place = static_cast<std::byte>(std::to_integer<int>(place) + std::to_integer<int>(byte));
        }
    }
    void AddNumber(std::uint32_t value) {
        std::byte bytes[4];
        StoreBig(bytes, value);
        Add(bytes);
    }
    void Stir() {
        for (std::size_t offset = 0; offset <= 240; offset += 20) {
            std::uint32_t chain[5];
            std::memcpy(chain, &pool_[offset], sizeof(chain));
            std::uint8_t block[64];
            for (std::size_t j = 0; j < 64; ++j) // little-endian words; the library reads big-endian ones
                block[j ^ 3] = std::to_integer<std::uint8_t>(pool_[(offset + j) % 256]);
            nettle_sha1_compress(chain, block);
            std::memcpy(&pool_[offset], chain, sizeof(chain));
        }
        position_ = 0;
    }
    void ExpectEqual(const EntropyPool& pool) const {
        EXPECT_EQ(ToHex(std::as_bytes(std::span(&pool, 1)).first(260)), ToHex(pool_));
        EXPECT_EQ(pool.position, position_);
    }

  private:
    Bytes pool_;
    std::size_t position_ = 0;
};

/// A snapshot is long enough to go through the pool more than twice.
TEST(RandomPool, SnapshotsGoInByTheirOrderAndAreStirred) {
    test::RandomBytes random(8);
    for (const unsigned available : {0U, 1U, 2U, 3U}) {
        EntropyPool pool;
        EntropySnapshot snapshot;
        random.Fill(std::as_writable_bytes(std::span(&pool, 1)));
        random.Fill(std::as_writable_bytes(std::span(&snapshot, 1)));
        pool.position = 0;
        snapshot.hasFrequency = (available & 1) != 0;
        snapshot.hasCounter = (available & 2) != 0;

        PoolModel model(pool);
        AddSnapshot(pool, snapshot);
        for (const std::uint32_t handle : snapshot.handles)
            model.AddNumber(handle);
        for (const std::uint32_t number :
             {snapshot.processId, snapshot.threadId, snapshot.messagePosition, snapshot.tickCount})
            model.AddNumber(number);
        model.Add(snapshot.memoryStatus);
        model.Add(snapshot.systemInfo);
        if (snapshot.hasFrequency)
            model.Add(snapshot.counterFrequency);
        if (snapshot.hasCounter)
            model.Add(snapshot.counter);
        model.Add(snapshot.systemTime);
        model.Add(snapshot.pointerHistory);
        model.ExpectEqual(pool);
        StirPool(pool);
        model.Stir();
        model.ExpectEqual(pool);
    }
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
