#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace quilla {

inline constexpr std::size_t kBlake2bLargestDigest = 64;

/// State of an incremental BLAKE2b (RFC 7693) without a key. Holds traces of what was hashed: wipe it after
/// hashing secrets.
struct Blake2bState {
    std::uint64_t chain[8];
    std::uint64_t byteCount; ///< compressed so far; messages stay far below 2^64 bytes
    std::byte block[128];
    std::size_t filled; ///< of the block
    std::size_t digestSize;
};
static_assert(std::is_trivially_copyable_v<Blake2bState>);

/// Begins a message whose digest will have 1 to 64 bytes; the size is part of what is hashed.
void Blake2bInit(Blake2bState& state, std::size_t digestSize);

void Blake2bUpdate(Blake2bState& state, std::span<const std::byte> bytes);

/// Ends the message and writes its digest, as long as Blake2bInit was told.
void Blake2bFinal(Blake2bState& state, std::span<std::byte> digest);

} // namespace quilla
