#include "ui/menu_shortcuts.h"

#include "platform/text.h"
#include "platform/win32/format_text.h"

#include <span>

namespace quilla {

namespace {

constexpr std::size_t kTextUnits = 80;
constexpr int kMaxAccelerators = 16;

/// The name of a key in the user's language.
void NameKey(UINT key, wchar_t (&name)[kTextUnits]) {
    constexpr UINT kExtendedKey = 1U << 24; // keeps the keypad's names away
    const bool isExtended = key == VK_INSERT || key == VK_DELETE;
    const UINT scanCode = MapVirtualKeyW(key, MAPVK_VK_TO_VSC);
    name[0] = 0;
    GetKeyNameTextW(static_cast<LONG>((scanCode << 16) | (isExtended ? kExtendedKey : 0)), name, kTextUnits);
}

void NameShortcut(const ACCEL& accelerator, wchar_t (&text)[kTextUnits]) {
    wchar_t key[kTextUnits];
    NameKey(accelerator.key, key);
    if (!(accelerator.fVirt & FALT)) {
        CopyText(text, key);
        return;
    }
    wchar_t alt[kTextUnits];
    NameKey(VK_MENU, alt);
    FormatText(text, L"%ls+%ls", alt, key);
}

void AddShortcutText(HMENU menu, int position, const ACCEL& accelerator) {
    wchar_t shortcut[kTextUnits];
    NameShortcut(accelerator, shortcut);
    wchar_t text[kTextUnits];
    GetMenuStringW(menu, static_cast<UINT>(position), text, kTextUnits, MF_BYPOSITION);
    wchar_t full[2 * kTextUnits];
    FormatText(full, L"%ls\t%ls", text, shortcut);
    MENUITEMINFOW item{};
    item.cbSize = sizeof(item);
    item.fMask = MIIM_STRING;
    item.dwTypeData = full;
    SetMenuItemInfoW(menu, static_cast<UINT>(position), TRUE, &item);
}

void AddShortcutTexts(HMENU menu, std::span<const ACCEL> accelerators) {
    for (int position = GetMenuItemCount(menu) - 1; position >= 0; --position) {
        if (const HMENU submenu = GetSubMenu(menu, position))
            AddShortcutTexts(submenu, accelerators);
        const UINT id = GetMenuItemID(menu, position);
        for (const ACCEL& accelerator : accelerators)
            if (accelerator.cmd == id)
                AddShortcutText(menu, position, accelerator);
    }
}

bool StartsWith(HMENU menu, int position, wchar_t letter) {
    wchar_t text[kTextUnits];
    return GetMenuStringW(menu, static_cast<UINT>(position), text, kTextUnits, MF_BYPOSITION) > 0 &&
           CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, text, 1, &letter, 1) == CSTR_EQUAL;
}

bool IsHighlighted(HMENU menu, int position) {
    return (GetMenuState(menu, static_cast<UINT>(position), MF_BYPOSITION) & MF_HILITE) != 0;
}

} // namespace

LRESULT AnswerMenuLetter(HMENU menu, wchar_t letter) {
    const int count = GetMenuItemCount(menu);
    int first = 0; // the one behind the highlighted one
    for (int position = 0; position < count; ++position)
        if (IsHighlighted(menu, position))
            first = position + 1;
    int found = -1;
    int matches = 0;
    for (int i = count - 1; i >= 0; --i) {
        const int position = (first + i) % count;
        if (StartsWith(menu, position, letter)) {
            found = position;
            ++matches;
        }
    }
    if (matches == 0)
        return MAKELRESULT(0, MNC_IGNORE);
    return MAKELRESULT(found, matches == 1 ? MNC_EXECUTE : MNC_SELECT);
}

void AddShortcutTexts(HMENU menu, HACCEL table) {
    ACCEL accelerators[kMaxAccelerators];
    const int count = CopyAcceleratorTableW(table, accelerators, kMaxAccelerators);
    AddShortcutTexts(menu, std::span(accelerators, static_cast<std::size_t>(count)));
}

} // namespace quilla
