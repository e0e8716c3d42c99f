#pragma once

#include "quilladriver/volume_device.h"

namespace quilla {

/// Opens a data file for the servers of the benchmarks, by a cipher's number ("10:AVX2" = by the kernel whose
/// name begins so) and a data key of 64 hexadecimal digits, or @PATH of a file that holds them. Null, or what
/// is wrong.
[[nodiscard]] const char* OpenServedVolume(const char* path, const char* cipher, const char* key,
                                           VolumeDevice& device);

} // namespace quilla
