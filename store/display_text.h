#pragma once

#include "platform/text.h"
#include "volume/cipher_id.h"

#include <cstdint>

namespace quilla {

/// Units that hold every text of FormatSize.
inline constexpr std::size_t kSizeTextUnits = 32;
using SizeText = TextUnit[kSizeTextUnits];

/// Writes a byte count in the largest fitting unit ("Bytes" to "GB", powers of 1024), with one decimal below
/// 100 of a unit unless it is zero, rounded half up. Returns the length written.
std::size_t FormatSize(std::uint64_t size, SizeText& text);

/// The name of one of the eleven ciphers; the number must be below kCipherIdCount.
[[nodiscard]] const TextUnit* CipherName(CipherId id);

} // namespace quilla
