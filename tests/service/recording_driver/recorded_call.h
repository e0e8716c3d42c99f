#pragma once

#include <cstddef>
#include <cstdint>

namespace quilla::test {

/// A control code that the recording driver was sent.
struct RecordedCall {
    std::uint32_t code;
    std::uint32_t size; ///< of the input, in bytes
    bool hasOutput;
    std::byte input[1128];
};

} // namespace quilla::test
