#include "ui/menu_shortcuts.h"

#include "platform/text.h"
#include "ui/resource.h"

#include <cwchar>
#include <iterator>
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
    _snwprintf(text, kTextUnits, L"%ls+%ls", alt, key);
    text[kTextUnits - 1] = 0;
}

void AddShortcutText(HMENU menu, int position, const ACCEL& accelerator) {
    wchar_t shortcut[kTextUnits];
    NameShortcut(accelerator, shortcut);
    wchar_t text[kTextUnits];
    GetMenuStringW(menu, static_cast<UINT>(position), text, kTextUnits, MF_BYPOSITION);
    wchar_t full[2 * kTextUnits];
    _snwprintf(full, std::size(full), L"%ls\t%ls", text, shortcut);
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

} // namespace

void AddShortcutTexts(HMENU menu) {
    const HACCEL table = LoadAcceleratorsW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDR_ACCELERATORS));
    ACCEL accelerators[kMaxAccelerators];
    const int count = CopyAcceleratorTableW(table, accelerators, kMaxAccelerators);
    AddShortcutTexts(menu, std::span(accelerators, static_cast<std::size_t>(count)));
}

} // namespace quilla
