#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

/// CAST-128 (RFC 2144) with its full key of 128 bits and 16 rounds.
namespace quilla {

inline constexpr std::size_t kCastBlockSize = 8;
inline constexpr std::size_t kCastKeySize = 16;
inline constexpr std::size_t kCastRounds = 16;

/// S-boxes S1 to S8 of RFC 2144, appendix A: the first four serve the rounds, the others the key schedule.
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): constinit rules that out
extern constinit const std::uint32_t kCastSboxes[8][256];

struct CastSchedule {
    std::uint32_t masking[kCastRounds];
    std::uint32_t rotation[kCastRounds]; ///< 0 to 31
};
static_assert(sizeof(CastSchedule) == 128);

void BuildCastSchedule(CastSchedule& schedule, std::span<const std::byte, kCastKeySize> key);

/// The three kinds of rounds, used in turn (RFC 2144, section 2.2): f(data, masking key, rotation key).
[[nodiscard]] inline std::uint32_t CastRound1(std::uint32_t data, std::uint32_t masking,
                                              std::uint32_t rotation) {
    const std::uint32_t i = std::rotl(masking + data, static_cast<int>(rotation));
    return ((kCastSboxes[0][i >> 24] ^ kCastSboxes[1][(i >> 16) & 0xFF]) - kCastSboxes[2][(i >> 8) & 0xFF]) +
           kCastSboxes[3][i & 0xFF];
}
[[nodiscard]] inline std::uint32_t CastRound2(std::uint32_t data, std::uint32_t masking,
                                              std::uint32_t rotation) {
    const std::uint32_t i = std::rotl(masking ^ data, static_cast<int>(rotation));
    return ((kCastSboxes[0][i >> 24] - kCastSboxes[1][(i >> 16) & 0xFF]) + kCastSboxes[2][(i >> 8) & 0xFF]) ^
           kCastSboxes[3][i & 0xFF];
}
[[nodiscard]] inline std::uint32_t CastRound3(std::uint32_t data, std::uint32_t masking,
                                              std::uint32_t rotation) {
    const std::uint32_t i = std::rotl(masking - data, static_cast<int>(rotation));
    return ((kCastSboxes[0][i >> 24] + kCastSboxes[1][(i >> 16) & 0xFF]) ^ kCastSboxes[2][(i >> 8) & 0xFF]) -
           kCastSboxes[3][i & 0xFF];
}

/// One block of 8 bytes; in and out may be the same.
void CastEncryptBlock(const CastSchedule& schedule, const std::byte* in, std::byte* out);
void CastDecryptBlock(const CastSchedule& schedule, const std::byte* in, std::byte* out);

} // namespace quilla
