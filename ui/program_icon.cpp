#include "ui/program_icon.h"

#include "toolkit/dpi.h"
#include "ui/resource.h"

namespace quilla {

UniqueIcon LoadProgramIcon(HWND window, int sizeMetric) {
    const int size = WindowMetric(window, sizeMetric);
    return UniqueIcon(static_cast<HICON>(LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_PROGRAM),
                                                    IMAGE_ICON, size, size, LR_DEFAULTCOLOR)));
}

} // namespace quilla
