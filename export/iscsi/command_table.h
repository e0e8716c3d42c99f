#pragma once

#include "export/iscsi/device_server.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quilla::iscsi {

using Usage = std::array<std::uint8_t, 16>;

/// One command: opcode, service action, which bits of its block mean something, what carries it out.
struct DeviceServer::Entry {
    std::uint8_t opcode;
    std::uint8_t action;
    Usage usage;
    Handler handler;
};

inline constexpr std::uint8_t kNoAction = 0xFF;
inline constexpr std::uint8_t kActionMask = 0x1F;

/// Options in the second byte of a command on blocks.
inline constexpr std::uint8_t kDpo = 0x10;
inline constexpr std::uint8_t kFua = 0x08;
inline constexpr std::uint8_t kByteCheck = 0x02;
inline constexpr std::uint8_t kImmediateAnswer = 0x06;
inline constexpr std::uint8_t kNoDataOut = 0x01;

/// Size of a command block, by the group in the upper three bits of its opcode (SPC-4, 4.2.5.1).
constexpr unsigned SizeOfBlock(std::uint8_t opcode) {
    constexpr unsigned kSizes[8] = {6, 10, 10, 16, 16, 12, 16, 16};
    return kSizes[opcode >> 5];
}

/// The mask of a command with address and count of blocks.
constexpr Usage UsageOfBlocks(std::uint8_t opcode, std::uint8_t options) {
    Usage usage{};
    const std::size_t size = SizeOfBlock(opcode);
    for (std::size_t i = 2; i < size - 1; ++i)
        usage[i] = 0xFF;
    usage[0] = opcode;
    usage[1] = size == 6 ? 0x1F : options;
    if (size != 6)
        usage[size == 10 ? 6 : size - 2] = 0x1F; // group number, of no effect
    return usage;
}

/// A descriptor of time-outs that promises nothing.
inline constexpr std::uint8_t kNoTimeouts[12] = {0, 10};

} // namespace quilla::iscsi
