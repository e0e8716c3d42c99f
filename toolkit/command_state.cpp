#include "toolkit/command_state.h"

#include <commctrl.h>

namespace quilla {

void BControlState::Enable(bool enable) {
    EnableWindow(target, enable);
}

void BControlState::SetCheck(int check) {
    SendMessageW(target, BM_SETCHECK, static_cast<WPARAM>(check), 0);
}

void BControlState::SetText(const wchar_t* text) {
    SetWindowTextW(target, text);
}

void BControlState::SetReadOnly(bool readOnly) {
    SendMessageW(target, EM_SETREADONLY, readOnly, 0);
}

void BMenuItemState::Enable(bool enable) {
    EnableMenuItem(target, position, MF_BYPOSITION | (enable ? MF_ENABLED : MF_GRAYED));
}

void BMenuItemState::SetCheck(int check) {
    CheckMenuItem(target, position, MF_BYPOSITION | (check != 0 ? MF_CHECKED : MF_UNCHECKED));
}

void BToolbarButtonState::Enable(bool enable) {
    SendMessageW(target, TB_ENABLEBUTTON, static_cast<WPARAM>(id), enable);
}

void BToolbarButtonState::SetCheck(int check) {
    SendMessageW(target, TB_CHECKBUTTON, static_cast<WPARAM>(id), check);
}

} // namespace quilla
