#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Twofish (Schneier, Kelsey, Whiting, Wagner, Hall, Ferguson: "Twofish: A 128-Bit Block Cipher", 1998).
namespace quilla {

inline constexpr std::size_t kTwofishBlockSize = 16;
inline constexpr std::size_t kTwofishMaxKeySize = 32;
inline constexpr std::size_t kTwofishSubkeys = 40;

/// An expanded key without tables: all that a kernel of its own needs to build what suits it.
struct TwofishKey {
    std::uint32_t subkeys[kTwofishSubkeys]; ///< 4 input whitening, 4 output whitening, 2 for each round
    std::uint32_t sboxKey[4];               ///< key words of the S-boxes, the one applied last first
    std::uint32_t sboxKeyWords;             ///< how many of them are used: 2, 3 or 4
};

/// The four key-dependent S-boxes, one for each byte of a word, low byte first; the MDS matrix not applied.
struct TwofishSboxes {
    std::uint8_t box[4][256];
};

/// A key ready for single blocks: the S-boxes joined with the MDS matrix, 4 KiB.
struct TwofishSchedule {
    std::uint32_t subkeys[kTwofishSubkeys];
    std::uint32_t tables[4][256]; ///< of each input byte's S-box, times its column of the matrix
};

/// Expands a key of up to 32 bytes; a length other than 16, 24 or 32 is padded with zeros to the next of
/// these. Returns false for a longer key, with nothing expanded.
[[nodiscard]] bool ExpandTwofishKey(TwofishKey& expanded, std::span<const std::byte> key);

void BuildTwofishSboxes(TwofishSboxes& sboxes, const TwofishKey& key);
void BuildTwofishSchedule(TwofishSchedule& schedule, const TwofishKey& key);

/// Both steps at once; false for a key over 32 bytes.
[[nodiscard]] bool BuildTwofishSchedule(TwofishSchedule& schedule, std::span<const std::byte> key);

/// One block of 16 bytes; in and out may be the same.
void TwofishEncryptBlock(const TwofishSchedule& schedule, const std::byte* in, std::byte* out);
void TwofishDecryptBlock(const TwofishSchedule& schedule, const std::byte* in, std::byte* out);

} // namespace quilla
