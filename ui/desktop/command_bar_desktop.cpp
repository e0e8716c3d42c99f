#include "toolkit/dpi.h"
#include "ui/command_bar.h"
#include "ui/menu_shortcuts.h"

namespace quilla {

const bool CommandBar::kNamesButtons = true;

void CommandBar::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BToolbar::GetCreateDefaults(windowClass, creation);
    creation.style |= TBSTYLE_FLAT | TBSTYLE_TOOLTIPS;
}

HWND CommandBar::CreateFromParams(const WNDCLASSW& windowClass, const CREATESTRUCTW& creation) {
    return BToolbar::CreateFromParams(windowClass, creation);
}

void CommandBar::InsertMenuBar(int menuId, HACCEL accelerators) const {
    const HMENU menu = LoadMenuW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(menuId));
    AddShortcutTexts(menu, accelerators);
    SetMenu(GetParent(hwnd), menu); // the window owns it now
}

void CommandBar::LoadImages() {
    const int size = ScaleToWindow(hwnd, kSmallImageSize);
    ToolbarImages images = LoadToolbarImages(GetParent(hwnd), size);
    SendMessageW(hwnd, TB_SETBITMAPSIZE, 0, MAKELPARAM(size, size));
    SendMessageW(hwnd, TB_SETIMAGELIST, 0, reinterpret_cast<LPARAM>(images.normal.Get()));
    SendMessageW(hwnd, TB_SETDISABLEDIMAGELIST, 0, reinterpret_cast<LPARAM>(images.faded.Get()));
    images_ = std::move(images);
    const int padding = ScaleToWindow(hwnd, 7);
    SendMessageW(hwnd, TB_SETBUTTONSIZE, 0, MAKELPARAM(size + padding, size + padding));
    SendMessageW(hwnd, TB_AUTOSIZE, 0, 0);
}

/// Texts without rows to stand in are shown as tool-tips and read out by screen readers.
void CommandBar::LayOutButtons() {
    SendMessageW(hwnd, TB_SETMAXTEXTROWS, 0, 0);
    SendMessageW(hwnd, TB_AUTOSIZE, 0, 0);
}

int CommandBar::Bottom() const {
    RECT place;
    GetWindowRect(hwnd, &place);
    POINT corner{place.left, place.bottom};
    ScreenToClient(GetParent(hwnd), &corner);
    return corner.y;
}

} // namespace quilla
