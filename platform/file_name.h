#pragma once

#include "platform/file.h"

#include <span>

/// What a file has by its name. After a failure the platform's last error is the one of the call that failed.
namespace quilla {

/// No path is longer, its terminator included.
#ifdef _WIN32
inline constexpr std::size_t kLongestPath = 512;
#else
inline constexpr std::size_t kLongestPath = 4096;
#endif

/// Writes the path of the file itself, where a name may be a link to it. The room takes kLongestPath units.
[[nodiscard]] bool ResolvePath(const PathUnit* path, std::span<PathUnit> resolved);

/// Gives a file the attributes, owner and permissions of another.
[[nodiscard]] bool CopyFileProperties(const PathUnit* from, const PathUnit* to);

/// Gives a file the name of another, whose place it takes in one step, and waits until that is on the medium
/// where the system tells.
[[nodiscard]] bool RenameOver(const PathUnit* from, const PathUnit* to);

/// Whether RenameOver takes the place of a file that is open.
#ifdef _WIN32
inline constexpr bool kReplacesOpenFiles = false;
#else
inline constexpr bool kReplacesOpenFiles = true;
#endif

} // namespace quilla
