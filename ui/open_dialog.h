#pragma once

#include <windows.h>

namespace quilla {

/// A dialog, message box or file dialog that is open on this thread, or null.
[[nodiscard]] HWND FindOpenDialog();

} // namespace quilla
