#pragma once

#include <windows.h>

namespace quilla {

/// Shows what is wrong with the input of a dialog, in a message box that the dialog owns; errors that
/// wait to be shown come before it.
void ShowDialogError(HWND dialog, const wchar_t* text);

} // namespace quilla
