// The system's own command bar: one window for menus, buttons and, on the right, its close button.

#include "toolkit/handheld/control_library.h"
#include "ui/command_bar.h"
#include "ui/resource.h"

#include <iterator>

namespace quilla {

namespace {

constexpr int kBarId = 1;
constexpr WORD kFirstPlace = 0;

template <typename Function>
Function* Find(ControlFunction function) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(FindInControlLibrary(function)));
}

} // namespace

const bool CommandBar::kNamesButtons = false; // the bar there would show the names on its buttons

void CommandBar::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BToolbar::GetCreateDefaults(windowClass, creation);
}

HWND CommandBar::CreateFromParams(const WNDCLASSW& windowClass, const CREATESTRUCTW& creation) {
    auto* const create = Find<HWND(HINSTANCE, HWND, int)>(L"CommandBar_Create");
    if (create == nullptr)
        return BToolbar::CreateFromParams(windowClass, creation);
    Attach(create(creation.hInstance, creation.hwndParent, kBarId));
    return hwnd;
}

void CommandBar::InsertMenuBar(int menuId, HACCEL /*accelerators*/) const {
    if (auto* const insert = Find<BOOL(HWND, HINSTANCE, WORD, WORD)>(L"CommandBar_InsertMenubar"))
        insert(hwnd, GetModuleHandleW(nullptr), static_cast<WORD>(menuId), kFirstPlace);
}

void CommandBar::LoadImages() {
    const TBADDBITMAP bitmaps[] = {{.hInst = HINST_COMMCTRL, .nID = IDB_STD_SMALL_COLOR},
                                   {.hInst = HINST_COMMCTRL, .nID = IDB_VIEW_SMALL_COLOR},
                                   {.hInst = GetModuleHandleW(nullptr), .nID = IDB_CLOSE_VOLUME}};
    constexpr WPARAM kCounts[] = {kStandardImages, kViewImages, 1};
    for (std::size_t i = 0; i < std::size(bitmaps); ++i)
        SendMessageW(hwnd, TB_ADDBITMAP, kCounts[i], reinterpret_cast<LPARAM>(&bitmaps[i]));
}

/// Its close button stands behind all others.
void CommandBar::LayOutButtons() {
    if (auto* const addAdornments = Find<BOOL(HWND, DWORD, DWORD)>(L"CommandBar_AddAdornments"))
        addAdornments(hwnd, 0, 0);
}

int CommandBar::Bottom() const {
    auto* const height = Find<int(HWND)>(L"CommandBar_Height");
    return height != nullptr ? height(hwnd) : 0;
}

} // namespace quilla
