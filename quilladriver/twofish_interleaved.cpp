// Twofish in XTS mode with tables on 64-bit processors without vectors of 32 bytes: several blocks of a
// sector at once, so that the processor is never waiting for a look-up.

#include "platform/byte_order.h"
#include "platform/disk_codes.h"
#include "platform/wipe.h"
#include "quilladriver/kernels.h"
#include "quilladriver/twofish_keys.h"

#include <bit>

namespace quilla {

namespace {

constexpr std::size_t kBlocksPerSector = kSectorSize / kTwofishBlockSize;

/// Blocks worked on at once: fewer would leave the processor waiting, more would not fit its registers.
constexpr std::size_t kLanes = 3;

/// The four words of a block in each lane.
template <std::size_t kCount>
struct Blocks {
    std::uint32_t words[4][kCount];
};

/// A tweak, its low half first.
struct Tweak {
    std::uint64_t low;
    std::uint64_t high;
};

/// The function g of a word, and of a word rotated left by one byte.
QUILLA_INLINE std::uint32_t Mix(const TwofishSchedule& key, std::uint32_t x) {
    return key.tables[0][x & 0xFF] ^ key.tables[1][(x >> 8) & 0xFF] ^ key.tables[2][(x >> 16) & 0xFF] ^
           key.tables[3][x >> 24];
}
QUILLA_INLINE std::uint32_t MixTurned(const TwofishSchedule& key, std::uint32_t x) {
    return key.tables[1][x & 0xFF] ^ key.tables[2][(x >> 8) & 0xFF] ^ key.tables[3][(x >> 16) & 0xFF] ^
           key.tables[0][x >> 24];
}

template <bool kEncrypt, std::size_t kCount>
QUILLA_INLINE void Round(const TwofishSchedule& key, std::size_t round, const std::uint32_t (&a)[kCount],
                         const std::uint32_t (&b)[kCount], std::uint32_t (&c)[kCount],
                         std::uint32_t (&d)[kCount]) {
    for (std::size_t i = 0; i < kCount; ++i) {
        const std::uint32_t t1 = MixTurned(key, b[i]);
        const std::uint32_t sum = Mix(key, a[i]) + t1;
        const std::uint32_t f0 = sum + key.subkeys[8 + 2 * round];
        const std::uint32_t f1 = sum + t1 + key.subkeys[9 + 2 * round];
        if constexpr (kEncrypt) {
            c[i] = std::rotr(c[i] ^ f0, 1);
            d[i] = std::rotl(d[i], 1) ^ f1;
        } else {
            c[i] = std::rotl(c[i], 1) ^ f0;
            d[i] = std::rotr(d[i] ^ f1, 1);
        }
    }
}

template <bool kEncrypt, std::size_t kCount>
QUILLA_INLINE void Crypt(const TwofishSchedule& key, Blocks<kCount>& blocks) {
    auto& [a, b, c, d] = blocks.words;
#pragma GCC unroll 8
    for (std::size_t i = 0; i < 16; i += 2) {
        Round<kEncrypt>(key, kEncrypt ? i : 15 - i, a, b, c, d);
        Round<kEncrypt>(key, kEncrypt ? i + 1 : 14 - i, c, d, a, b);
    }
}

/// Multiplies by x in the field of IEEE 1619, polynomial x^128 + x^7 + x^2 + x + 1.
QUILLA_INLINE void Double(Tweak& tweak) {
    const std::uint64_t carry = (0U - (tweak.high >> 63)) & 0x87;
    tweak.high = tweak.high << 1 | tweak.low >> 63;
    tweak.low = tweak.low << 1 ^ carry;
}

/// Works on kCount consecutive blocks, the first of which has the tweak given; leaves that of the next.
template <bool kEncrypt, std::size_t kCount>
QUILLA_INLINE void CryptBlocks(const TwofishSchedule& key, std::byte* data, Tweak& tweak) {
    constexpr std::size_t kIn = kEncrypt ? 0 : 4;
    constexpr std::size_t kOut = kEncrypt ? 4 : 0;
    Blocks<kCount> blocks;
    Tweak tweaks[kCount];
    for (std::size_t i = 0; i < kCount; ++i) {
        const std::byte* const from = data + i * kTwofishBlockSize;
        tweaks[i] = tweak;
        Double(tweak);
        const std::uint64_t low = LoadLittle<std::uint64_t>(from) ^ tweaks[i].low;
        const std::uint64_t high = LoadLittle<std::uint64_t>(from + 8) ^ tweaks[i].high;
        blocks.words[0][i] = static_cast<std::uint32_t>(low) ^ key.subkeys[kIn];
        blocks.words[1][i] = static_cast<std::uint32_t>(low >> 32) ^ key.subkeys[kIn + 1];
        blocks.words[2][i] = static_cast<std::uint32_t>(high) ^ key.subkeys[kIn + 2];
        blocks.words[3][i] = static_cast<std::uint32_t>(high >> 32) ^ key.subkeys[kIn + 3];
    }
    Crypt<kEncrypt>(key, blocks);
    const auto join = [&](std::size_t i, std::size_t word, std::size_t subkey) {
        return std::uint64_t{blocks.words[word + 1][i] ^ key.subkeys[subkey + 1]} << 32 |
               (blocks.words[word][i] ^ key.subkeys[subkey]);
    };
    for (std::size_t i = 0; i < kCount; ++i) { // the halves come out exchanged
        std::byte* const to = data + i * kTwofishBlockSize;
        StoreLittle(to, join(i, 2, kOut) ^ tweaks[i].low);
        StoreLittle(to + 8, join(i, 0, kOut + 2) ^ tweaks[i].high);
    }
}

Tweak MakeTweak(const TwofishSchedule& schedule, std::uint64_t sector) {
    std::byte block[kTwofishBlockSize]{};
    StoreLittle(block, sector);
    TwofishEncryptBlock(schedule, block, block);
    return {.low = LoadLittle<std::uint64_t>(block), .high = LoadLittle<std::uint64_t>(block + 8)};
}

template <bool kEncrypt>
void Run(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& keys = *static_cast<const TwofishSchedulePair*>(opaque);
    Tweak tweak{};
    for (; count > 0; --count, ++sector) {
        tweak = MakeTweak(keys.tweak, sector);
        for (std::size_t i = 0; i < kBlocksPerSector / kLanes; ++i, data += kLanes * kTwofishBlockSize)
            CryptBlocks<kEncrypt, kLanes>(keys.data, data, tweak);
        constexpr std::size_t kRest = kBlocksPerSector % kLanes;
        if constexpr (kRest > 0)
            CryptBlocks<kEncrypt, kRest>(keys.data, data, tweak);
        data += kRest * kTwofishBlockSize;
    }
    Wipe(tweak);
}

} // namespace

const SectorKernel kTwofishInterleaved = {
    .cipher = CipherId::Twofish,
    .name = "tables, 3 abreast",
    .isSupported = [] { return true; },
    .scheduleSize = sizeof(TwofishSchedulePair),
    .setUp = BuildTwofishSchedules,
    .encrypt = Run<true>,
    .decrypt = Run<false>,
};

} // namespace quilla
