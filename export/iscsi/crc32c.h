#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla::iscsi {

/// CRC-32C (Castagnoli, RFC 7143, 13.1) of bytes; begin with 0, or with the value of what stands before. By
/// the processor's own instruction where it has one.
[[nodiscard]] std::uint32_t Crc32c(std::span<const std::byte> bytes, std::uint32_t before = 0);

/// The same by table, on any processor.
[[nodiscard]] std::uint32_t Crc32cByTable(std::span<const std::byte> bytes, std::uint32_t before = 0);

} // namespace quilla::iscsi
