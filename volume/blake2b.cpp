#include "volume/blake2b.h"

#include "platform/byte_order.h"
#include "platform/wipe.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quilla {

namespace {

constexpr std::uint64_t kInitial[8] = {0x6A09E667F3BCC908, 0xBB67AE8584CAA73B, 0x3C6EF372FE94F82B,
                                       0xA54FF53A5F1D36F1, 0x510E527FADE682D1, 0x9B05688C2B3E6C1F,
                                       0x1F83D9ABFB41BD6B, 0x5BE0CD19137E2179};

constexpr std::uint8_t kSigma[10][16] = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
                                         {14, 10, 4, 8, 9, 15, 13, 6, 1, 12, 0, 2, 11, 7, 5, 3},
                                         {11, 8, 12, 0, 5, 2, 15, 13, 10, 14, 3, 6, 7, 1, 9, 4},
                                         {7, 9, 3, 1, 13, 12, 11, 14, 2, 6, 5, 10, 4, 0, 15, 8},
                                         {9, 0, 5, 7, 2, 4, 10, 15, 14, 1, 11, 12, 6, 8, 3, 13},
                                         {2, 12, 6, 10, 0, 11, 8, 3, 4, 13, 7, 5, 15, 14, 1, 9},
                                         {12, 5, 1, 15, 14, 13, 4, 10, 0, 7, 6, 3, 9, 2, 8, 11},
                                         {13, 11, 7, 14, 12, 1, 3, 9, 5, 0, 15, 4, 8, 6, 2, 10},
                                         {6, 15, 14, 9, 11, 3, 0, 8, 12, 2, 13, 7, 1, 4, 10, 5},
                                         {10, 2, 8, 4, 7, 6, 1, 5, 15, 11, 9, 14, 3, 12, 13, 0}};

/// Which words each of the eight mixings of a round works on: first the columns, then the diagonals.
constexpr std::uint8_t kQuads[8][4] = {{0, 4, 8, 12},  {1, 5, 9, 13},  {2, 6, 10, 14}, {3, 7, 11, 15},
                                       {0, 5, 10, 15}, {1, 6, 11, 12}, {2, 7, 8, 13},  {3, 4, 9, 14}};

void Mix(std::uint64_t (&v)[16], const std::uint8_t (&quad)[4], std::uint64_t x, std::uint64_t y) {
    std::uint64_t &a = v[quad[0]], &b = v[quad[1]], &c = v[quad[2]], &d = v[quad[3]];
    a += b + x;
    d = std::rotr(d ^ a, 32);
    c += d;
    b = std::rotr(b ^ c, 24);
    a += b + y;
    d = std::rotr(d ^ a, 16);
    c += d;
    b = std::rotr(b ^ c, 63);
}

void Compress(Blake2bState& state, bool isLast) {
    constexpr int kRounds = 12;
    Secret<std::uint64_t[16]> message;
    Secret<std::uint64_t[16]> work;
    for (std::size_t i = 0; i < 16; ++i)
        (*message)[i] = LoadLittle<std::uint64_t>(state.block + 8 * i);
    std::ranges::copy(state.chain, *work);
    std::ranges::copy(kInitial, *work + 8);
    (*work)[12] ^= state.byteCount;
    (*work)[14] ^= isLast ? ~std::uint64_t{0} : 0;
    for (int round = 0; round < kRounds; ++round)
        for (std::size_t i = 0; i < 8; ++i)
            Mix(*work, kQuads[i], (*message)[kSigma[round % 10][2 * i]],
                (*message)[kSigma[round % 10][2 * i + 1]]);
    for (std::size_t i = 0; i < 8; ++i)
        state.chain[i] ^= (*work)[i] ^ (*work)[i + 8];
}

} // namespace

void Blake2bInit(Blake2bState& state, std::size_t digestSize) {
    state = {.chain = {}, .byteCount = 0, .block = {}, .filled = 0, .digestSize = digestSize};
    std::ranges::copy(kInitial, state.chain);
    state.chain[0] ^= 0x01010000 ^ digestSize; // no key, fan-out 1, depth 1
}

void Blake2bUpdate(Blake2bState& state, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        if (state.filled == sizeof(state.block)) { // the last block, full or not, is left to Blake2bFinal
            state.byteCount += state.filled;
            Compress(state, false);
            state.filled = 0;
        }
        const std::size_t count = std::min(bytes.size(), sizeof(state.block) - state.filled);
        std::memcpy(state.block + state.filled, bytes.data(), count);
        state.filled += count;
        bytes = bytes.subspan(count);
    }
}

void Blake2bFinal(Blake2bState& state, std::span<std::byte> digest) {
    state.byteCount += state.filled;
    std::memset(state.block + state.filled, 0, sizeof(state.block) - state.filled);
    Compress(state, true);
    for (std::uint64_t& word : state.chain)
        StoreLittle(&word, word);
    std::memcpy(digest.data(), state.chain, std::min(digest.size(), state.digestSize));
}

} // namespace quilla
