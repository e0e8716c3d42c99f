#include "toolkit/dpi.h"

namespace quilla {

#ifdef UNDER_CE

UINT WindowDpi(HWND) {
    const HDC screen = GetDC(nullptr);
    const int dpi = GetDeviceCaps(screen, LOGPIXELSX);
    ReleaseDC(nullptr, screen);
    return static_cast<UINT>(dpi);
}

int WindowMetric(HWND, int index) {
    return GetSystemMetrics(index);
}

#else

UINT WindowDpi(HWND window) {
    const UINT dpi = GetDpiForWindow(window);
    return dpi ? dpi : GetDpiForSystem();
}

int WindowMetric(HWND window, int index) {
    return GetSystemMetricsForDpi(index, WindowDpi(window));
}

#endif

int ScaleToWindow(HWND window, int length) {
    return MulDiv(length, static_cast<int>(WindowDpi(window)), USER_DEFAULT_SCREEN_DPI);
}

} // namespace quilla
