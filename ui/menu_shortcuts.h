#pragma once

#include <windows.h>

namespace quilla {

/// Writes the keys of an accelerator table behind the texts of a menu's items and of its submenus' items, as
/// desktop programs show them.
void AddShortcutTexts(HMENU menu, HACCEL table);

/// The answer to WM_MENUCHAR, a letter that is no access key of a menu: the only item that begins with it, or
/// the next one of several. Windows itself takes first letters for access keys, Wine does not.
[[nodiscard]] LRESULT AnswerMenuLetter(HMENU menu, wchar_t letter);

} // namespace quilla
