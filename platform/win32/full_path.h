#pragma once

#include "platform/text.h"

namespace quilla {

/// Writes the full form of a path, in which equal files of a local drive have equal names but for letter
/// case; the path itself where that does not fit.
void WriteFullPath(const wchar_t* path, PathText& text);

} // namespace quilla
