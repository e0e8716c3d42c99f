#include "store/volume_list.h"

#include "store/display_text.h"
#include "store/volume_files.h"
#include "toolkit/list_view.h"

#include <memory>
#include <new>
#include <windows.h>

#include <commctrl.h>

namespace quilla {

namespace {

/// Images of the list: the mark of a mounted volume, or none.
constexpr int kMountedImage = 0;
constexpr int kNoImage = -1;

enum Column : int { kVolumeColumn, kSizeColumn, kCipherColumn, kKeyColumn };

int CountRows(const BListView& list) {
    return ListView_GetItemCount(list.hwnd);
}

/// Folds one unit as the platform does for file names.
TextUnit FoldUnit(TextUnit unit) {
    const auto folded = CharLowerW(reinterpret_cast<wchar_t*>(static_cast<std::uintptr_t>(unit)));
    return static_cast<TextUnit>(reinterpret_cast<std::uintptr_t>(folded));
}

bool IsSamePath(TextView one, TextView other) {
    if (one.size() != other.size())
        return false;
    for (std::size_t i = 0; i < one.size(); ++i)
        if (one[i] != other[i] && FoldUnit(one[i]) != FoldUnit(other[i]))
            return false;
    return true;
}

/// The last row of a path, or -1.
int FindRow(const BListView& list, TextView path) {
    int row = CountRows(list);
    while (--row >= 0)
        if (IsSamePath(FieldText(RecordAt(list, row).Path), path))
            break;
    return row;
}

/// Reads a listed record's files again. The file of a mounted volume belongs to its driver, so that its size
/// cannot be asked for, nor can it change.
void RefreshListed(VolumeRecord& record) {
    const std::uint32_t device = record.DeviceHandle;
    const std::uint64_t size = record.Size;
    static_cast<void>(ReadVolumeInfo(record));
    record.DeviceHandle = device;
    if (device != 0 && record.Size == 0)
        record.Size = size;
}

void SetColumn(const BListView& list, int row, Column column, const wchar_t* text) {
    ListView_SetItemText(list.hwnd, row, column, const_cast<wchar_t*>(text));
}

} // namespace

VolumeRecord& RecordAt(const BListView& list, int row) {
    LVITEMW item{};
    item.mask = LVIF_PARAM;
    item.iItem = row;
    ListView_GetItem(list.hwnd, &item);
    return *reinterpret_cast<VolumeRecord*>(item.lParam);
}

int RowOf(const BListView& list, const VolumeRecord& record) {
    LVFINDINFOW wanted{};
    wanted.flags = LVFI_PARAM;
    wanted.lParam = reinterpret_cast<LPARAM>(&record);
    return ListView_FindItem(list.hwnd, -1, &wanted);
}

int SelectedRow(const BListView& list) {
    return ListView_GetNextItem(list.hwnd, -1, LVNI_SELECTED);
}

int FindVolume(BListView& list, const wchar_t* path, const wchar_t* keyPath) {
    const int row = FindRow(list, path);
    if (row >= 0) {
        VolumeRecord& record = RecordAt(list, row);
        CopyText(record.KeyPath, keyPath);
        RefreshListed(record);
        return UpdateVolumeRow(list, RowOf(list, record), record);
    }
    return AddNewVolume(list, path, keyPath);
}

int AddNewVolume(BListView& list, const wchar_t* path, const wchar_t* keyPath) {
    VolumeRecord record{};
    CopyText(record.Path, path);
    CopyText(record.KeyPath, keyPath);
    static_cast<void>(ReadVolumeInfo(record));
    return AppendVolume(list, record);
}

int UpdateVolumeRow(BListView& list, int row, VolumeRecord& record) {
    LVITEMW item{};
    item.mask = LVIF_TEXT | LVIF_IMAGE | LVIF_PARAM;
    item.iItem = row >= 0 ? row : CountRows(list);
    item.pszText = record.Path;
    item.iImage = record.IsMounted() ? kMountedImage : kNoImage;
    item.lParam = reinterpret_cast<LPARAM>(&record);
    if (row >= 0)
        ListView_SetItem(list.hwnd, &item);
    else
        item.iItem = ListView_InsertItem(list.hwnd, &item);

    SizeText size;
    FormatSize(record.Size, size);
    SetColumn(list, item.iItem, kSizeColumn, size);
    SetColumn(list, item.iItem, kCipherColumn, CipherName(record.Cipher));
    SetColumn(list, item.iItem, kKeyColumn, record.KeyPath);
    return item.iItem;
}

int AppendVolume(BListView& list, const VolumeRecord& record) {
    std::unique_ptr<VolumeRecord> owned(new (std::nothrow) VolumeRecord(record));
    if (!owned)
        return -1;
    const int row = UpdateVolumeRow(list, -1, *owned);
    if (row >= 0)
        static_cast<void>(owned.release()); // the row owns it now
    return row;
}

void RemoveRow(BListView& list, int row) {
    const std::unique_ptr<VolumeRecord> record(&RecordAt(list, row));
    ListView_DeleteItem(list.hwnd, row);
}

void ClearRows(BListView& list) {
    for (int row = CountRows(list) - 1; row >= 0; --row)
        RemoveRow(list, row);
}

bool AnyVolumeMounted(const BListView& list) {
    for (int row = CountRows(list) - 1; row >= 0; --row)
        if (RecordAt(list, row).IsMounted())
            return true;
    return false;
}

} // namespace quilla
