#include "toolkit/dpi.h"

namespace quilla {

UINT WindowDpi(HWND window) {
    const UINT dpi = GetDpiForWindow(window);
    return dpi ? dpi : GetDpiForSystem();
}

int WindowMetric(HWND window, int index) {
    return GetSystemMetricsForDpi(index, WindowDpi(window));
}

int ScaleToWindow(HWND window, int length) {
    return MulDiv(length, static_cast<int>(WindowDpi(window)), USER_DEFAULT_SCREEN_DPI);
}

} // namespace quilla
