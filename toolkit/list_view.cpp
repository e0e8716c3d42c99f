#include "toolkit/list_view.h"

#include "toolkit/platform_class.h"

#include <commctrl.h>

namespace quilla {

void BListView::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, WC_LISTVIEWW);
    creation.dwExStyle |= WS_EX_CLIENTEDGE;
}

} // namespace quilla
