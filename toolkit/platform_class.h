#pragma once

#include <windows.h>

namespace quilla {

/// Takes the class record of one of the platform's controls for creating a window.
void UsePlatformClass(WNDCLASSW& windowClass, const wchar_t* name);

} // namespace quilla
