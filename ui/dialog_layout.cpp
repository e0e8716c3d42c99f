#include "ui/dialog_layout.h"

namespace quilla {

namespace {

void FollowDialog(HWND dialog, const ControlLayout& control, int pixels) {
    const HWND window = GetDlgItem(dialog, control.id);
    RECT place;
    GetWindowRect(window, &place);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&place), 2);
    place.right += pixels;
    if (control.follow == Follow::Move)
        place.left += pixels;
    SetWindowPos(window, nullptr, place.left, place.top, place.right - place.left, place.bottom - place.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
}

} // namespace

void WidenDialog(HWND dialog, int units, std::span<const ControlLayout> controls) {
    RECT growth{0, 0, units, 0};
    MapDialogRect(dialog, &growth);
    const int pixels = growth.right;
    RECT place;
    GetWindowRect(dialog, &place);
    SetWindowPos(dialog, nullptr, place.left - pixels / 2, place.top, place.right - place.left + pixels,
                 place.bottom - place.top, SWP_NOZORDER | SWP_NOACTIVATE);
    for (const ControlLayout& control : controls)
        FollowDialog(dialog, control, pixels);
}

} // namespace quilla
