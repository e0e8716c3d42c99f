#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320, preset and complemented). A former result as start
/// continues it over more bytes.
[[nodiscard]] std::uint32_t Crc32(std::span<const std::byte> bytes, std::uint32_t start = 0);

} // namespace quilla
