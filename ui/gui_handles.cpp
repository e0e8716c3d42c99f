#include "ui/gui_handles.h"

#include "ui/resource.h"

namespace quilla {

UniqueIcon LoadProgramIcon(int size) {
    return UniqueIcon(static_cast<HICON>(LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_PROGRAM),
                                                    IMAGE_ICON, size, size, LR_DEFAULTCOLOR)));
}

} // namespace quilla
