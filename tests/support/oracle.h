#pragma once

#include "tests/support/hex.h"

#include <cstdint>

/// What other libraries say about the key file's cryptography.
namespace quilla::test {

/// SHA-1 of a password (libgcrypt), each word of the digest turned to little-endian.
Bytes OraclePasswordKey(std::u16string_view password);

/// CRC-32 (libgcrypt).
std::uint32_t OracleCrc32(std::span<const std::byte> bytes);

/// Cipher 6: CAST-128 in CFB mode under the first 16 bytes of the key (libgcrypt). Cipher 10: Twofish in CBC
/// mode under the first 32 bytes of the key, padded to the next key size (nettle).
Bytes OracleEncipher(std::uint32_t cipher, const Bytes& key, const Bytes& iv, const Bytes& plain);
Bytes OracleDecipher(std::uint32_t cipher, const Bytes& key, const Bytes& iv, const Bytes& enciphered);

} // namespace quilla::test
