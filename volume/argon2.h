#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

struct Argon2Kernel;

/// What the function costs.
struct Argon2Cost {
    std::uint32_t memory; ///< KiB, at least 8 for each lane
    std::uint32_t passes; ///< over the memory, at least 1
    std::uint32_t lanes;  ///< at least 1; as many processors can work on it at once
    bool operator==(const Argon2Cost&) const = default;
};

/// RFC 9106, section 4, the second recommended option.
inline constexpr Argon2Cost kDefaultArgon2Cost = {.memory = 64 * 1024, .passes = 3, .lanes = 4};

/// Lets another thread follow the function and end it early.
struct Argon2Watch {
    std::atomic<bool> stop{false};
    std::atomic<std::uint32_t> percentDone{0};
};

enum class Argon2Result : std::uint8_t {
    Done,
    NoMemory, ///< the system cannot give what the cost asks for
    Stopped,
    Unknown ///< to this edition
};

/// What is hashed.
struct Argon2Input {
    std::span<const std::byte> password;
    std::span<const std::byte> salt;
    std::span<const std::byte> secret = {};
    std::span<const std::byte> associated = {};
};

/// Argon2id (RFC 9106), version 0x13: fills the tag, which has at least 4 bytes. Runs on as many threads as
/// there are lanes and processors, in memory of its own that is wiped. Without a kernel the processor's best
/// is taken.
[[nodiscard]] Argon2Result Argon2id(std::span<std::byte> tag, const Argon2Input& input,
                                    const Argon2Cost& cost, Argon2Watch* watch = nullptr,
                                    const Argon2Kernel* kernel = nullptr);

} // namespace quilla
