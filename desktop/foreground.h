#pragma once

#include <windows.h>

namespace quilla {

/// Passes this process's right to come to the front on to the process of a window. The user's click started
/// this process, so desktop Windows would not let the other one take the foreground by itself.
void AllowComingToFront(HWND window);

} // namespace quilla
