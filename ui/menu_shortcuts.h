#pragma once

#include <windows.h>

namespace quilla {

/// Writes the keys of the accelerator table behind the texts of a menu's items and of its submenus' items, as
/// desktop programs show them.
void AddShortcutTexts(HMENU menu);

} // namespace quilla
