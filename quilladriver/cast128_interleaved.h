#pragma once

#include "quilladriver/cast128_keys.h"

#include <cstddef>
#include <cstdint>

namespace quilla {

/// CAST-128 in CBC mode over whole sectors with tables, several sectors (enciphering) or blocks (deciphering)
/// at once so that a 64-bit processor is never waiting for a look-up.
void CastEncryptSectors(const CastKeyPair& keys, std::uint64_t firstSector, std::byte* sectors,
                        std::size_t count);
void CastDecryptSectors(const CastKeyPair& keys, std::uint64_t firstSector, std::byte* sectors,
                        std::size_t count);

} // namespace quilla
