#pragma once

#include "linux/message.h"
#include "platform/block_device.h"

#include <string>

namespace quilla {

/// Mounts what a device holds on a folder, by the program for it, which gets at the device through a file.
/// What was not unmounted in order is checked first. Tells what went wrong.
[[nodiscard]] ExitCode MountByProgram(BlockDevice& device, const std::string& file, const std::string& folder,
                                      bool readOnly);

/// Whether any of these programs is installed.
[[nodiscard]] bool HasFileSystemProgram();

} // namespace quilla
