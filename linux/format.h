#pragma once

#include "linux/message.h"
#include "linux/volume.h"

namespace quilla {

/// Whether the system can make a file system of this type (null = none is wanted); names the package if not.
[[nodiscard]] ExitCode CheckFormat(const char* type);

/// Makes a file system on a volume that has just been created, through its plain file. The password key is
/// the volume's.
[[nodiscard]] ExitCode FormatVolume(const Volume& volume, PasswordDigest& key, const char* type);

} // namespace quilla
