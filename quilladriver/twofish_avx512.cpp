// Twofish in XTS mode with AVX-512 VBMI and GFNI: a sector of 32 blocks at a time, no memory address depends
// on the key or the data.
//
// A register holds one word of 8 blocks in its lower half and the next word of the same blocks in its upper
// half, so that both runs of the function g share their instructions. The four S-boxes of 256 bytes fill
// sixteen registers; a lookup is two byte permutations over 128 entries each and a selection by the top bit.

#include "platform/processor.h"
#include "platform/wipe.h"
#include "quilladriver/avx512_bytes.h"
#include "quilladriver/kernels.h"
#include "quilladriver/twofish_vector_keys.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace quilla {

namespace {

using avx512::Vector;
using avx512::Words;

constexpr std::size_t kSectorBytes = 512;
constexpr std::size_t kBlocks = 32; ///< in a batch
constexpr std::size_t kVectors = 4; ///< that hold two words of a batch
constexpr std::size_t kAbreast = 2; ///< sectors worked on at once

/// One key, laid out for the registers.
struct Key {
    avx512::Table sboxes[4]; ///< a quarter of the field's value, so that the matrix needs no division
    Vector subkeys[kTwofishSubkeys / 2]; ///< an even one in the lower half, the next in the upper half
};

struct Schedule {
    Key data;
    Key tweak;
};

/// The words of a batch: the first two and the last two of each block.
struct Batch {
    Words first;
    Words last;
};

QUILLA_INLINE Vector Xor3(Vector a, Vector b, Vector c) {
    return _mm512_ternarylogic_epi32(a, b, c, 0x96);
}

/// Bit matrices of the products by 2 and by 5 in the field of 0x169.
constexpr std::uint64_t MultiplicationMatrix(unsigned factor) {
    std::uint64_t matrix = 0;
    for (unsigned bit = 0; bit < 8; ++bit) {
        unsigned product = 0;
        for (int i = 7; i >= 0; --i) {
            product = (product << 1) ^ ((product & 0x80) != 0 ? 0x169 : 0);
            product ^= ((factor >> i) & 1) != 0 ? 1U << bit : 0;
        }
        // Byte 7 - r holds the row that makes bit r.
        for (unsigned row = 0; row < 8; ++row)
            matrix |= std::uint64_t{(product >> row) & 1} << (8 * (7 - row) + bit);
    }
    return matrix;
}

/// Splits words into their bytes, 16 words from each lane. The upper half is rotated left by one byte on the
/// way, as the second word of a block is.
QUILLA_INLINE void SplitWords(const Words& words, avx512::Bytes& bytes) {
    avx512::SplitBytes(words,
                       _mm512_set_epi64(0x0E0A06020D090501, 0x0C0804000F0B0703, 0x0E0A06020D090501,
                                        0x0C0804000F0B0703, 0x0F0B07030E0A0602, 0x0D0905010C080400,
                                        0x0F0B07030E0A0602, 0x0D0905010C080400),
                       bytes);
}

/// The MDS matrix over quarters q of the S-boxes' values: with the sum u = 5 (q0 + q1 + q2 + q3), its rows
/// are u + q0 + 2 q1, u + q3 + 2 (q1 + q2), u + q2 + 2 (q0 + q3) and u + q1 + 2 (q0 + q2).
QUILLA_INLINE void MixBytes(const Vector (&q)[4], Vector (&mixed)[4]) {
    const Vector times2 = _mm512_set1_epi64(static_cast<long long>(MultiplicationMatrix(2)));
    const Vector times5 = _mm512_set1_epi64(static_cast<long long>(MultiplicationMatrix(5)));
    const Vector sum = _mm512_xor_si512(Xor3(q[0], q[1], q[2]), q[3]);
    const Vector u = _mm512_gf2p8affine_epi64_epi8(sum, times5, 0);
    const Vector d0 = _mm512_gf2p8affine_epi64_epi8(q[1], times2, 0);
    const Vector d1 = _mm512_gf2p8affine_epi64_epi8(_mm512_xor_si512(q[1], q[2]), times2, 0);
    const Vector d2 = _mm512_gf2p8affine_epi64_epi8(_mm512_xor_si512(q[0], q[3]), times2, 0);
    const Vector d3 = _mm512_gf2p8affine_epi64_epi8(_mm512_xor_si512(q[0], q[2]), times2, 0);
    mixed[0] = Xor3(u, q[0], d0);
    mixed[1] = Xor3(u, q[3], d1);
    mixed[2] = Xor3(u, q[2], d2);
    mixed[3] = Xor3(u, q[1], d3);
}

/// The function F over two words of each block: both results in one register.
QUILLA_INLINE void MixWords(const Key& key, std::size_t round, const Words& words, Words& result) {
    Vector bytes[4];
    SplitWords(words, bytes);
    for (std::size_t i = 0; i < 4; ++i)
        bytes[i] = avx512::LookUp(key.sboxes[i], bytes[i]);
    Vector mixed[4];
    MixBytes(bytes, mixed);
    avx512::JoinBytes(mixed, result);
    for (Vector& t : result) { // t0 and t1 become t0 + t1 + k and t0 + 2 t1 + k'
        const Vector swapped = _mm512_shuffle_i64x2(t, t, 0x4E);
        const Vector twice = _mm512_mask_add_epi32(t, 0xFF00, t, t);
        t = _mm512_add_epi32(_mm512_add_epi32(swapped, twice), key.subkeys[4 + round]);
    }
}

constexpr __mmask16 kLowerHalf = 0x00FF;
constexpr __mmask16 kUpperHalf = 0xFF00;

template <bool kEncrypt>
QUILLA_INLINE void Round(const Key& key, std::size_t round, const Words& words, Words& target) {
    Words mixed;
    MixWords(key, round, words, mixed);
    for (std::size_t i = 0; i < kVectors; ++i) {
        Vector& t = target[i];
        constexpr __mmask16 kRotatedBefore = kEncrypt ? kUpperHalf : kLowerHalf;
        constexpr __mmask16 kRotatedAfter = kEncrypt ? kLowerHalf : kUpperHalf;
        t = _mm512_mask_rol_epi32(t, kRotatedBefore, t, 1);
        t = _mm512_xor_si512(t, mixed[i]);
        t = _mm512_mask_ror_epi32(t, kRotatedAfter, t, 1);
    }
}

QUILLA_INLINE void Whiten(Words& words, Vector subkeys) {
    for (Vector& v : words)
        v = _mm512_xor_si512(v, subkeys);
}

/// Enciphers or deciphers batches side by side, so that the steps of one fill the waiting times of another;
/// what comes out has its halves exchanged.
template <bool kEncrypt, std::size_t kCount>
QUILLA_INLINE void CryptBatches(const Key& key, Batch (&batches)[kCount]) {
    for (Batch& batch : batches) {
        Whiten(batch.first, key.subkeys[kEncrypt ? 0 : 2]);
        Whiten(batch.last, key.subkeys[kEncrypt ? 1 : 3]);
    }
    for (std::size_t i = 0; i < 16; i += 2) {
        for (Batch& batch : batches)
            Round<kEncrypt>(key, kEncrypt ? i : 15 - i, batch.first, batch.last);
        for (Batch& batch : batches)
            Round<kEncrypt>(key, kEncrypt ? i + 1 : 14 - i, batch.last, batch.first);
    }
    for (Batch& batch : batches) {
        Whiten(batch.last, key.subkeys[kEncrypt ? 2 : 0]);
        Whiten(batch.first, key.subkeys[kEncrypt ? 3 : 1]);
    }
}

/// Takes 8 blocks from two registers apart into words.
QUILLA_INLINE void TakeBlocks(Batch& batch, std::size_t i, Vector blocks0, Vector blocks1) {
    const Vector first = _mm512_set_epi32(29, 25, 21, 17, 13, 9, 5, 1, 28, 24, 20, 16, 12, 8, 4, 0);
    const Vector last = _mm512_set_epi32(31, 27, 23, 19, 15, 11, 7, 3, 30, 26, 22, 18, 14, 10, 6, 2);
    batch.first[i] = _mm512_permutex2var_epi32(blocks0, first, blocks1);
    batch.last[i] = _mm512_permutex2var_epi32(blocks0, last, blocks1);
}

/// Puts 8 blocks together again, the halves exchanged.
QUILLA_INLINE void GiveBlocks(const Batch& batch, std::size_t i, Vector& blocks0, Vector& blocks1) {
    const Vector lower = _mm512_set_epi32(27, 19, 11, 3, 26, 18, 10, 2, 25, 17, 9, 1, 24, 16, 8, 0);
    const Vector upper = _mm512_set_epi32(31, 23, 15, 7, 30, 22, 14, 6, 29, 21, 13, 5, 28, 20, 12, 4);
    blocks0 = _mm512_permutex2var_epi32(batch.last[i], lower, batch.first[i]);
    blocks1 = _mm512_permutex2var_epi32(batch.last[i], upper, batch.first[i]);
}

/// Multiplies four tweaks by x^4 in the field of IEEE 1619.
QUILLA_INLINE Vector Advance(Vector tweaks) {
    // The four bits shifted out of a lower half enter the upper half, those out of the upper half enter the
    // lower one times x^7 + x^2 + x + 1; a shift by 64 clears.
    const Vector out = _mm512_shuffle_epi32(_mm512_srli_epi64(tweaks, 60), _MM_PERM_BADC);
    const Vector by1 = _mm512_sllv_epi64(out, _mm512_set_epi64(64, 1, 64, 1, 64, 1, 64, 1));
    const Vector by2 = _mm512_sllv_epi64(out, _mm512_set_epi64(64, 2, 64, 2, 64, 2, 64, 2));
    const Vector by7 = _mm512_sllv_epi64(out, _mm512_set_epi64(64, 7, 64, 7, 64, 7, 64, 7));
    return Xor3(_mm512_slli_epi64(tweaks, 4), out, Xor3(by1, by2, by7));
}

/// The tweaks of the first four blocks of a sector.
QUILLA_INLINE Vector FirstTweaks(const std::uint64_t (&tweak)[2]) {
    std::uint64_t words[8] = {tweak[0], tweak[1]};
    for (std::size_t i = 2; i < 8; i += 2) {
        const std::uint64_t carry = (0U - (words[i - 1] >> 63)) & 0x87;
        words[i] = words[i - 2] << 1 ^ carry;
        words[i + 1] = words[i - 1] << 1 | words[i - 2] >> 63;
    }
    return _mm512_loadu_si512(words);
}

template <bool kEncrypt, std::size_t kCount>
void CryptSectors(const Key& key, const std::uint64_t (*tweaks)[2], std::byte* sectors) {
    Vector masks[kCount][2 * kVectors];
    Batch batches[kCount];
    for (std::size_t n = 0; n < kCount; ++n) {
        Vector mask = FirstTweaks(tweaks[n]);
        for (Vector& m : masks[n]) {
            m = mask;
            mask = Advance(mask);
        }
        for (std::size_t i = 0; i < kVectors; ++i) {
            const std::byte* const from = sectors + n * kSectorBytes + i * 128;
            TakeBlocks(batches[n], i, _mm512_xor_si512(_mm512_loadu_si512(from), masks[n][2 * i]),
                       _mm512_xor_si512(_mm512_loadu_si512(from + 64), masks[n][2 * i + 1]));
        }
    }
    CryptBatches<kEncrypt>(key, batches);
    for (std::size_t n = 0; n < kCount; ++n)
        for (std::size_t i = 0; i < kVectors; ++i) {
            std::byte* const to = sectors + n * kSectorBytes + i * 128;
            Vector blocks0, blocks1;
            GiveBlocks(batches[n], i, blocks0, blocks1);
            _mm512_storeu_si512(to, _mm512_xor_si512(blocks0, masks[n][2 * i]));
            _mm512_storeu_si512(to + 64, _mm512_xor_si512(blocks1, masks[n][2 * i + 1]));
        }
}

/// The first tweak of each of 32 sectors, as one batch.
void MakeTweaks(const Key& key, std::uint64_t firstSector, std::uint64_t (&tweaks)[kBlocks][2]) {
    Batch batches[1];
    Batch& batch = batches[0];
    Vector number = _mm512_set1_epi64(static_cast<long long>(firstSector));
    for (std::size_t i = 0; i < kVectors; ++i) {
        const Vector low = _mm512_add_epi64(number, _mm512_set_epi64(0, 3, 0, 2, 0, 1, 0, 0));
        const Vector high = _mm512_add_epi64(number, _mm512_set_epi64(0, 7, 0, 6, 0, 5, 0, 4));
        TakeBlocks(batch, i, _mm512_maskz_mov_epi64(0x55, low), _mm512_maskz_mov_epi64(0x55, high));
        number = _mm512_add_epi64(number, _mm512_set1_epi64(8));
    }
    CryptBatches<true>(key, batches);
    for (std::size_t i = 0; i < kVectors; ++i) {
        Vector blocks0, blocks1;
        GiveBlocks(batch, i, blocks0, blocks1);
        _mm512_storeu_si512(tweaks[8 * i], blocks0);
        _mm512_storeu_si512(tweaks[8 * i + 4], blocks1);
    }
}

template <bool kEncrypt>
void Run(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& schedule = *static_cast<const Schedule*>(opaque);
    std::uint64_t tweaks[kBlocks][2];
    while (count > 0) {
        MakeTweaks(schedule.tweak, sector, tweaks);
        const std::size_t batch = count < kBlocks ? count : kBlocks;
        std::size_t i = 0;
        for (; i + kAbreast <= batch; i += kAbreast)
            CryptSectors<kEncrypt, kAbreast>(schedule.data, tweaks + i, data + i * kSectorBytes);
        for (; i < batch; ++i)
            CryptSectors<kEncrypt, 1>(schedule.data, tweaks + i, data + i * kSectorBytes);
        data += batch * kSectorBytes;
        sector += batch;
        count -= batch;
    }
    WipeMemory(tweaks, sizeof(tweaks));
    avx512::WipeRegisters();
}

void LayOut(Key& key, const TwofishVectorKey& from) {
    for (std::size_t box = 0; box < 4; ++box)
        for (std::size_t i = 0; i < 4; ++i)
            key.sboxes[box][i] = _mm512_loadu_si512(from.quarterSboxes[box] + 64 * i);
    for (std::size_t i = 0; i < kTwofishSubkeys / 2; ++i) {
        const Vector even = _mm512_set1_epi32(static_cast<int>(from.subkeys[2 * i]));
        const Vector odd = _mm512_set1_epi32(static_cast<int>(from.subkeys[2 * i + 1]));
        key.subkeys[i] = _mm512_mask_blend_epi32(kUpperHalf, even, odd);
    }
}

void SetUp(void* opaque, const DataKey& key) {
    auto& schedule = *static_cast<Schedule*>(opaque);
    TwofishVectorKeyPair keys;
    BuildTwofishVectorKeys(keys, key);
    LayOut(schedule.data, keys.data);
    LayOut(schedule.tweak, keys.tweak);
    WipeMemory(&keys, sizeof(keys));
    avx512::WipeRegisters();
}

} // namespace

const SectorKernel kTwofishAvx512 = {
    .cipher = CipherId::Twofish,
    .name = "AVX-512, constant time",
    .isSupported = HasAvx512,
    .scheduleSize = sizeof(Schedule),
    .setUp = SetUp,
    .encrypt = Run<true>,
    .decrypt = Run<false>,
};

} // namespace quilla
