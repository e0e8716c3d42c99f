#pragma once

#include <cstdint>

namespace quilla {

/// Result of a control code, by the platform's system error numbers.
enum class DriverStatus : std::uint32_t {
    Success = 0,
    NotEnoughMemory = 8,
    NotReady = 21,
    WriteFault = 29,
    ReadFault = 30,
    NotSupported = 50,
    InvalidParameter = 87,
    InsufficientBuffer = 122,
};

} // namespace quilla
