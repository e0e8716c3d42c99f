#pragma once

#include <windows.h>

namespace quilla {

/// Puts a text on the clipboard; false if another program holds it.
bool CopyToClipboard(HWND owner, const wchar_t* text);

} // namespace quilla
