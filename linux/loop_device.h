#pragma once

#include "linux/descriptor.h"

#include <string>

namespace quilla {

/// A loop device on a file, with direct I/O. It goes away by itself when nobody has it open any more, so keep
/// the descriptor until a file system is mounted on it. Not open, after a line that tells why, if the system
/// refuses.
[[nodiscard]] Descriptor AttachLoop(const std::string& file, bool readOnly, std::string& device);

} // namespace quilla
