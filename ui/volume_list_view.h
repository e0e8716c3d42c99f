#pragma once

#include "toolkit/controls.h"
#include "ui/gui_handles.h"
#include "ui/row_tip.h"
#include "ui/window_settings.h"
#include "volume/volume_record.h"

namespace quilla {

/// The main window's list of volumes: its columns, its gestures and its order. The rows' content is the
/// store's (store/volume_list.h).
///
/// Gestures become commands and pop-up menus of the main window: a double click mounts; a right click, a
/// click with Alt and the keyboard's menu key open the menu of the selected row.
class VolumeListView : public BListView {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
    void Attach(HWND handle) override;
    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnNotify(NMHDR& header) override;

    /// Takes over column widths and order.
    void Apply(const WindowSettings& settings);
    /// Adds the present column widths and order to settings.
    void Describe(WindowSettings& settings) const;

    /// Puts the rows in the chosen order; called after rows have come or changed.
    void Sort();

    /// Selects one row alone and scrolls to it; nothing for -1.
    void SelectRow(int row) const;

    /// Stretches the last column to the list's edge.
    void FillWidth() const;

    /// Loads font and image for the window's resolution.
    void LoadImages();

  private:
    void AddColumns();
    /// Selects the next volume whose file's name begins with what has been typed without a pause.
    void Search(wchar_t unit);
    /// Says in an empty list how to begin.
    void PaintHint() const;
    void MarkSortColumn() const;
    void SortBy(int column);
    LRESULT OnInfoTip(NMLVGETINFOTIPW& tip) const;
    [[nodiscard]] bool HasState(int row) const;
    void OpenMenu(POINT screen) const;
    void OpenMenuByKey() const;

    UniqueImageList images_;
    UniqueFont font_;
    RowTip tip_;
    wchar_t typed_[32] = {};
    DWORD lastTyped_ = 0;
    UINT dpi_ = USER_DEFAULT_SCREEN_DPI;
    int sortColumn_ = 0;
    bool sortsDescending_ = false;
};

} // namespace quilla
