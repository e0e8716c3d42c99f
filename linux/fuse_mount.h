#pragma once

#include "linux/descriptor.h"

#include <string>

namespace quilla {

/// Mounts /dev/fuse on a folder: directly as root, else through the system's fusermount3. Not open, after a
/// line that tells why, if the system refuses. The folder shows what is served on the descriptor; for the
/// user only, or also for root where the system allows that to users.
[[nodiscard]] Descriptor MountFuse(const std::string& folder, bool readOnly, bool allowRoot);

/// Takes a mount away; lazily: as soon as nobody uses it any more. 0, or the error.
[[nodiscard]] int Unmount(const std::string& folder, bool lazily);

/// Whether something is mounted on a folder: it and its parent are on different devices.
[[nodiscard]] bool IsMountPoint(const std::string& folder);

/// Whether users may let root look at their mounts (user_allow_other in /etc/fuse.conf).
[[nodiscard]] bool UsersMayAllowRoot();

} // namespace quilla
