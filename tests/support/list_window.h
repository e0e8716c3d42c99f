#pragma once

#include "store/volume_list.h"
#include "toolkit/application.h"
#include "toolkit/controls.h"

#include <string>
#include <windows.h>

#include <commctrl.h>

namespace quilla::test {

/// A real list view with the four columns of the main window, in a window that is never shown. The rows'
/// records are freed at the end.
class ListWindow {
  public:
    ListWindow() {
        const INITCOMMONCONTROLSEX classes{sizeof(classes), ICC_LISTVIEW_CLASSES};
        InitCommonControlsEx(&classes);
        parent = CreateWindowExW(0, L"STATIC", L"list", WS_OVERLAPPED, 0, 0, 640, 480, nullptr, nullptr,
                                 nullptr, nullptr);
        WNDCLASSW windowClass{};
        CREATESTRUCTW creation{};
        list.GetCreateDefaults(windowClass, creation);
        creation.hwndParent = parent;
        creation.style |= LVS_REPORT;
        list.CreateFromParams(windowClass, creation);
        for (int column = 0; column < 4; ++column) {
            LVCOLUMNW description{};
            description.mask = LVCF_WIDTH;
            description.cx = 100;
            ListView_InsertColumn(list.hwnd, column, &description);
        }
    }
    ~ListWindow() {
        ClearRows(list);
        DestroyWindow(parent);
    }
    ListWindow(const ListWindow&) = delete;
    ListWindow& operator=(const ListWindow&) = delete;

    [[nodiscard]] int CountRows() const { return ListView_GetItemCount(list.hwnd); }

    [[nodiscard]] std::wstring Text(int row, int column) const {
        wchar_t text[512] = {};
        ListView_GetItemText(list.hwnd, row, column, text, 512);
        return text;
    }

    [[nodiscard]] int Image(int row) const {
        LVITEMW item{};
        item.mask = LVIF_IMAGE;
        item.iItem = row;
        ListView_GetItem(list.hwnd, &item);
        return item.iImage;
    }

    void Select(int row) {
        ListView_SetItemState(list.hwnd, -1, 0, LVIS_SELECTED);
        ListView_SetItemState(list.hwnd, row, LVIS_SELECTED, LVIS_SELECTED);
    }

    static inline BApplication application; ///< exists once, whatever the number of lists
    HWND parent = nullptr;
    BListView list;
};

} // namespace quilla::test
