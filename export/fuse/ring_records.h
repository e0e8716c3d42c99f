#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The kernel's records of FUSE requests by io_uring. Published source: the header linux/fuse.h of Linux 6.14;
// older systems build this, too.

namespace quilla::fuse {

/// Of the second 32 flags of FUSE_INIT: requests may come by ring.
constexpr std::uint32_t kOverIoUring = 1U << (41 - 32);

/// What a place of a ring is filled with, and answered by; the payload lies elsewhere.
struct RingRecord {
    std::array<std::byte, 128> header;    ///< fuse_in_header, then fuse_out_header
    std::array<std::byte, 128> operation; ///< the operation's own record
    std::uint64_t flags;
    std::uint64_t commit; ///< names the request in the answer
    std::uint32_t payloadSize;
    std::uint32_t padding;
    std::uint64_t reserved;
};
static_assert(sizeof(RingRecord) == 288);

enum class RingCommand : std::uint32_t {
    Register = 1, ///< offers a place to the kernel
    Answer = 2,   ///< answers its request and offers it again
};

/// A command's own part of its submission.
struct RingCommandRecord {
    std::uint64_t flags = 0;
    std::uint64_t commit = 0;
    std::uint16_t queue = 0; ///< one for each processor that the kernel may ever have
    std::array<std::uint8_t, 6> padding{};
};
static_assert(sizeof(RingCommandRecord) == 24);

} // namespace quilla::fuse
