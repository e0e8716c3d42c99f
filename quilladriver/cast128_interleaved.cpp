#include "quilladriver/cast128_interleaved.h"

#include "platform/byte_order.h"
#include "platform/disk_codes.h"
#include "quilladriver/kernels.h"

#include <algorithm>

namespace quilla {

namespace {

constexpr std::size_t kBlocksPerSector = kSectorSize / kCastBlockSize;

/// Blocks worked on at once; more would not fit a 64-bit processor's registers, fewer would leave it waiting.
constexpr std::size_t kLanes = 5;

/// The two halves of a block in each lane.
template <std::size_t kCount>
struct Halves {
    std::uint32_t left[kCount];
    std::uint32_t right[kCount];
};

template <auto RoundFunction, std::size_t kCount>
[[gnu::always_inline]] inline void Round(const CastSchedule& schedule, std::size_t round,
                                         std::uint32_t (&target)[kCount],
                                         const std::uint32_t (&data)[kCount]) {
    const std::uint32_t masking = schedule.masking[round];
    const std::uint32_t rotation = schedule.rotation[round];
    for (std::size_t i = 0; i < kCount; ++i)
        target[i] ^= RoundFunction(data[i], masking, rotation);
}

/// Sixteen rounds, unrolled; the halves come out exchanged.
template <std::size_t kCount>
[[gnu::always_inline]] inline void Encrypt(const CastSchedule& schedule, Halves<kCount>& block) {
    auto& [l, r] = block;
    Round<CastRound1>(schedule, 0, l, r);
    Round<CastRound2>(schedule, 1, r, l);
    Round<CastRound3>(schedule, 2, l, r);
    Round<CastRound1>(schedule, 3, r, l);
    Round<CastRound2>(schedule, 4, l, r);
    Round<CastRound3>(schedule, 5, r, l);
    Round<CastRound1>(schedule, 6, l, r);
    Round<CastRound2>(schedule, 7, r, l);
    Round<CastRound3>(schedule, 8, l, r);
    Round<CastRound1>(schedule, 9, r, l);
    Round<CastRound2>(schedule, 10, l, r);
    Round<CastRound3>(schedule, 11, r, l);
    Round<CastRound1>(schedule, 12, l, r);
    Round<CastRound2>(schedule, 13, r, l);
    Round<CastRound3>(schedule, 14, l, r);
    Round<CastRound1>(schedule, 15, r, l);
}

template <std::size_t kCount>
[[gnu::always_inline]] inline void Decrypt(const CastSchedule& schedule, Halves<kCount>& block) {
    auto& [l, r] = block;
    Round<CastRound1>(schedule, 15, l, r);
    Round<CastRound3>(schedule, 14, r, l);
    Round<CastRound2>(schedule, 13, l, r);
    Round<CastRound1>(schedule, 12, r, l);
    Round<CastRound3>(schedule, 11, l, r);
    Round<CastRound2>(schedule, 10, r, l);
    Round<CastRound1>(schedule, 9, l, r);
    Round<CastRound3>(schedule, 8, r, l);
    Round<CastRound2>(schedule, 7, l, r);
    Round<CastRound1>(schedule, 6, r, l);
    Round<CastRound3>(schedule, 5, l, r);
    Round<CastRound2>(schedule, 4, r, l);
    Round<CastRound1>(schedule, 3, l, r);
    Round<CastRound3>(schedule, 2, r, l);
    Round<CastRound2>(schedule, 1, l, r);
    Round<CastRound1>(schedule, 0, r, l);
}

/// The IVs of consecutive sectors, as blocks whose halves are exchanged like those of an enciphered block.
template <std::size_t kCount>
Halves<kCount> MakeIvs(const CastSchedule& schedule, std::uint64_t sector) {
    Halves<kCount> block;
    for (std::size_t i = 0; i < kCount; ++i) {
        const std::uint64_t number = SwapBytes(sector + i);
        block.left[i] = static_cast<std::uint32_t>(number >> 32);
        block.right[i] = static_cast<std::uint32_t>(number);
    }
    Encrypt(schedule, block);
    return block;
}

template <std::size_t kCount>
void EncryptLanes(const CastKeyPair& keys, std::uint64_t sector, std::byte* sectors) {
    Halves<kCount> chain = MakeIvs<kCount>(keys.iv, sector);
    for (std::byte* block = sectors; block != sectors + kSectorSize; block += kCastBlockSize) {
        Halves<kCount> work;
        for (std::size_t i = 0; i < kCount; ++i) {
            const std::byte* const from = block + i * kSectorSize;
            work.left[i] = chain.right[i] ^ LoadBig<std::uint32_t>(from);
            work.right[i] = chain.left[i] ^ LoadBig<std::uint32_t>(from + 4);
        }
        Encrypt(keys.data, work);
        for (std::size_t i = 0; i < kCount; ++i) {
            std::byte* const to = block + i * kSectorSize;
            StoreBig(to, work.right[i]);
            StoreBig(to + 4, work.left[i]);
        }
        chain = work;
    }
}

/// Deciphers kCount consecutive blocks, each XORed with the enciphered block before it.
template <std::size_t kCount>
[[gnu::always_inline]] inline void DecryptBlocks(const CastSchedule& schedule, std::byte* blocks,
                                                 std::uint64_t& chain) {
    std::uint64_t enciphered[kCount];
    Halves<kCount> work;
    for (std::size_t i = 0; i < kCount; ++i) {
        enciphered[i] = LoadBig<std::uint64_t>(blocks + i * kCastBlockSize);
        work.left[i] = static_cast<std::uint32_t>(enciphered[i] >> 32);
        work.right[i] = static_cast<std::uint32_t>(enciphered[i]);
    }
    Decrypt(schedule, work);
    for (std::size_t i = 0; i < kCount; ++i) {
        const std::uint64_t plain = std::uint64_t{work.right[i]} << 32 | work.left[i];
        StoreBig(blocks + i * kCastBlockSize, plain ^ chain);
        chain = enciphered[i];
    }
}

void DecryptSector(const CastSchedule& schedule, std::uint64_t iv, std::byte* data) {
    for (std::size_t i = 0; i < kBlocksPerSector / kLanes; ++i, data += kLanes * kCastBlockSize)
        DecryptBlocks<kLanes>(schedule, data, iv);
    DecryptBlocks<kBlocksPerSector % kLanes>(schedule, data, iv);
}

void SetUp(void* opaque, const DataKey& key) {
    BuildCastKeys(*static_cast<CastKeyPair*>(opaque), key);
}

} // namespace

void CastEncryptSectors(const CastKeyPair& keys, std::uint64_t sector, std::byte* data, std::size_t count) {
    static_assert(kLanes == 5);
    constexpr decltype(&EncryptLanes<1>) kRest[] = {EncryptLanes<1>, EncryptLanes<2>, EncryptLanes<3>,
                                                    EncryptLanes<4>};
    for (; count >= kLanes; count -= kLanes, sector += kLanes, data += kLanes * kSectorSize)
        EncryptLanes<kLanes>(keys, sector, data);
    if (count > 0)
        kRest[count - 1](keys, sector, data);
}

void CastDecryptSectors(const CastKeyPair& keys, std::uint64_t sector, std::byte* data, std::size_t count) {
    while (count > 0) {
        const Halves<kLanes> ivs = MakeIvs<kLanes>(keys.iv, sector);
        const std::size_t batch = std::min(count, kLanes);
        for (std::size_t i = 0; i < batch; ++i, data += kSectorSize)
            DecryptSector(keys.data, std::uint64_t{ivs.right[i]} << 32 | ivs.left[i], data);
        sector += batch;
        count -= batch;
    }
}

const SectorKernel kCast128Interleaved = {
    .cipher = CipherId::Cast128,
    .name = "tables, 5 abreast",
    .isConstantTime = false,
    .isSupported = [] { return true; },
    .scheduleSize = sizeof(CastKeyPair),
    .setUp = SetUp,
    .encrypt =
        [](const void* schedule, std::uint64_t sector, std::byte* data, std::size_t count) {
            CastEncryptSectors(*static_cast<const CastKeyPair*>(schedule), sector, data, count);
        },
    .decrypt =
        [](const void* schedule, std::uint64_t sector, std::byte* data, std::size_t count) {
            CastDecryptSectors(*static_cast<const CastKeyPair*>(schedule), sector, data, count);
        },
};

} // namespace quilla
