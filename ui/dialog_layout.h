#pragma once

#include <span>
#include <windows.h>

namespace quilla {

/// How a control follows when its dialog grows to the right.
enum class Follow : unsigned char { Stretch, Move };

struct ControlLayout {
    int id;
    Follow follow;
};

/// Dialog units that make the fields of a handheld's template twice as wide.
inline constexpr int kDesktopExtraWidth = 84;

/// Makes a dialog wider by a number of dialog units and puts it over the middle of its owner. Templates have
/// the width of a handheld's screen and are centred on it; a desktop has room for whole paths, and a window
/// where the user looks.
void FitDialogToDesktop(HWND dialog, int units, std::span<const ControlLayout> controls);

} // namespace quilla
