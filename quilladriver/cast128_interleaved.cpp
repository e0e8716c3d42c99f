// CAST-128 in CBC mode with tables on 64-bit processors: several sectors or blocks at once, so that the
// processor is never waiting for a look-up.

#include "quilladriver/cast128_interleaved.h"

#include "platform/byte_order.h"
#include "platform/disk_codes.h"
#include "quilladriver/kernels.h"

#include <algorithm>
#include <bit>

namespace quilla {

namespace {

constexpr std::size_t kBlocksPerSector = kSectorSize / kCastBlockSize;

/// Blocks worked on at once: fewer would leave a 64-bit processor waiting, more would not fit its registers.
constexpr std::size_t kLanes = 6;

/// The two halves of a block in each lane.
template <std::size_t kCount>
struct Halves {
    std::uint32_t left[kCount];
    std::uint32_t right[kCount];
};

/// The bytes of the rotated word that look up S1 to S4. The word comes rotated by 16 bits too many, which
/// brings the two that are needed first to where they are taken with one instruction each.
struct Indices {
    Indices(std::uint32_t mixed, std::uint32_t rotation) {
        const std::uint32_t word = std::rotl(mixed, static_cast<int>(rotation ^ 16));
        first = (word >> 8) & 0xFF;
        second = word & 0xFF;
        third = word >> 24;
        fourth = (word >> 16) & 0xFF;
    }
    std::uint32_t first, second, third, fourth;
};

constexpr auto& kBox1 = kCastSboxes[0];
constexpr auto& kBox2 = kCastSboxes[1];
constexpr auto& kBox3 = kCastSboxes[2];
constexpr auto& kBox4 = kCastSboxes[3];

QUILLA_INLINE std::uint32_t Mix1(std::uint32_t data, std::uint32_t masking, std::uint32_t rotation) {
    const Indices i(masking + data, rotation);
    return ((kBox1[i.first] ^ kBox2[i.second]) - kBox3[i.third]) + kBox4[i.fourth];
}
QUILLA_INLINE std::uint32_t Mix2(std::uint32_t data, std::uint32_t masking, std::uint32_t rotation) {
    const Indices i(masking ^ data, rotation);
    return ((kBox1[i.first] - kBox2[i.second]) + kBox3[i.third]) ^ kBox4[i.fourth];
}
QUILLA_INLINE std::uint32_t Mix3(std::uint32_t data, std::uint32_t masking, std::uint32_t rotation) {
    const Indices i(masking - data, rotation);
    return ((kBox1[i.first] + kBox2[i.second]) ^ kBox3[i.third]) - kBox4[i.fourth];
}

template <auto kMix, std::size_t kCount>
QUILLA_INLINE void Round(const CastSchedule& schedule, std::size_t round, std::uint32_t (&target)[kCount],
                         const std::uint32_t (&data)[kCount]) {
    const std::uint32_t masking = schedule.masking[round];
    const std::uint32_t rotation = schedule.rotation[round];
    for (std::size_t i = 0; i < kCount; ++i)
        target[i] ^= kMix(data[i], masking, rotation);
}

/// Sixteen rounds, unrolled; the halves come out exchanged.
template <std::size_t kCount>
QUILLA_INLINE void Encrypt(const CastSchedule& schedule, Halves<kCount>& block) {
    auto& [l, r] = block;
    Round<Mix1>(schedule, 0, l, r);
    Round<Mix2>(schedule, 1, r, l);
    Round<Mix3>(schedule, 2, l, r);
    Round<Mix1>(schedule, 3, r, l);
    Round<Mix2>(schedule, 4, l, r);
    Round<Mix3>(schedule, 5, r, l);
    Round<Mix1>(schedule, 6, l, r);
    Round<Mix2>(schedule, 7, r, l);
    Round<Mix3>(schedule, 8, l, r);
    Round<Mix1>(schedule, 9, r, l);
    Round<Mix2>(schedule, 10, l, r);
    Round<Mix3>(schedule, 11, r, l);
    Round<Mix1>(schedule, 12, l, r);
    Round<Mix2>(schedule, 13, r, l);
    Round<Mix3>(schedule, 14, l, r);
    Round<Mix1>(schedule, 15, r, l);
}

template <std::size_t kCount>
QUILLA_INLINE void Decrypt(const CastSchedule& schedule, Halves<kCount>& block) {
    auto& [l, r] = block;
    Round<Mix1>(schedule, 15, l, r);
    Round<Mix3>(schedule, 14, r, l);
    Round<Mix2>(schedule, 13, l, r);
    Round<Mix1>(schedule, 12, r, l);
    Round<Mix3>(schedule, 11, l, r);
    Round<Mix2>(schedule, 10, r, l);
    Round<Mix1>(schedule, 9, l, r);
    Round<Mix3>(schedule, 8, r, l);
    Round<Mix2>(schedule, 7, l, r);
    Round<Mix1>(schedule, 6, r, l);
    Round<Mix3>(schedule, 5, l, r);
    Round<Mix2>(schedule, 4, r, l);
    Round<Mix1>(schedule, 3, l, r);
    Round<Mix3>(schedule, 2, r, l);
    Round<Mix2>(schedule, 1, l, r);
    Round<Mix1>(schedule, 0, r, l);
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
QUILLA_INLINE void DecryptBlocks(const CastSchedule& schedule, std::byte* blocks, std::uint64_t& chain) {
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
    constexpr decltype(&EncryptLanes<1>) kByLanes[kLanes] = {
        EncryptLanes<1>, EncryptLanes<2>, EncryptLanes<3>, EncryptLanes<4>, EncryptLanes<5>, EncryptLanes<6>};
    while (count > 0) { // as few groups as possible, all of about the same size
        const std::size_t groups = (count + kLanes - 1) / kLanes;
        const std::size_t lanes = (count + groups - 1) / groups;
        kByLanes[lanes - 1](keys, sector, data);
        count -= lanes;
        sector += lanes;
        data += lanes * kSectorSize;
    }
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
    .name = "tables, 6 abreast",
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
