// Twofish in XTS mode with AVX2: a sector of 32 blocks at a time, no memory address depends on the key or the
// data.
//
// A register holds one word of 8 blocks. For the function g, words are split into registers of 32 equal
// bytes. An S-box is sixteen rows of 16 entries, each repeated for both halves of a register: a byte shuffle
// looks up 32 bytes in one row and gives zero where the index has its top bit set, which selects between the
// rows of the lower and the upper half of the table; blends select by the other three bits.

#include "platform/processor.h"
#include "platform/wipe.h"
#include "quilladriver/kernels.h"
#include "quilladriver/twofish_vector_keys.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace quilla {

namespace {

using Vector = __m256i;

constexpr std::size_t kSectorBytes = 512;
constexpr std::size_t kBlocks = 32; ///< in a batch
constexpr std::size_t kVectors = 4; ///< that hold one word of a batch
constexpr std::size_t kRows = 16;

struct Key {
    Vector sboxes[4][kRows]; ///< a quarter of the field's value, so that the matrix needs no division
    Vector subkeys[kTwofishSubkeys];
};

struct Schedule {
    Key data;
    Key tweak;
};

using Word = Vector[kVectors];

/// The four words of 32 blocks.
struct Batch {
    Word words[4];
};

QUILLA_INLINE Vector Xor(Vector a, Vector b) {
    return _mm256_xor_si256(a, b);
}

/// Bytes of b where the mask has its top bit set, of a elsewhere. GCC would split the instruction's intrinsic
/// into a comparison and a selection, twice the work.
QUILLA_INLINE Vector Select(Vector a, Vector b, Vector mask) {
    Vector result;
    asm("vpblendvb %3, %2, %1, %0" : "=x"(result) : "x"(a), "xm"(b), "x"(mask));
    return result;
}

/// Splits 32 words into their bytes, one register for each.
QUILLA_INLINE void SplitBytes(const Word& words, Vector (&bytes)[4]) {
    const Vector groups =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
    const Vector a = _mm256_shuffle_epi8(words[0], groups);
    const Vector b = _mm256_shuffle_epi8(words[1], groups);
    const Vector c = _mm256_shuffle_epi8(words[2], groups);
    const Vector d = _mm256_shuffle_epi8(words[3], groups);
    const Vector lowAb = _mm256_unpacklo_epi32(a, b);
    const Vector highAb = _mm256_unpackhi_epi32(a, b);
    const Vector lowCd = _mm256_unpacklo_epi32(c, d);
    const Vector highCd = _mm256_unpackhi_epi32(c, d);
    bytes[0] = _mm256_unpacklo_epi64(lowAb, lowCd);
    bytes[1] = _mm256_unpackhi_epi64(lowAb, lowCd);
    bytes[2] = _mm256_unpacklo_epi64(highAb, highCd);
    bytes[3] = _mm256_unpackhi_epi64(highAb, highCd);
}

/// The reverse.
QUILLA_INLINE void JoinBytes(const Vector (&bytes)[4], Word& words) {
    const Vector low01 = _mm256_unpacklo_epi8(bytes[0], bytes[1]);
    const Vector high01 = _mm256_unpackhi_epi8(bytes[0], bytes[1]);
    const Vector low23 = _mm256_unpacklo_epi8(bytes[2], bytes[3]);
    const Vector high23 = _mm256_unpackhi_epi8(bytes[2], bytes[3]);
    words[0] = _mm256_unpacklo_epi16(low01, low23);
    words[1] = _mm256_unpackhi_epi16(low01, low23);
    words[2] = _mm256_unpacklo_epi16(high01, high23);
    words[3] = _mm256_unpackhi_epi16(high01, high23);
}

QUILLA_INLINE Vector Substitute(const Vector (&rows)[kRows], Vector x) {
    const Vector upper = Xor(x, _mm256_set1_epi8(static_cast<char>(0x80)));
    const auto look = [&](std::size_t row) {
        return _mm256_or_si256(_mm256_shuffle_epi8(rows[row], x), _mm256_shuffle_epi8(rows[row + 8], upper));
    };
    const Vector bit6 = _mm256_add_epi8(x, x); // each bit in turn where a blend looks
    const Vector bit5 = _mm256_add_epi8(bit6, bit6);
    const Vector bit4 = _mm256_add_epi8(bit5, bit5);
    const auto lookFour = [&](std::size_t row) {
        return Select(Select(look(row), look(row + 1), bit4), Select(look(row + 2), look(row + 3), bit4),
                      bit5);
    };
    return Select(lookFour(0), lookFour(4), bit6);
}

/// x times 2 in the field of 0x169.
QUILLA_INLINE Vector Double(Vector x) {
    const Vector reduction = Select(_mm256_setzero_si256(), _mm256_set1_epi8(0x69), x);
    return Xor(_mm256_add_epi8(x, x), reduction);
}

/// The MDS matrix over quarters q of the S-boxes' values: with the sum s and u = s + 4 s, its rows are u + q0
/// + 2 q1, u + q3 + 2 (q1 + q2), u + q2 + 2 (q0 + q3) and u + q1 + 2 (q0 + q2).
QUILLA_INLINE void MixBytes(const Vector (&q)[4], Vector (&mixed)[4]) {
    const Vector q03 = Xor(q[0], q[3]);
    const Vector q12 = Xor(q[1], q[2]);
    const Vector sum = Xor(q03, q12);
    const Vector u = Xor(sum, Double(Double(sum)));
    mixed[0] = Xor(Xor(u, q[0]), Double(q[1]));
    mixed[1] = Xor(Xor(u, q[3]), Double(q12));
    mixed[2] = Xor(Xor(u, q[2]), Double(q03));
    mixed[3] = Xor(Xor(u, q[1]), Double(Xor(q[0], q[2])));
}

/// The function g; kTurn = 1 takes the words rotated left by one byte.
template <std::size_t kTurn>
QUILLA_INLINE void Mix(const Key& key, const Word& words, Word& result) {
    Vector bytes[4], looked[4], mixed[4];
    SplitBytes(words, bytes);
    for (std::size_t i = 0; i < 4; ++i)
        looked[i] = Substitute(key.sboxes[i], bytes[(i + 4 - kTurn) % 4]);
    MixBytes(looked, mixed);
    JoinBytes(mixed, result);
}

template <int kBits>
QUILLA_INLINE Vector RotateLeft(Vector x) {
    const Vector left = kBits == 1 ? _mm256_add_epi32(x, x) : _mm256_slli_epi32(x, kBits);
    return _mm256_or_si256(left, _mm256_srli_epi32(x, 32 - kBits));
}

template <bool kEncrypt>
QUILLA_INLINE void Round(const Key& key, std::size_t round, const Word& a, const Word& b, Word& c, Word& d) {
    Word t0, t1;
    Mix<0>(key, a, t0);
    Mix<1>(key, b, t1);
    for (std::size_t i = 0; i < kVectors; ++i) {
        const Vector sum = _mm256_add_epi32(t0[i], t1[i]);
        const Vector f0 = _mm256_add_epi32(sum, key.subkeys[8 + 2 * round]);
        const Vector f1 = _mm256_add_epi32(_mm256_add_epi32(sum, t1[i]), key.subkeys[9 + 2 * round]);
        if constexpr (kEncrypt) {
            c[i] = RotateLeft<31>(Xor(c[i], f0));
            d[i] = Xor(RotateLeft<1>(d[i]), f1);
        } else {
            c[i] = Xor(RotateLeft<1>(c[i]), f0);
            d[i] = RotateLeft<31>(Xor(d[i], f1));
        }
    }
}

QUILLA_INLINE void Whiten(Word& word, Vector subkey) {
    for (Vector& v : word)
        v = Xor(v, subkey);
}

/// Enciphers or deciphers a batch; what comes out has its halves exchanged.
template <bool kEncrypt>
QUILLA_INLINE void CryptBatch(const Key& key, Batch& batch) {
    auto& [a, b, c, d] = batch.words;
    constexpr std::size_t kIn = kEncrypt ? 0 : 4;
    constexpr std::size_t kOut = kEncrypt ? 4 : 0;
    for (std::size_t i = 0; i < 4; ++i)
        Whiten(batch.words[i], key.subkeys[kIn + i]);
    for (std::size_t i = 0; i < 16; i += 2) {
        Round<kEncrypt>(key, kEncrypt ? i : 15 - i, a, b, c, d);
        Round<kEncrypt>(key, kEncrypt ? i + 1 : 14 - i, c, d, a, b);
    }
    for (std::size_t i = 0; i < 4; ++i)
        Whiten(batch.words[(i + 2) % 4], key.subkeys[kOut + i]);
}

/// Turns four registers of two blocks each into four words of those eight blocks, and back.
QUILLA_INLINE void Transpose(Vector& w0, Vector& w1, Vector& w2, Vector& w3) {
    const Vector low01 = _mm256_unpacklo_epi32(w0, w1);
    const Vector high01 = _mm256_unpackhi_epi32(w0, w1);
    const Vector low23 = _mm256_unpacklo_epi32(w2, w3);
    const Vector high23 = _mm256_unpackhi_epi32(w2, w3);
    w0 = _mm256_unpacklo_epi64(low01, low23);
    w1 = _mm256_unpackhi_epi64(low01, low23);
    w2 = _mm256_unpacklo_epi64(high01, high23);
    w3 = _mm256_unpackhi_epi64(high01, high23);
}

QUILLA_INLINE Vector Load(const void* from) {
    return _mm256_loadu_si256(static_cast<const Vector*>(from));
}

QUILLA_INLINE void Store(void* to, Vector v) {
    _mm256_storeu_si256(static_cast<Vector*>(to), v);
}

/// Enciphers or deciphers 32 blocks in place, XORed with masks before and after.
template <bool kEncrypt>
void CryptBlocks(const Key& key, const std::uint64_t (&masks)[kBlocks][2], std::byte* blocks) {
    Batch batch;
    auto& [a, b, c, d] = batch.words;
    const auto at = [](std::size_t group, std::size_t pair) { return 128 * group + 32 * pair; };
    const auto* const maskBytes = reinterpret_cast<const std::byte*>(masks);
    for (std::size_t i = 0; i < kVectors; ++i) {
        for (std::size_t pair = 0; pair < 4; ++pair)
            batch.words[pair][i] = Xor(Load(blocks + at(i, pair)), Load(maskBytes + at(i, pair)));
        Transpose(a[i], b[i], c[i], d[i]);
    }
    CryptBatch<kEncrypt>(key, batch);
    for (std::size_t i = 0; i < kVectors; ++i) {
        Transpose(c[i], d[i], a[i], b[i]);
        for (std::size_t pair = 0; pair < 4; ++pair)
            Store(blocks + at(i, pair), Xor(batch.words[(pair + 2) % 4][i], Load(maskBytes + at(i, pair))));
    }
}

/// Multiplies two tweaks by x^8 in the field of IEEE 1619: the byte shifted out comes back times x^7 + x^2 +
/// x + 1.
QUILLA_INLINE Vector Advance(Vector tweaks) {
    const Vector out = _mm256_srli_si256(tweaks, 15);
    const Vector product =
        Xor(Xor(out, _mm256_slli_epi16(out, 1)), Xor(_mm256_slli_epi16(out, 2), _mm256_slli_epi16(out, 7)));
    return Xor(_mm256_slli_si256(tweaks, 1), product);
}

/// The tweaks of all blocks of a sector, from the first: each is the one before times x.
QUILLA_INLINE void ChainTweaks(const std::uint64_t (&first)[2], std::uint64_t (&tweaks)[kBlocks][2]) {
    constexpr std::size_t kStep = 8; ///< as far as Advance goes
    std::uint64_t low = first[0];
    std::uint64_t high = first[1];
    for (std::size_t i = 0; i < kStep; ++i) {
        tweaks[i][0] = low;
        tweaks[i][1] = high;
        const std::uint64_t carry = (0U - (high >> 63)) & 0x87;
        high = high << 1 | low >> 63;
        low = low << 1 ^ carry;
    }
    for (std::size_t i = kStep; i < kBlocks; i += 2)
        Store(tweaks[i], Advance(Load(tweaks[i - kStep])));
}

/// The first tweak of each of 32 sectors, as one batch.
void MakeTweaks(const Key& key, std::uint64_t firstSector, std::uint64_t (&tweaks)[kBlocks][2]) {
    constexpr std::uint64_t kNoMasks[kBlocks][2]{};
    for (std::size_t i = 0; i < kBlocks; ++i) {
        tweaks[i][0] = firstSector + i;
        tweaks[i][1] = 0;
    }
    CryptBlocks<true>(key, kNoMasks, reinterpret_cast<std::byte*>(tweaks));
}

template <bool kEncrypt>
void Run(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& schedule = *static_cast<const Schedule*>(opaque);
    struct {
        std::uint64_t first[kBlocks][2]; ///< of each sector
        std::uint64_t all[kBlocks][2];   ///< of one sector
    } tweaks;
    while (count > 0) {
        MakeTweaks(schedule.tweak, sector, tweaks.first);
        const std::size_t batch = count < kBlocks ? count : kBlocks;
        for (std::size_t i = 0; i < batch; ++i, data += kSectorBytes) {
            ChainTweaks(tweaks.first[i], tweaks.all);
            CryptBlocks<kEncrypt>(schedule.data, tweaks.all, data);
        }
        sector += batch;
        count -= batch;
    }
    WipeMemory(&tweaks, sizeof(tweaks));
    _mm256_zeroall();
}

void LayOut(Key& key, const TwofishVectorKey& from) {
    for (std::size_t box = 0; box < 4; ++box)
        for (std::size_t row = 0; row < kRows; ++row)
            key.sboxes[box][row] = _mm256_broadcastsi128_si256(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(from.quarterSboxes[box] + 16 * row)));
    for (std::size_t i = 0; i < kTwofishSubkeys; ++i)
        key.subkeys[i] = _mm256_set1_epi32(static_cast<int>(from.subkeys[i]));
}

void SetUp(void* opaque, const DataKey& key) {
    auto& schedule = *static_cast<Schedule*>(opaque);
    TwofishVectorKeyPair keys;
    BuildTwofishVectorKeys(keys, key);
    LayOut(schedule.data, keys.data);
    LayOut(schedule.tweak, keys.tweak);
    WipeMemory(&keys, sizeof(keys));
    _mm256_zeroall();
}

} // namespace

const SectorKernel kTwofishAvx2 = {
    .cipher = CipherId::Twofish,
    .name = "AVX2, constant time",
    .isSupported = HasAvx2,
    .scheduleSize = sizeof(Schedule),
    .setUp = SetUp,
    .encrypt = Run<true>,
    .decrypt = Run<false>,
};

} // namespace quilla
