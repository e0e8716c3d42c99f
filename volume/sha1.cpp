#include "volume/sha1.h"

#include "platform/byte_order.h"
#include "platform/wipe.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quilla {

namespace {

constexpr std::size_t kBlockSize = 64;
constexpr std::size_t kLengthOffset = 56; // of the 64-bit message length in the last block

std::uint32_t Choose(std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return (b & c) | (~b & d);
}
std::uint32_t Parity(std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return b ^ c ^ d;
}
std::uint32_t Majority(std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return (b & c) | (b & d) | (c & d);
}

/// One quarter of the eighty steps has one function and one constant.
struct Quarter {
    std::uint32_t (*mix)(std::uint32_t, std::uint32_t, std::uint32_t);
    std::uint32_t constant;
};
constexpr Quarter kQuarters[] = {
    {Choose, 0x5A827999}, {Parity, 0x6ED9EBA1}, {Majority, 0x8F1BBCDC}, {Parity, 0xCA62C1D6}};

void CompressBlock(Sha1State& state, const std::byte* block) {
    std::uint32_t words[16];
    for (std::size_t i = 0; i < 16; ++i)
        words[i] = LoadBig<std::uint32_t>(block + 4 * i);
    Sha1Compress(state.chain, words);
    Wipe(words);
}

void CountBits(Sha1State& state, std::size_t bytes) {
    const std::uint64_t counted = (std::uint64_t{state.bitCountHigh} << 32) | state.bitCountLow;
    const std::uint64_t total = counted + 8 * std::uint64_t{bytes};
    state.bitCountLow = static_cast<std::uint32_t>(total);
    state.bitCountHigh = static_cast<std::uint32_t>(total >> 32);
}

std::size_t BytesInBlock(const Sha1State& state) {
    return state.bitCountLow / 8 % kBlockSize;
}

} // namespace

void Sha1Compress(std::uint32_t (&chain)[5], const std::uint32_t (&words)[16]) {
    std::uint32_t schedule[16];
    std::memcpy(schedule, words, sizeof(schedule));
    std::uint32_t a = chain[0], b = chain[1], c = chain[2], d = chain[3], e = chain[4];
    for (std::size_t t = 0; t < 80; ++t) {
        if (t >= 16)
            schedule[t % 16] = std::rotl(schedule[(t + 13) % 16] ^ schedule[(t + 8) % 16] ^
                                             schedule[(t + 2) % 16] ^ schedule[t % 16],
                                         1);
        const Quarter& quarter = kQuarters[t / 20];
        const std::uint32_t next =
            std::rotl(a, 5) + quarter.mix(b, c, d) + e + schedule[t % 16] + quarter.constant;
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    chain[0] += a;
    chain[1] += b;
    chain[2] += c;
    chain[3] += d;
    chain[4] += e;
    Wipe(schedule);
}

void Sha1Init(Sha1State& state) {
    state = {.chain = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0},
             .bitCountLow = 0,
             .bitCountHigh = 0,
             .block = {},
             .finished = 0};
}

void Sha1Update(Sha1State& state, std::span<const std::byte> bytes) {
    if (state.finished != 0)
        return;
    while (!bytes.empty()) {
        const std::size_t filled = BytesInBlock(state);
        const std::size_t count = std::min(bytes.size(), kBlockSize - filled);
        std::memcpy(state.block + filled, bytes.data(), count);
        CountBits(state, count);
        bytes = bytes.subspan(count);
        if (filled + count == kBlockSize)
            CompressBlock(state, state.block);
    }
}

void Sha1Final(Sha1State& state) {
    if (state.finished != 0)
        return;
    std::size_t filled = BytesInBlock(state);
    state.block[filled++] = std::byte{0x80};
    if (filled > kLengthOffset) {
        std::memset(state.block + filled, 0, kBlockSize - filled);
        CompressBlock(state, state.block);
        filled = 0;
    }
    std::memset(state.block + filled, 0, kLengthOffset - filled);
    StoreBig(state.block + kLengthOffset, state.bitCountHigh);
    StoreBig(state.block + kLengthOffset + 4, state.bitCountLow);
    CompressBlock(state, state.block);
    for (std::uint32_t& word : state.chain)
        StoreLittle(&word, word);
    state.finished = 1;
}

void PasswordKey(PasswordDigest& key, std::span<const std::byte> password) {
    Secret<Sha1State> state;
    Sha1Init(*state);
    Sha1Update(*state, password);
    Sha1Final(*state);
    std::memcpy(key.data(), state->chain, key.size());
}

void PasswordKey(PasswordDigest& key, TextView password) {
    static_assert(std::endian::native == std::endian::little, "text is hashed as UTF-16LE");
    PasswordKey(key, std::as_bytes(std::span(password.data(), password.size())));
}

} // namespace quilla
