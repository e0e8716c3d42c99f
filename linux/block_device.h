#pragma once

#include "linux/volume.h"

/// Volumes that are no files: a stick, a partition, a logical volume, an image that the system has mapped.
namespace quilla {

[[nodiscard]] bool IsBlockDevice(const char* path);

/// The size in bytes of a device that can be read; 0 with the system's error otherwise.
[[nodiscard]] std::uint64_t BlockDeviceSize(const char* path);

/// Whether a device may be made a volume: nobody uses it, and where it holds something that the system knows,
/// the user has agreed (at the terminal, or beforehand) to lose it.
[[nodiscard]] ExitCode AgreeToOverwrite(const Volume& volume, bool isAgreed);

/// Takes away what tells the system what a device held, at both of its ends, so that nobody mounts, or
/// repairs, the remains.
[[nodiscard]] ExitCode ClearDevice(const Volume& volume);

} // namespace quilla
