#pragma once

#include <windows.h>

namespace quilla {

/// Opens the help page: in the handheld's help viewer, or where there is none in the program that shows web
/// pages. Shows nothing if neither starts.
void OpenHelp(HWND owner);

} // namespace quilla
