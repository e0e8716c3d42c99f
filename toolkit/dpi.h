#pragma once

#include <windows.h>

namespace quilla {

/// Pixels per inch that a window is laid out for; the screen's on a handheld and without a window.
[[nodiscard]] UINT WindowDpi(HWND window);

/// GetSystemMetrics for the resolution of a window's monitor.
[[nodiscard]] int WindowMetric(HWND window, int index);

/// A length in pixels at 96 per inch, scaled to a window's resolution.
[[nodiscard]] int ScaleToWindow(HWND window, int length);

} // namespace quilla
