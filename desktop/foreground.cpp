#include "desktop/foreground.h"

namespace quilla {

void AllowComingToFront(HWND window) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    AllowSetForegroundWindow(process);
}

} // namespace quilla
