#pragma once

#include "platform/device_name.h"

#include <array>
#include <cstddef>

namespace quilla {

inline constexpr std::size_t kExportNameRandomBytes = 16;

/// Name of the export of device "SECn:": "SECn-", two hexadecimal digits per random byte, a terminating zero.
/// Whoever knows it may use the device.
using ExportName = std::array<char, sizeof(kDevicePrefix) + sizeof("0-") - 1 + 2 * kExportNameRandomBytes>;

/// Makes a name nobody can guess, for a device index of 0 to 9; false if the system has no random numbers.
[[nodiscard]] bool MakeExportName(unsigned deviceIndex, ExportName& name);

} // namespace quilla
