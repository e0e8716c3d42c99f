#pragma once

#include "platform/text.h"

namespace quilla {

/// The path of a file that lies beside the program; false if it is too long.
[[nodiscard]] bool PathBesideProgram(TextView fileName, PathText& path);

} // namespace quilla
