#include "export/iscsi/md5.h"

#include "platform/byte_order.h"
#include "platform/wipe.h"

#include <bit>

namespace quilla::iscsi {

namespace {

/// The integer parts of 2^32 |sin(i)| for i = 1 to 64.
constexpr std::uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr int kTurns[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

/// Step i takes word (factor i + first) mod 16 of the block, by its round.
constexpr unsigned kWordFactor[4] = {1, 5, 3, 7};
constexpr unsigned kWordFirst[4] = {0, 1, 5, 0};

std::uint32_t Mix(unsigned round, std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    switch (round) {
    case 0:
        return (x & y) | (~x & z);
    case 1:
        return (x & z) | (y & ~z);
    case 2:
        return x ^ y ^ z;
    default:
        return y ^ (x | ~z);
    }
}

} // namespace

Md5::~Md5() {
    Wipe(state_);
    Wipe(block_);
}

void Md5::Add(std::span<const std::byte> bytes) {
    for (const std::byte value : bytes) {
        block_[static_cast<std::size_t>(length_ % block_.size())] = value;
        if (++length_ % block_.size() == 0)
            Transform();
    }
}

Md5Digest Md5::Finish() {
    std::array<std::byte, 8> bits;
    StoreLittle(bits.data(), length_ * 8);
    constexpr std::byte kEnd[1] = {std::byte{0x80}};
    constexpr std::byte kZero[1] = {};
    Add(kEnd);
    while (length_ % block_.size() != block_.size() - bits.size())
        Add(kZero);
    Add(bits);
    Md5Digest digest;
    for (std::size_t i = 0; i < state_.size(); ++i)
        StoreLittle(digest.data() + 4 * i, state_[i]);
    return digest;
}

void Md5::Transform() {
    auto [a, b, c, d] = state_;
    for (unsigned i = 0; i < 64; ++i) {
        const unsigned round = i / 16;
        const unsigned word = (kWordFactor[round] * i + kWordFirst[round]) % 16;
        const std::uint32_t sum =
            a + Mix(round, b, c, d) + LoadLittle<std::uint32_t>(block_.data() + 4 * word) + kSines[i];
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, kTurns[round][i % 4]);
    }
    state_ = {state_[0] + a, state_[1] + b, state_[2] + c, state_[3] + d};
}

} // namespace quilla::iscsi
