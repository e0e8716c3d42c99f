#pragma once

#include "platform/disk_codes.h"
#include "quilladriver/driver_status.h"
#include "quilladriver/volume_device.h"

namespace quilla {

/// Carries out a scatter-gather request: its sectors are the bytes of its buffers strung together. Buffers of
/// a write keep their content. Whatever the buffers are, nothing outside the device is touched and no request
/// is served in part when its numbers do not fit together.
[[nodiscard]] DriverStatus ReadScattered(VolumeDevice& device, const ScatterRequest& request);
[[nodiscard]] DriverStatus WriteScattered(VolumeDevice& device, const ScatterRequest& request);

} // namespace quilla
