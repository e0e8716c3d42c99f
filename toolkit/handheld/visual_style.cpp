// Controls of a handheld have their classic look.

#include "toolkit/visual_style.h"

namespace quilla {

bool DrawStyledButton(HWND /*window*/, HDC /*context*/, ControlLook /*look*/, const RECT& /*place*/) {
    return false;
}

bool DrawStyledEditEdge(HWND /*window*/, HDC /*context*/, ControlLook /*look*/, const RECT& /*place*/) {
    return false;
}

} // namespace quilla
