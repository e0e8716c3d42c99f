#pragma once

#include "ui/gui_handles.h"

namespace quilla {

/// The font in which the system shows texts of windows, in the size for a window's resolution.
[[nodiscard]] UniqueFont CreateMessageFont(HWND window);

} // namespace quilla
