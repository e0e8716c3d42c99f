#pragma once

#include "platform/text.h"

namespace quilla {

/// Completes a path with the drive and the folder that this process has at the moment, so that it means the
/// same file to another process: relative paths, "C:x.raw", "\\x.raw", "/", "." and "..". An empty path, and
/// one whose full form would not fit, stay as they are. Windows CE has neither drives nor a current folder,
/// so a path from there is complete.
void CompletePath(PathText& path);

} // namespace quilla
