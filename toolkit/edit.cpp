#include "toolkit/edit.h"

#include "toolkit/platform_class.h"

#include <commctrl.h>

namespace quilla {

void BEdit::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    UsePlatformClass(windowClass, WC_EDITW);
    creation.style |= WS_TABSTOP | ES_AUTOVSCROLL | ES_AUTOHSCROLL;
    creation.dwExStyle |= WS_EX_CLIENTEDGE;
}

} // namespace quilla
