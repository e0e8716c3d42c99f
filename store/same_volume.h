#pragma once

#include "platform/text.h"

namespace quilla {

/// Whether two paths name the same volume: equal but for letter case, else with the same full path, in which
/// "/" is a backslash and ".", ".." and short names are resolved. The files need not exist, and no network
/// is asked.
[[nodiscard]] bool IsSameVolume(const wchar_t* one, const wchar_t* other);

} // namespace quilla
