#pragma once

#include "volume/volume_record.h"

#include <span>

namespace quilla {

/// Units that hold every address.
inline constexpr std::size_t kAddressUnits = 128;

/// Where block device clients reach a mounted volume (an NBD URI). False if it is not mounted, or if the
/// system shows its block devices by itself.
[[nodiscard]] bool CopyDeviceAddress(const VolumeRecord& record, std::span<wchar_t, kAddressUnits> text);

} // namespace quilla
