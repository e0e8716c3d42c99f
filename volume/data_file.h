#pragma once

#include "platform/file.h"

#include <cstdint>

namespace quilla {

/// Creates a volume's data file in its full size; its content is whatever the file system gives a file that
/// was extended. An existing file is never touched, and what a failure has begun is removed.
[[nodiscard]] bool CreateDataFile(const PathUnit* path, std::uint64_t size);

} // namespace quilla
