#pragma once

#include "volume/cipher_id.h"
#include "volume/password_digest.h"
#include "volume/volume_record.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace quilla {

inline constexpr std::size_t kMasterKeySize = 128;
inline constexpr std::size_t kIvFieldSize = 20;

/// The secret part of a key file: 128 random bytes made once for the volume, enciphered under the password
/// key. Only the first 32 are in use, as the volume's data key.
struct KeyBlock {
    std::array<std::byte, kMasterKeySize> masterKey;
    std::uint32_t checksum;                 ///< CRC-32 of the plain master key
    std::array<std::byte, kIvFieldSize> iv; ///< the cipher takes as many bytes as its block has
};
static_assert(std::is_trivially_copyable_v<KeyBlock> && std::is_standard_layout_v<KeyBlock>);
static_assert(std::endian::native == std::endian::little, "numbers of key files are little-endian");
static_assert(offsetof(KeyBlock, masterKey) == 0);
static_assert(offsetof(KeyBlock, checksum) == 128);
static_assert(offsetof(KeyBlock, iv) == 132);
static_assert(sizeof(KeyBlock) == 152);

/// Deciphers a block in place and wipes the password key. True if the key was right, that is if the plain
/// master key has the stored checksum. Wipe the block after use.
[[nodiscard]] bool OpenKeyBlock(KeyBlock& block, CipherId cipher, PasswordDigest& passwordKey);

/// Enciphers an open block in place with a fresh IV and wipes the password key. The checksum stays. Returns
/// false, with the master key still plain, when there is no such cipher, no memory or no random IV.
[[nodiscard]] bool SealKeyBlock(KeyBlock& block, CipherId cipher, PasswordDigest& passwordKey);

/// Makes a new master key and seals it; fails like SealKeyBlock, with the block wiped.
[[nodiscard]] bool MakeKeyBlock(KeyBlock& block, CipherId cipher, PasswordDigest& passwordKey);

/// The data key of an open block.
void TakeDataKey(DataKey& key, const KeyBlock& block);

} // namespace quilla
