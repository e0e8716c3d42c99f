#pragma once

#include <array>
#include <cstddef>

namespace quilla {

inline constexpr std::size_t kPasswordKeySize = 20;

/// The 20 bytes that encipher a volume's key block: the five SHA-1 chaining words of the password, each
/// stored little-endian.
using PasswordDigest = std::array<std::byte, kPasswordKeySize>;

} // namespace quilla
