#pragma once

#include <windows.h>

namespace quilla {

class BWindow;

/// The private message that a bound window answers with the address of its object.
inline constexpr UINT kObjectQuery = WM_APP + 0x1C8;
static_assert(kObjectQuery == 0x81C8);

/// Where every stub leads: a window procedure with the object in place of the window handle.
LRESULT CALLBACK ToolkitWindowProcedure(BWindow* object, UINT message, WPARAM wParam, LPARAM lParam);

} // namespace quilla
