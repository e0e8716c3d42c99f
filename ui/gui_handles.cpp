#include "ui/gui_handles.h"

namespace quilla {

UniqueIcon LoadProgramIcon(int size, int id) {
    return UniqueIcon(static_cast<HICON>(LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id),
                                                    IMAGE_ICON, size, size, LR_DEFAULTCOLOR)));
}

} // namespace quilla
