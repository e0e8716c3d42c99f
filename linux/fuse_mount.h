#pragma once

#include "linux/descriptor.h"

#include <string>

namespace quilla {

/// Mounts /dev/fuse on a folder: directly as root, else through the system's fusermount3. Not open, after a
/// line that tells why, if the system refuses. The folder shows what is served on the descriptor, for the
/// user only.
[[nodiscard]] Descriptor MountFuse(const std::string& folder, bool readOnly);

/// Takes a mount away; lazily: as soon as nobody uses it any more. 0, or the error.
[[nodiscard]] int Unmount(const std::string& folder, bool lazily);

/// Whether something is mounted on a folder: it and its parent are on different devices.
[[nodiscard]] bool IsMountPoint(const std::string& folder);

} // namespace quilla
