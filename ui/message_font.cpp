#include "ui/message_font.h"

#include "toolkit/dpi.h"

namespace quilla {

UniqueFont CreateMessageFont(HWND window) {
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof(metrics);
    if (!SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, WindowDpi(window)))
        return UniqueFont();
    return UniqueFont(CreateFontIndirectW(&metrics.lfMessageFont));
}

} // namespace quilla
