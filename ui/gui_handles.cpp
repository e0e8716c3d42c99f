#include "ui/gui_handles.h"

#include "toolkit/dpi.h"
#include "ui/resource.h"

namespace quilla {

UniqueIcon LoadProgramIcon(int size) {
    return UniqueIcon(static_cast<HICON>(LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_PROGRAM),
                                                    IMAGE_ICON, size, size, LR_DEFAULTCOLOR)));
}

UniqueFont CreateMessageFont(HWND window) {
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof(metrics);
    if (!SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, WindowDpi(window)))
        return UniqueFont();
    return UniqueFont(CreateFontIndirectW(&metrics.lfMessageFont));
}

} // namespace quilla
