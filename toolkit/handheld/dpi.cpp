// A handheld has one screen, and one resolution.

#include "toolkit/dpi.h"

namespace quilla {

UINT WindowDpi(HWND /*window*/) {
    const HDC screen = GetDC(nullptr);
    const int dpi = GetDeviceCaps(screen, LOGPIXELSX);
    ReleaseDC(nullptr, screen);
    return static_cast<UINT>(dpi);
}

int WindowMetric(HWND /*window*/, int index) {
    return GetSystemMetrics(index);
}

int ScaleToWindow(HWND window, int length) {
    return (length * static_cast<int>(WindowDpi(window)) + USER_DEFAULT_SCREEN_DPI / 2) /
           USER_DEFAULT_SCREEN_DPI;
}

} // namespace quilla
