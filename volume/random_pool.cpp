#include "volume/random_pool.h"

#include "platform/byte_order.h"
#include "platform/random.h"
#include "platform/wipe.h"
#include "volume/sha1.h"

#include <algorithm>
#include <cstring>

namespace quilla {

namespace {

constexpr std::size_t kDigestSize = 20;
constexpr std::size_t kBlockWords = 16;

static_assert(offsetof(EntropyPool, spill) == kRandomPoolSize, "stirring runs over both as one");

/// A 64-byte block from an offset on, going round at the pool's end.
void ReadBlock(std::uint32_t (&words)[kBlockWords], const EntropyPool& pool, std::size_t offset) {
    std::byte block[4 * kBlockWords];
    for (std::size_t i = 0; i < sizeof(block); ++i)
        block[i] = pool.pool[(offset + i) % kRandomPoolSize];
    for (std::size_t i = 0; i < kBlockWords; ++i)
        words[i] = LoadLittle<std::uint32_t>(block + 4 * i);
    Wipe(block);
}

} // namespace

void AddByte(EntropyPool& pool, std::byte value) {
    if (pool.position >= kRandomPoolSize)
        StirPool(pool);
    std::byte& place = pool.pool[pool.position++];
    place = static_cast<std::byte>(std::to_integer<unsigned>(place) + std::to_integer<unsigned>(value));
}

void AddNumber(EntropyPool& pool, std::uint32_t value) {
    std::byte bytes[4];
    StoreBig(bytes, value);
    AddBytes(pool, bytes);
}

void AddBytes(EntropyPool& pool, std::span<const std::byte> bytes) {
    for (const std::byte byte : bytes)
        AddByte(pool, byte);
}

void AddSnapshot(EntropyPool& pool, const EntropySnapshot& snapshot) {
    for (const std::uint32_t handle : snapshot.handles)
        AddNumber(pool, handle);
    for (const std::uint32_t number :
         {snapshot.processId, snapshot.threadId, snapshot.messagePosition, snapshot.tickCount})
        AddNumber(pool, number);
    AddBytes(pool, snapshot.memoryStatus);
    AddBytes(pool, snapshot.systemInfo);
    if (snapshot.hasFrequency)
        AddBytes(pool, snapshot.counterFrequency);
    if (snapshot.hasCounter)
        AddBytes(pool, snapshot.counter);
    AddBytes(pool, snapshot.systemTime);
    AddBytes(pool, snapshot.pointerHistory);
}

void StirPool(EntropyPool& pool) {
    std::byte* const bytes = reinterpret_cast<std::byte*>(&pool);
    std::uint32_t chain[5];
    std::uint32_t words[kBlockWords];
    for (std::size_t offset = 0; offset < kRandomPoolSize; offset += kDigestSize) {
        ReadBlock(words, pool, offset);
        for (std::size_t i = 0; i < 5; ++i)
            chain[i] = LoadLittle<std::uint32_t>(bytes + offset + 4 * i);
        Sha1Compress(chain, words);
        for (std::size_t i = 0; i < 5; ++i)
            StoreLittle(bytes + offset + 4 * i, chain[i]);
    }
    pool.position = 0;
    Wipe(chain);
    Wipe(words);
}

std::size_t RandomFill(std::span<std::byte> buffer) {
    Secret<EntropyPool> pool;
    if (!FillFromSystemRandom(std::as_writable_bytes(std::span(&*pool, 1))))
        return 0;
    pool->position = 0;
    Secret<EntropySnapshot> snapshot;
    TakeEntropySnapshot(*snapshot);
    AddSnapshot(*pool, *snapshot);
    StirPool(*pool);
    const std::size_t count = std::min(buffer.size(), kRandomPoolSize);
    std::memcpy(buffer.data(), pool->pool, count);
    return count;
}

} // namespace quilla
