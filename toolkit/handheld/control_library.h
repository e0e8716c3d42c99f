#pragma once

#include <windows.h>

namespace quilla {

/// A function of the system's library of common controls, which exports by name what others have in a header;
/// null if it has none of that name.
[[nodiscard]] FARPROC FindInControlLibrary(const wchar_t* name);

} // namespace quilla
