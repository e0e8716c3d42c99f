#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quilla::bench {

/// A way to encipher or decipher consecutive 512-byte sectors in place, the first with the number given.
using SectorWork = std::function<void(std::uint64_t first, std::byte* sectors, std::size_t count)>;

/// One competitor in one piece of work.
struct Contender {
    std::string work; ///< "Twofish-256 XTS encrypt" and the like
    std::string name;
    SectorWork run;
};

/// What other libraries offer for the two ciphers, set up with fixed keys. Where a mode needs an IV they are
/// given the sector's number as it is, which costs them nothing; the kernels of this project encipher it
/// first.
[[nodiscard]] std::vector<Contender> PeerContenders();

inline constexpr const char* kTwofishEncrypt = "Twofish-256 XTS encrypt";
inline constexpr const char* kTwofishDecrypt = "Twofish-256 XTS decrypt";
inline constexpr const char* kCastEncrypt = "CAST-128 CBC encrypt";
inline constexpr const char* kCastDecrypt = "CAST-128 CBC decrypt";

} // namespace quilla::bench
