#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace quilla {

/// Changing system state at one moment, in the sizes of a 32-bit handheld, so that it means the same wherever
/// it is taken. Fields stand in the order in which the random pool takes them in.
struct EntropySnapshot {
    /// Active, foreground, focus and capture window, process heap; 0 = none.
    std::array<std::uint32_t, 5> handles;
    std::uint32_t processId;
    std::uint32_t threadId;
    std::uint32_t messagePosition; ///< of the pointer at the last message
    std::uint32_t tickCount;       ///< milliseconds since the system's start
    std::array<std::byte, 32> memoryStatus;
    std::array<std::byte, 36> systemInfo;
    bool hasFrequency; ///< whether the next field was available
    std::array<std::byte, 8> counterFrequency;
    bool hasCounter; ///< whether the next field was available
    std::array<std::byte, 8> counter;
    std::array<std::byte, 16> systemTime;
    std::array<std::byte, 512> pointerHistory; ///< 64 points of two 32-bit coordinates
};

/// Takes a snapshot; what the system cannot tell is filled from its random generator.
void TakeEntropySnapshot(EntropySnapshot& snapshot);

} // namespace quilla
