#include "volume/crc32.h"

#include <array>

namespace quilla {

namespace {

constexpr std::uint32_t kPolynomial = 0xEDB88320;

/// The register's change for each of its low bytes.
constexpr auto kTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1) ^ ((value & 1) != 0 ? kPolynomial : 0);
        table[i] = value;
    }
    return table;
}();

} // namespace

std::uint32_t Crc32(std::span<const std::byte> bytes, std::uint32_t start) {
    std::uint32_t value = ~start;
    for (const std::byte byte : bytes)
        value = (value >> 8) ^ kTable[(value ^ std::to_integer<std::uint32_t>(byte)) & 0xFF];
    return ~value;
}

} // namespace quilla
