#pragma once

#include <cstdint>

namespace quilla {

/// Names a cipher in key files, records and the driver. The eleven numbers 0 to 10 have names; only these
/// three can encipher.
enum class CipherId : std::uint32_t {
    None = 0,
    Cast128 = 6,
    Twofish = 10,
};

/// Numbers from here on name nothing.
inline constexpr std::uint32_t kCipherIdCount = 11;

} // namespace quilla
