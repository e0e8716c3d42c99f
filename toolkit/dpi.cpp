#include "toolkit/dpi.h"

namespace quilla {

namespace {

constexpr UINT kStandardDpi = USER_DEFAULT_SCREEN_DPI;

/// A function that only newer systems have, or null.
template <typename Function>
Function* FindUserFunction(const char* name) {
    const HMODULE user = GetModuleHandleW(L"user32.dll");
    return user ? reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(user, name))) : nullptr;
}

UINT ScreenDpi() {
    const HDC screen = GetDC(nullptr);
    const int dpi = GetDeviceCaps(screen, LOGPIXELSX);
    ReleaseDC(nullptr, screen);
    return dpi > 0 ? static_cast<UINT>(dpi) : kStandardDpi;
}

} // namespace

UINT WindowDpi(HWND window) {
    static const auto getDpiForWindow = FindUserFunction<UINT WINAPI(HWND)>("GetDpiForWindow");
    const UINT dpi = getDpiForWindow ? getDpiForWindow(window) : 0;
    return dpi ? dpi : ScreenDpi();
}

int WindowMetric(HWND window, int index) {
    static const auto getForDpi = FindUserFunction<int WINAPI(int, UINT)>("GetSystemMetricsForDpi");
    return getForDpi ? getForDpi(index, WindowDpi(window)) : GetSystemMetrics(index);
}

int ScaleToWindow(HWND window, int length) {
    return MulDiv(length, static_cast<int>(WindowDpi(window)), static_cast<int>(kStandardDpi));
}

} // namespace quilla
