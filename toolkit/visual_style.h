#pragma once

#include <windows.h>

namespace quilla {

/// Controls that draw themselves and have to look like the platform's own beside them: these draw in the
/// system's visual style and return true, or draw nothing and return false where controls have their classic
/// look.

enum class ControlLook { kNormal, kFocused, kPressed, kDisabled };

bool DrawStyledButton(HWND window, HDC context, ControlLook look, const RECT& place);
bool DrawStyledEditEdge(HWND window, HDC context, ControlLook look, const RECT& place);

} // namespace quilla
