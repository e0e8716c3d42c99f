// CAST-128 in CBC mode with AVX-512 VBMI: 64 blocks at a time, which are one sector to be deciphered or one
// block of each of 64 sectors to be enciphered. No memory address depends on the key or the data, except in
// runs too short to fill the lanes, which are enciphered with tables.
//
// The words of the blocks lie in registers of 16. For the S-boxes they are split into registers of 64 equal
// bytes; an S-box of 256 words is four tables of 256 bytes, and a look-up in one of these is two byte
// permutations over 128 entries each and a selection by the top bit.

#include "platform/processor.h"
#include "platform/wipe.h"
#include "quilladriver/avx512_bytes.h"
#include "quilladriver/cast128_interleaved.h"
#include "quilladriver/kernels.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace quilla {

namespace {

using avx512::Vector;

constexpr std::size_t kSectorBytes = 512;
constexpr std::size_t kBlockBytes = 8;
constexpr std::size_t kLanes = 64;
constexpr std::size_t kVectors = 4;      ///< that hold one half of all lanes
constexpr std::size_t kBlockVectors = 8; ///< that hold whole blocks of all lanes

/// Shorter runs are enciphered faster by tables.
constexpr std::size_t kFewestSectors = 26;

struct Schedule {
    avx512::Table boxes[4][4]; ///< S1 to S4, each by bytes of its words, low byte first, each in quarters
    CastKeyPair keys;
};

using Half = avx512::Words;

struct Batch {
    Half left;
    Half right;
};

/// Splits words into their bytes.
QUILLA_INLINE void SplitWords(const Half& words, avx512::Bytes& bytes) {
    avx512::SplitBytes(
        words, _mm512_broadcast_i32x4(_mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15)),
        bytes);
}

/// Looks up 64 bytes in one S-box; the words come out by their bytes.
QUILLA_INLINE void Substitute(const avx512::Table (&box)[4], Vector x, avx512::Bytes& bytes) {
    for (std::size_t i = 0; i < 4; ++i)
        bytes[i] = avx512::LookUp(box[i], x);
}

enum class Operation { Add, Subtract, Xor };

template <Operation kOperation>
QUILLA_INLINE Vector Apply(Vector a, Vector b) {
    if constexpr (kOperation == Operation::Add)
        return _mm512_add_epi32(a, b);
    else if constexpr (kOperation == Operation::Subtract)
        return _mm512_sub_epi32(a, b);
    else
        return _mm512_xor_si512(a, b);
}

template <Operation kOperation>
QUILLA_INLINE void Combine(Half& sum, const Vector (&box)[4][4], Vector x) {
    Vector bytes[4];
    Half words;
    Substitute(box, x, bytes);
    avx512::JoinBytes(bytes, words);
    for (std::size_t i = 0; i < kVectors; ++i)
        sum[i] = Apply<kOperation>(sum[i], words[i]);
}

/// XORs the round function of one half into the other. Not inlined: sixteen copies would not fit the
/// processor's instruction cache.
template <Operation kMix, Operation kSecond, Operation kThird, Operation kFourth>
[[gnu::noinline]] void Round(const Schedule& schedule, const CastSchedule& key, std::size_t round,
                             Half& target, const Half& data) {
    const Vector masking = _mm512_set1_epi32(static_cast<int>(key.masking[round]));
    const Vector rotation = _mm512_set1_epi32(static_cast<int>(key.rotation[round]));
    Half words;
    for (std::size_t i = 0; i < kVectors; ++i)
        words[i] = _mm512_rolv_epi32(Apply<kMix>(masking, data[i]), rotation);
    Vector bytes[4];
    SplitWords(words, bytes);

    Half sum;
    Vector first[4];
    Substitute(schedule.boxes[0], bytes[3], first);
    avx512::JoinBytes(first, sum);
    Combine<kSecond>(sum, schedule.boxes[1], bytes[2]);
    Combine<kThird>(sum, schedule.boxes[2], bytes[1]);
    Combine<kFourth>(sum, schedule.boxes[3], bytes[0]);
    for (std::size_t i = 0; i < kVectors; ++i)
        target[i] = _mm512_xor_si512(target[i], sum[i]);
}

/// The three kinds of rounds of RFC 2144, section 2.2, used in turn.
constexpr decltype(&Round<Operation::Add, Operation::Xor, Operation::Subtract, Operation::Add>) kRounds[3] = {
    Round<Operation::Add, Operation::Xor, Operation::Subtract, Operation::Add>,
    Round<Operation::Xor, Operation::Subtract, Operation::Add, Operation::Xor>,
    Round<Operation::Subtract, Operation::Add, Operation::Xor, Operation::Subtract>};

