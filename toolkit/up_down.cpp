#include "toolkit/up_down.h"

#include "toolkit/platform_class.h"

#include <commctrl.h>

namespace quilla {

void BUpDown::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, UPDOWN_CLASSW);
}

} // namespace quilla
