#pragma once

#include "ui/gui_handles.h"

namespace quilla {

/// The program's icon in one of the system's sizes for a window's resolution: SM_CXSMICON or SM_CXICON.
[[nodiscard]] UniqueIcon LoadProgramIcon(HWND window, int sizeMetric);

} // namespace quilla
