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

/// Makes a dialog wider by a number of dialog units, keeping its middle where it is. Templates have the width
/// of a handheld's screen; a desktop has room for whole paths.
void WidenDialog(HWND dialog, int units, std::span<const ControlLayout> controls);

} // namespace quilla
