#pragma once

#include "volume/cipher_id.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla::test {

/// What libgcrypt makes of a volume's sectors, in place: Twofish in XTS or CAST-128 in CBC, with tweak key
/// and IVs derived once more from the format's definition (docs/volume-data-format.md).
void OracleEncryptSectors(CipherId cipher, const DataKey& key, std::uint64_t first,
                          std::span<std::byte> sectors);

} // namespace quilla::test
