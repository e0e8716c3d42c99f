// The random pool's arithmetic against a slow model of its definition over another library's SHA-1
// compression, and the order in which a snapshot goes in.

#include "platform/byte_order.h"
#include "tests/support/hex.h"
#include "volume/random_pool.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <nettle/sha1.h>
#include <random>

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

/// 260 bytes: the pool and its spill.
void StirModel(Bytes& pool) {
    for (std::size_t offset = 0; offset <= 240; offset += 20) {
        std::uint32_t chain[5];
        std::memcpy(chain, &pool[offset], sizeof(chain));
        std::uint8_t block[64];
        for (std::size_t j = 0; j < 64; ++j) // little-endian words; the library reads big-endian ones
            block[j ^ 3] = std::to_integer<std::uint8_t>(pool[(offset + j) % 256]);
        nettle_sha1_compress(chain, block);
        std::memcpy(&pool[offset], chain, sizeof(chain));
    }
}

struct Model {
    Bytes pool;
    std::size_t position = 0;

    void Add(std::byte value) {
        if (position > 255) {
            StirModel(pool);
            position = 0;
        }
        pool[position] =
            static_cast<std::byte>(std::to_integer<int>(pool[position]) + std::to_integer<int>(value));
        ++position;
    }
    void AddBigEndian(std::uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            Add(static_cast<std::byte>(value >> shift));
    }
    template <typename Range>
    void AddAll(const Range& bytes) {
        for (const std::byte byte : bytes)
            Add(byte);
    }
};

class RandomPoolModel : public testing::Test {
  protected:
    void Randomize(std::span<std::byte> bytes) {
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(generator_());
    }

    /// The same random start for pool and model.
    void Start(EntropyPool& pool, Model& model) {
        Randomize(std::as_writable_bytes(std::span(&pool, 1)));
        pool.position = 0;
        model.pool.assign(260, std::byte{});
        std::memcpy(model.pool.data(), &pool, 260);
        model.position = 0;
    }

    static void ExpectEqual(const EntropyPool& pool, const Model& model) {
        EXPECT_EQ(ToHex(std::as_bytes(std::span(&pool, 1)).first(260)), ToHex(model.pool));
        EXPECT_EQ(pool.position, model.position);
    }

    std::mt19937 generator_{7};
};

TEST_F(RandomPoolModel, StirringAndAdding) {
    EntropyPool pool;
    Model model;
    for (const std::size_t count : {0U, 1U, 255U, 256U, 257U, 512U, 513U, 1000U}) {
        Start(pool, model);
        Bytes added(count);
        Randomize(added);
        AddBytes(pool, added);
        model.AddAll(added);
        ExpectEqual(pool, model);
        StirPool(pool);
        StirModel(model.pool);
        model.position = 0;
        ExpectEqual(pool, model);
    }
}

TEST_F(RandomPoolModel, SnapshotsGoInByTheirOrder) {
    for (const bool frequency : {false, true}) {
        for (const bool counter : {false, true}) {
            EntropySnapshot snapshot{};
            for (std::uint32_t& handle : snapshot.handles)
                handle = static_cast<std::uint32_t>(generator_());
            snapshot.processId = 0x01020304;
            snapshot.threadId = 0x11121314;
            snapshot.messagePosition = 0x21222324;
            snapshot.tickCount = 0x31323334;
            Randomize(snapshot.memoryStatus);
            Randomize(snapshot.systemInfo);
            Randomize(snapshot.counterFrequency);
            Randomize(snapshot.counter);
            Randomize(snapshot.systemTime);
            Randomize(snapshot.pointerHistory);
            snapshot.hasFrequency = frequency;
            snapshot.hasCounter = counter;

            EntropyPool pool;
            Model model;
            Start(pool, model);
            AddSnapshot(pool, snapshot);
            for (const std::uint32_t handle : snapshot.handles)
                model.AddBigEndian(handle);
            for (const std::uint32_t number : {0x01020304U, 0x11121314U, 0x21222324U, 0x31323334U})
                model.AddBigEndian(number);
            model.AddAll(snapshot.memoryStatus);
            model.AddAll(snapshot.systemInfo);
            if (frequency)
                model.AddAll(snapshot.counterFrequency);
            if (counter)
                model.AddAll(snapshot.counter);
            model.AddAll(snapshot.systemTime);
            model.AddAll(snapshot.pointerHistory);
            ExpectEqual(pool, model);
        }
    }
}

} // namespace
} // namespace quilla
