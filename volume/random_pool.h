#pragma once

#include "platform/entropy_snapshot.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

inline constexpr std::size_t kRandomPoolSize = 256;

/// Gathers system state and stirs it with the SHA-1 compression function; lives for one request only.
struct EntropyPool {
    std::byte pool[kRandomPoolSize];
    std::byte spill[4]; ///< the last stir step covers 20 bytes from offset 240
    std::uint32_t position;
};

/// Adds a byte modulo 256, stirring first when the pool has been gone through once.
void AddByte(EntropyPool& pool, std::byte value);

/// Adds the four bytes of a number, the most significant first.
void AddNumber(EntropyPool& pool, std::uint32_t value);

void AddBytes(EntropyPool& pool, std::span<const std::byte> bytes);

/// Adds a whole snapshot in its order.
void AddSnapshot(EntropyPool& pool, const EntropySnapshot& snapshot);

/// Mixes the whole pool and starts over at its first byte.
void StirPool(EntropyPool& pool);

/// Writes up to 256 random bytes to the front of the buffer; returns how many. The pool starts with bytes
/// from the operating system's cryptographic generator, so its strength never rests on the snapshot alone:
/// when that generator refuses, nothing is written and the result is 0.
[[nodiscard]] std::size_t RandomFill(std::span<std::byte> buffer);

} // namespace quilla
