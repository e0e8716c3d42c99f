// Comforts of a desktop that a handheld does without.

#include "ui/dialog_support.h"
#include "ui/dismount_occasions.h"
#include "ui/gui_handles.h"
#include "ui/menu_shortcuts.h"
#include "ui/row_tip.h"
#include "ui/strength_tip.h"
#include "ui/strength_wait.h"

namespace quilla {

void FitDialog(HWND /*dialog*/, int /*units*/, std::span<const ControlLayout> /*controls*/) {}

/// The menus' own way with letters serves.
void AddShortcutTexts(HMENU /*menu*/, HACCEL /*table*/) {}

/// Windows there have the system's font.
UniqueFont CreateDialogFont(HWND /*window*/) {
    LOGFONTW description{};
    if (GetObjectW(GetStockObject(SYSTEM_FONT), sizeof(description), &description) == 0)
        return UniqueFont();
    return UniqueFont(CreateFontIndirectW(&description));
}

/// Nobody logs off there, and a handheld that is switched off keeps its volumes.
void DismountOccasions::Begin(HWND /*window*/) {}

void DismountOccasions::End() {}

bool DismountOccasions::HasCome(const MSG& /*message*/) const {
    return false;
}

bool DismountOccasions::OnCommand(int /*id*/) {
    return false;
}

bool DismountOccasions::OnUpdateCommand(BCommandState& /*state*/) const {
    return false;
}

/// List views there show tips of their own.
void RowTip::CreateFor(HWND /*list*/) {}

void RowTip::Follow(const MSG& /*message*/) {}

LRESULT RowTip::OnNotify(NMHDR& header) {
    return BWindow::OnNotify(header);
}

/// Where the option is not offered it needs no tip.
void StrengthTip::Show(HWND /*dialog*/, const Argon2Cost& /*cost*/) {}

LRESULT StrengthTip::OnNotify(NMHDR& header) {
    return BWindow::OnNotify(header);
}

/// Says at once that the function is not there.
Argon2Result StrengthWait::Strengthen(PasswordDigest& key, const KeyStrength& strength) {
    return StrengthenKey(key, strength);
}

} // namespace quilla
