#include "volume/twofish.h"

#include "platform/byte_order.h"
#include "platform/wipe.h"

#include <array>
#include <bit>
#include <cstring>

namespace quilla {

namespace {

using ByteTable = std::array<std::uint8_t, 256>;
using NibbleTable = std::uint8_t[16];

// Section 4.3.5 of the paper: each fixed permutation is made of four permutations of nibbles.
constexpr NibbleTable kQ0Nibbles[4] = {
    {0x8, 0x1, 0x7, 0xD, 0x6, 0xF, 0x3, 0x2, 0x0, 0xB, 0x5, 0x9, 0xE, 0xC, 0xA, 0x4},
    {0xE, 0xC, 0xB, 0x8, 0x1, 0x2, 0x3, 0x5, 0xF, 0x4, 0xA, 0x6, 0x7, 0x0, 0x9, 0xD},
    {0xB, 0xA, 0x5, 0xE, 0x6, 0xD, 0x9, 0x0, 0xC, 0x8, 0xF, 0x3, 0x2, 0x4, 0x7, 0x1},
    {0xD, 0x7, 0xF, 0x4, 0x1, 0x2, 0x6, 0xE, 0x9, 0xB, 0x3, 0x0, 0x8, 0x5, 0xC, 0xA}};
constexpr NibbleTable kQ1Nibbles[4] = {
    {0x2, 0x8, 0xB, 0xD, 0xF, 0x7, 0x6, 0xE, 0x3, 0x1, 0x9, 0x4, 0x0, 0xA, 0xC, 0x5},
    {0x1, 0xE, 0x2, 0xB, 0x4, 0xC, 0x3, 0x7, 0x6, 0xD, 0xA, 0x5, 0xF, 0x9, 0x0, 0x8},
    {0x4, 0xC, 0x7, 0x5, 0x1, 0x6, 0x9, 0xA, 0x0, 0xE, 0xD, 0x8, 0x2, 0xB, 0x3, 0xF},
    {0xB, 0x9, 0x5, 0x1, 0xC, 0x3, 0xD, 0xE, 0x6, 0x4, 0x7, 0xF, 0x2, 0x0, 0x8, 0xA}};

constexpr ByteTable MakePermutation(const NibbleTable (&t)[4]) {
    ByteTable table{};
    for (unsigned x = 0; x < 256; ++x) {
        unsigned a = x >> 4;
        unsigned b = x & 15;
        for (std::size_t first = 0; first < 4; first += 2) {
            const unsigned mixedA = a ^ b;
            const unsigned mixedB = a ^ ((b >> 1) | ((b & 1) << 3)) ^ ((a << 3) & 15);
            a = t[first][mixedA];
            b = t[first + 1][mixedB];
        }
        table[x] = static_cast<std::uint8_t>((b << 4) | a);
    }
    return table;
}

constexpr ByteTable kQ[2] = {MakePermutation(kQ0Nibbles), MakePermutation(kQ1Nibbles)};

/// Which permutation each byte of a word passes through, from the last stage to the first; the key words are
/// XORed in between (section 4.3.2).
constexpr std::uint8_t kStages[4][5] = {{1, 0, 0, 1, 1}, {0, 0, 1, 1, 0}, {1, 1, 0, 0, 0}, {0, 1, 1, 0, 1}};

constexpr unsigned kMdsPolynomial = 0x169;
constexpr std::uint8_t kMds[4][4] = {
    {0x01, 0xEF, 0x5B, 0x5B}, {0x5B, 0xEF, 0xEF, 0x01}, {0xEF, 0x5B, 0x01, 0xEF}, {0xEF, 0x01, 0xEF, 0x5B}};

constexpr unsigned kRsPolynomial = 0x14D;
constexpr std::uint8_t kRs[4][8] = {{0x01, 0xA4, 0x55, 0x87, 0x5A, 0x58, 0xDB, 0x9E},
                                    {0xA4, 0x56, 0x82, 0xF3, 0x1E, 0xC6, 0x68, 0xE5},
                                    {0x02, 0xA1, 0xFC, 0xC1, 0x47, 0xAE, 0x3D, 0x19},
                                    {0xA4, 0x55, 0x87, 0x5A, 0x58, 0xDB, 0x9E, 0x03}};

/// Product in the field of 256 elements; takes the same time for all operands.
constexpr unsigned Multiply(unsigned a, unsigned b, unsigned polynomial) {
    unsigned product = 0;
    for (int bit = 7; bit >= 0; --bit) {
        product = (product << 1) ^ (polynomial & (0U - ((product >> 7) & 1)));
        product ^= a & (0U - ((b >> bit) & 1));
    }
    return product;
}

/// The matrix times a vector that is x at one place and zero elsewhere, for each place and x.
constexpr auto kMdsColumns = [] {
    std::array<std::array<std::uint32_t, 256>, 4> columns{};
    for (unsigned column = 0; column < 4; ++column)
        for (unsigned x = 0; x < 256; ++x)
            for (unsigned row = 0; row < 4; ++row)
                columns[column][x] |= Multiply(x, kMds[row][column], kMdsPolynomial) << (8 * row);
    return columns;
}();

constexpr unsigned ByteOf(std::uint32_t word, unsigned index) {
    return (word >> (8 * index)) & 0xFF;
}

/// One byte of a word through the S-box of its place, keyed by the words' bytes of the same place.
std::uint8_t Substitute(unsigned place, unsigned x, const std::uint32_t* keyWords, std::uint32_t count) {
    for (std::uint32_t word = count; word-- > 0;)
        x = kQ[kStages[place][word + 1]][x] ^ ByteOf(keyWords[word], place);
    return kQ[kStages[place][0]][x];
}

/// The function h of section 4.3.2 for a word of four equal bytes, as the key schedule needs it.
std::uint32_t HashRepeated(unsigned x, const std::uint32_t* keyWords, std::uint32_t count) {
    std::uint32_t result = 0;
    for (unsigned place = 0; place < 4; ++place)
        result ^= kMdsColumns[place][Substitute(place, x, keyWords, count)];
    return result;
}

/// A word of the S-box key: the Reed-Solomon matrix times eight key bytes.
std::uint32_t ReedSolomon(const std::byte* keyBytes) {
    std::uint32_t result = 0;
    for (unsigned row = 0; row < 4; ++row)
        for (unsigned column = 0; column < 8; ++column)
            result ^= Multiply(std::to_integer<unsigned>(keyBytes[column]), kRs[row][column], kRsPolynomial)
                      << (8 * row);
    return result;
}

/// Key bytes padded with zeros, and their words of even and odd number.
struct PaddedKey {
    std::byte bytes[kTwofishMaxKeySize];
    std::uint32_t even[4];
    std::uint32_t odd[4];
};

std::uint32_t ReadWord(const std::byte* block, unsigned index) {
    return LoadLittle<std::uint32_t>(block + std::size_t{4} * index);
}

/// The function g: the keyed S-boxes and the matrix; `rotation` = 1 takes the word rotated left by one byte.
std::uint32_t Look(const TwofishSchedule& schedule, std::uint32_t word, unsigned rotation) {
    return schedule.tables[rotation][ByteOf(word, 0)] ^ schedule.tables[1 + rotation][ByteOf(word, 1)] ^
           schedule.tables[2 + rotation][ByteOf(word, 2)] ^
           schedule.tables[(3 + rotation) % 4][ByteOf(word, 3)];
}

/// The function F of one round over two words.
struct RoundMix {
    RoundMix(const TwofishSchedule& schedule, unsigned round, std::uint32_t a, std::uint32_t b) {
        const std::uint32_t t0 = Look(schedule, a, 0);
        const std::uint32_t t1 = Look(schedule, b, 1);
        first = t0 + t1 + schedule.subkeys[8 + 2 * round];
        second = t0 + 2 * t1 + schedule.subkeys[9 + 2 * round];
    }
    std::uint32_t first;
    std::uint32_t second;
};

void EncryptRound(const TwofishSchedule& schedule, unsigned round, std::uint32_t a, std::uint32_t b,
                  std::uint32_t& c, std::uint32_t& d) {
    const RoundMix mix(schedule, round, a, b);
    c = std::rotr(c ^ mix.first, 1);
    d = std::rotl(d, 1) ^ mix.second;
}

void DecryptRound(const TwofishSchedule& schedule, unsigned round, std::uint32_t a, std::uint32_t b,
                  std::uint32_t& c, std::uint32_t& d) {
    const RoundMix mix(schedule, round, a, b);
    c = std::rotl(c, 1) ^ mix.first;
    d = std::rotr(d ^ mix.second, 1);
}

} // namespace

bool ExpandTwofishKey(TwofishKey& expanded, std::span<const std::byte> key) {
    if (key.size() > kTwofishMaxKeySize)
        return false;
    Secret<PaddedKey> padded;
    if (!key.empty())
        std::memcpy(padded->bytes, key.data(), key.size());
    const std::uint32_t words = key.size() <= 16 ? 2 : key.size() <= 24 ? 3 : 4;
    expanded.sboxKeyWords = words;
    for (unsigned i = 0; i < 4; ++i)
        expanded.sboxKey[i] = 0;
    for (unsigned i = 0; i < words; ++i) {
        padded->even[i] = ReadWord(padded->bytes, 2 * i);
        padded->odd[i] = ReadWord(padded->bytes, 2 * i + 1);
        const std::uint32_t word = ReedSolomon(padded->bytes + std::size_t{8} * i);
        expanded.sboxKey[words - 1 - i] = word;
    }
    for (unsigned i = 0; i < kTwofishSubkeys; i += 2) {
        const std::uint32_t a = HashRepeated(i, padded->even, words);
        const std::uint32_t b = std::rotl(HashRepeated(i + 1, padded->odd, words), 8);
        expanded.subkeys[i] = a + b;
        expanded.subkeys[i + 1] = std::rotl(a + 2 * b, 9);
    }
    return true;
}

void BuildTwofishSboxes(TwofishSboxes& sboxes, const TwofishKey& key) {
    for (unsigned place = 0; place < 4; ++place)
        for (unsigned x = 0; x < 256; ++x)
            sboxes.box[place][x] = Substitute(place, x, key.sboxKey, key.sboxKeyWords);
}

void BuildTwofishSchedule(TwofishSchedule& schedule, const TwofishKey& key) {
    std::memcpy(schedule.subkeys, key.subkeys, sizeof(schedule.subkeys));
    for (unsigned place = 0; place < 4; ++place)
        for (unsigned x = 0; x < 256; ++x)
            schedule.tables[place][x] =
                kMdsColumns[place][Substitute(place, x, key.sboxKey, key.sboxKeyWords)];
}

bool BuildTwofishSchedule(TwofishSchedule& schedule, std::span<const std::byte> key) {
    Secret<TwofishKey> expanded;
    if (!ExpandTwofishKey(*expanded, key))
        return false;
    BuildTwofishSchedule(schedule, *expanded);
    return true;
}

void TwofishEncryptBlock(const TwofishSchedule& schedule, const std::byte* in, std::byte* out) {
    const std::uint32_t* keys = schedule.subkeys;
    std::uint32_t a = ReadWord(in, 0) ^ keys[0];
    std::uint32_t b = ReadWord(in, 1) ^ keys[1];
    std::uint32_t c = ReadWord(in, 2) ^ keys[2];
    std::uint32_t d = ReadWord(in, 3) ^ keys[3];
    for (unsigned round = 0; round < 16; round += 2) {
        EncryptRound(schedule, round, a, b, c, d);
        EncryptRound(schedule, round + 1, c, d, a, b);
    }
    StoreLittle(out, c ^ keys[4]);
    StoreLittle(out + 4, d ^ keys[5]);
    StoreLittle(out + 8, a ^ keys[6]);
    StoreLittle(out + 12, b ^ keys[7]);
}

void TwofishDecryptBlock(const TwofishSchedule& schedule, const std::byte* in, std::byte* out) {
    const std::uint32_t* keys = schedule.subkeys;
    std::uint32_t c = ReadWord(in, 0) ^ keys[4];
    std::uint32_t d = ReadWord(in, 1) ^ keys[5];
    std::uint32_t a = ReadWord(in, 2) ^ keys[6];
    std::uint32_t b = ReadWord(in, 3) ^ keys[7];
    for (unsigned round = 16; round > 0; round -= 2) {
        DecryptRound(schedule, round - 1, c, d, a, b);
        DecryptRound(schedule, round - 2, a, b, c, d);
    }
    StoreLittle(out, a ^ keys[0]);
    StoreLittle(out + 4, b ^ keys[1]);
    StoreLittle(out + 8, c ^ keys[2]);
    StoreLittle(out + 12, d ^ keys[3]);
}

} // namespace quilla
