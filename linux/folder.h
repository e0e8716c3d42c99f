#pragma once

#include "linux/message.h"

#include <string>

namespace quilla {

/// Makes a place to mount on ready: makes the folder if its parent is there, else checks that it is an empty
/// folder on which nothing is mounted. The path becomes absolute.
[[nodiscard]] ExitCode PrepareFolder(std::string& folder, bool& isMade);

} // namespace quilla