/// All rounds; the halves come out exchanged.
template <bool kEncrypt>
void CryptBatch(const Schedule& schedule, const CastSchedule& key, Batch& batch) {
    for (std::size_t i = 0; i < kCastRounds; i += 2) {
        const std::size_t even = kEncrypt ? i : kCastRounds - 1 - i;
        const std::size_t odd = kEncrypt ? even + 1 : even - 1;
        kRounds[even % 3](schedule, key, even, batch.left, batch.right);
        kRounds[odd % 3](schedule, key, odd, batch.right, batch.left);
    }
}

/// Exchanges the bytes of each word: blocks are big-endian.
QUILLA_INLINE Vector SwapWordBytes(Vector v) {
    return _mm512_shuffle_epi8(
        v, _mm512_broadcast_i32x4(_mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12)));
}

/// Takes 64 blocks apart into their halves.
QUILLA_INLINE void TakeBlocks(const Vector (&blocks)[kBlockVectors], Batch& batch) {
    const Vector even = _mm512_set_epi32(30, 28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
    const Vector odd = _mm512_set_epi32(31, 29, 27, 25, 23, 21, 19, 17, 15, 13, 11, 9, 7, 5, 3, 1);
    for (std::size_t i = 0; i < kVectors; ++i) {
        const Vector a = SwapWordBytes(blocks[2 * i]);
        const Vector b = SwapWordBytes(blocks[2 * i + 1]);
        batch.left[i] = _mm512_permutex2var_epi32(a, even, b);
        batch.right[i] = _mm512_permutex2var_epi32(a, odd, b);
    }
}

/// Puts 64 blocks together, the halves exchanged.
QUILLA_INLINE void GiveBlocks(const Batch& batch, Vector (&blocks)[kBlockVectors]) {
    const Vector lower = _mm512_set_epi32(23, 7, 22, 6, 21, 5, 20, 4, 19, 3, 18, 2, 17, 1, 16, 0);
    const Vector upper = _mm512_set_epi32(31, 15, 30, 14, 29, 13, 28, 12, 27, 11, 26, 10, 25, 9, 24, 8);
    for (std::size_t i = 0; i < kVectors; ++i) {
        blocks[2 * i] = SwapWordBytes(_mm512_permutex2var_epi32(batch.right[i], lower, batch.left[i]));
        blocks[2 * i + 1] = SwapWordBytes(_mm512_permutex2var_epi32(batch.right[i], upper, batch.left[i]));
    }
}

/// The IVs of 64 consecutive sectors.
void MakeIvs(const Schedule& schedule, std::uint64_t sector, Vector (&ivs)[kBlockVectors]) {
    Vector numbers = _mm512_add_epi64(_mm512_set1_epi64(static_cast<long long>(sector)),
                                      _mm512_set_epi64(7, 6, 5, 4, 3, 2, 1, 0));
    for (Vector& iv : ivs) {
        iv = numbers;
        numbers = _mm512_add_epi64(numbers, _mm512_set1_epi64(8));
    }
    Batch batch;
    TakeBlocks(ivs, batch);
    CryptBatch<true>(schedule, schedule.keys.iv, batch);
    GiveBlocks(batch, ivs);
}

void DecryptSector(const Schedule& schedule, std::uint64_t iv, std::byte* sector) {
    Vector blocks[kBlockVectors];
    Batch batch;
    for (std::size_t i = 0; i < kBlockVectors; ++i)
        blocks[i] = _mm512_loadu_si512(sector + 64 * i);
    TakeBlocks(blocks, batch);
    const Vector beforeFirst =
        _mm512_alignr_epi64(blocks[0], _mm512_set1_epi64(static_cast<long long>(iv)), 7);
    CryptBatch<false>(schedule, schedule.keys.data, batch);
    GiveBlocks(batch, blocks);
    // From the end, so that the blocks before are still the enciphered ones.
    for (std::size_t i = kBlockVectors; i-- > 1;) {
        const Vector before = _mm512_loadu_si512(sector + 64 * i - kBlockBytes);
        _mm512_storeu_si512(sector + 64 * i, _mm512_xor_si512(blocks[i], before));
    }
    _mm512_storeu_si512(sector, _mm512_xor_si512(blocks[0], beforeFirst));
}

void Decrypt(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& schedule = *static_cast<const Schedule*>(opaque);
    while (count > 0) {
        alignas(64) std::uint64_t ivs[kLanes];
        Vector ivVectors[kBlockVectors];
        MakeIvs(schedule, sector, ivVectors);
        for (std::size_t i = 0; i < kBlockVectors; ++i)
            _mm512_storeu_si512(ivs + 8 * i, ivVectors[i]);
        const std::size_t batch = count < kLanes ? count : kLanes;
        for (std::size_t i = 0; i < batch; ++i, data += kSectorBytes)
            DecryptSector(schedule, ivs[i], data);
        sector += batch;
        count -= batch;
    }
    avx512::WipeRegisters();
}

/// Transposes eight rows of eight blocks.
QUILLA_INLINE void Transpose(Vector (&rows)[8]) {
    Vector a[8], b[8];
    for (std::size_t i = 0; i < 8; i += 2) {
        a[i] = _mm512_unpacklo_epi64(rows[i], rows[i + 1]);
        a[i + 1] = _mm512_unpackhi_epi64(rows[i], rows[i + 1]);
    }
    for (std::size_t i = 0; i < 8; i += 4)
        for (std::size_t j = 0; j < 2; ++j) {
            b[i + j] = _mm512_shuffle_i64x2(a[i + j], a[i + j + 2], 0x88);
            b[i + j + 2] = _mm512_shuffle_i64x2(a[i + j], a[i + j + 2], 0xDD);
        }
    // b[0] holds columns 0 and 4 of rows 0 to 3, b[1] columns 1 and 5, b[2] columns 2 and 6, b[3] columns 3
    // and 7.
    for (std::size_t i = 0; i < 4; ++i) {
        rows[i] = _mm512_shuffle_i64x2(b[i], b[i + 4], 0x88);
        rows[i + 4] = _mm512_shuffle_i64x2(b[i], b[i + 4], 0xDD);
    }
}

/// Eight blocks of each of 64 sectors, block by block.
struct Tile {
    Vector blocks[8][kBlockVectors];

    /// Reads from or writes to the sectors that there are.
    void Load(const std::byte* sectors, std::size_t count) {
        for (std::size_t group = 0; group < kBlockVectors; ++group) {
            Vector rows[8];
            for (std::size_t i = 0; i < 8; ++i)
                rows[i] = 8 * group + i < count ? _mm512_loadu_si512(sectors + (8 * group + i) * kSectorBytes)
                                                : _mm512_setzero_si512();
            Transpose(rows);
            for (std::size_t i = 0; i < 8; ++i)
                blocks[i][group] = rows[i];
        }
    }
    void Store(std::byte* sectors, std::size_t count) const {
        for (std::size_t group = 0; group < kBlockVectors; ++group) {
            Vector rows[8];
            for (std::size_t i = 0; i < 8; ++i)
                rows[i] = blocks[i][group];
            Transpose(rows);
            for (std::size_t i = 0; i < 8; ++i)
                if (8 * group + i < count)
                    _mm512_storeu_si512(sectors + (8 * group + i) * kSectorBytes, rows[i]);
        }
    }
};

/// Enciphers up to 64 sectors side by side.
void EncryptSectors(const Schedule& schedule, std::uint64_t sector, std::byte* sectors, std::size_t count) {
    Vector chain[kBlockVectors];
    MakeIvs(schedule, sector, chain);
    for (std::size_t offset = 0; offset < kSectorBytes; offset += sizeof(Vector)) {
        Tile tile;
        tile.Load(sectors + offset, count);
        for (auto& blocks : tile.blocks) {
            for (std::size_t i = 0; i < kBlockVectors; ++i)
                chain[i] = _mm512_xor_si512(chain[i], blocks[i]);
            Batch batch;
            TakeBlocks(chain, batch);
            CryptBatch<true>(schedule, schedule.keys.data, batch);
            GiveBlocks(batch, chain);
            for (std::size_t i = 0; i < kBlockVectors; ++i)
                blocks[i] = chain[i];
        }
        tile.Store(sectors + offset, count);
    }
}

void Encrypt(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& schedule = *static_cast<const Schedule*>(opaque);
    while (count >= kFewestSectors) {
        const std::size_t batch = count < kLanes ? count : kLanes;
        EncryptSectors(schedule, sector, data, batch);
        data += batch * kSectorBytes;
        sector += batch;
        count -= batch;
    }
    CastEncryptSectors(schedule.keys, sector, data, count);
    avx512::WipeRegisters();
}

void SetUp(void* opaque, const DataKey& key) {
    auto& schedule = *static_cast<Schedule*>(opaque);
    BuildCastKeys(schedule.keys, key);
    auto* const bytes = reinterpret_cast<std::uint8_t*>(schedule.boxes);
    for (std::size_t box = 0; box < 4; ++box)
        for (std::size_t i = 0; i < 4; ++i)
            for (std::size_t x = 0; x < 256; ++x)
                bytes[(box * 4 + i) * 256 + x] = static_cast<std::uint8_t>(kCastSboxes[box][x] >> (8 * i));
}

} // namespace

const SectorKernel kCast128Avx512 = {
    .cipher = CipherId::Cast128,
    .name = "AVX-512, short writes by tables",
    .isSupported = HasAvx512,
    .scheduleSize = sizeof(Schedule),
    .setUp = SetUp,
    .encrypt = Encrypt,
    .decrypt = Decrypt,
};

} // namespace quilla
