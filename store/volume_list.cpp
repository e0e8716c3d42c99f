#include "store/volume_list.h"

#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "store/display_text.h"
#include "store/same_volume.h"
#include "toolkit/controls.h"

#include <memory>
#include <new>
#include <span>
#include <windows.h>

#include <commctrl.h>

namespace quilla {

namespace {

/// Images of the list: the mark of a mounted volume, or none.
constexpr int kMountedImage = 0;
constexpr int kNoImage = -1;

enum Column : int { kVolumeColumn, kSizeColumn, kCipherColumn, kKeyColumn, kStateColumn };

int CountRows(const BListView& list) {
    return ListView_GetItemCount(list.hwnd);
}

/// Reads a listed record's files again. The file of a mounted volume belongs to its driver, so that its size
/// cannot be asked for, nor can it change.
void RefreshListed(ListedVolume& listed) {
    VolumeRecord& record = listed.record;
    const std::uint32_t device = record.DeviceHandle;
    const std::uint64_t size = record.Size;
    listed.keyFile = ReadVolumeInfo(record);
    record.DeviceHandle = device;
    if (device != 0 && record.Size == 0)
        record.Size = size;
}

/// Takes a key path that is wanted into a listed volume and reads its files. A file that is not there, such
/// as the default one of a volume that has another, takes no remembered one's place.
void TakeKeyPath(ListedVolume& listed, const wchar_t* keyPath) {
    CopyText(listed.record.KeyPath, keyPath);
    RefreshListed(listed);
    if (*keyPath != 0 && (listed.keyFile != KeyFileState::Missing || listed.lastKeyPath[0] == 0))
        CopyText(listed.lastKeyPath, keyPath);
}

void SetColumn(const BListView& list, int row, Column column, const wchar_t* text) {
    ListView_SetItemText(list.hwnd, row, column, const_cast<wchar_t*>(text));
}

/// What a state's text says about the drive, by DriveState; its letters follow.
constexpr const wchar_t* kDriveTexts[] = {L"", L", being attached", L", attached", L", being detached"};

/// What the mark of a mounted volume says in a picture, and what its owner should see to.
void DescribeState(const ListedVolume& listed, std::span<wchar_t> text) {
    const VolumeRecord& record = listed.record;
    const bool hasLetters = listed.drive == DriveState::Attached && listed.driveLetters[0] != 0;
    if (record.IsMounted())
        FormatText(text, L"Mounted as %.6ls%ls%ls%ls", record.DeviceName,
                   kDriveTexts[static_cast<int>(listed.drive)], hasLetters ? L" as " : L"",
                   hasLetters ? listed.driveLetters : L"");
    else if (record.Size == 0 && GetFileAttributesW(record.Path) == INVALID_FILE_ATTRIBUTES)
        FormatText(text, L"File missing");
    else if (listed.keyFile == KeyFileState::Missing)
        FormatText(text, L"Key file missing");
    else if (listed.keyFile == KeyFileState::Unreadable)
        FormatText(text, L"Key file unreadable");
    else
        text[0] = 0;
}

int Append(BListView& list, const ListedVolume& volume) {
    std::unique_ptr<ListedVolume> owned(new (std::nothrow) ListedVolume(volume));
    if (!owned)
        return -1;
    const int row = UpdateVolumeRow(list, -1, owned->record);
    if (row >= 0)
        static_cast<void>(owned.release()); // the row owns it now
    return row;
}

} // namespace

ListedVolume& ListedAt(const BListView& list, int row) {
    LVITEMW item{};
    item.mask = LVIF_PARAM;
    item.iItem = row;
    ListView_GetItem(list.hwnd, &item);
    return *reinterpret_cast<ListedVolume*>(item.lParam);
}

VolumeRecord& RecordAt(const BListView& list, int row) {
    return ListedAt(list, row).record;
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

int FindRow(const BListView& list, const wchar_t* path) {
    int row = CountRows(list);
    while (--row >= 0)
        if (IsSameVolume(RecordAt(list, row).Path, path))
            break;
    return row;
}

int FindVolume(BListView& list, const wchar_t* path, const wchar_t* keyPath) {
    const ErrorHold hold;
    const int row = FindRow(list, path);
    if (row < 0)
        return AddNewVolume(list, path, keyPath);
    ListedVolume& listed = ListedAt(list, row);
    TakeKeyPath(listed, keyPath);
    return UpdateVolumeRow(list, row, listed.record);
}

int AddNewVolume(BListView& list, const wchar_t* path, const wchar_t* keyPath) {
    const ErrorHold hold;
    ListedVolume listed{};
    CopyText(listed.record.Path, path);
    TakeKeyPath(listed, keyPath);
    return Append(list, listed);
}

void RecallKeyPath(BListView& list, int row) {
    ListedVolume& listed = ListedAt(list, row);
    VolumeRecord& record = listed.record;
    if (record.KeyPath[0] != 0 || listed.lastKeyPath[0] == 0)
        return;
    const ErrorHold hold;
    CopyText(record.KeyPath, FieldText(listed.lastKeyPath));
    RefreshListed(listed);
    CopyText(record.KeyPath, FieldText(listed.lastKeyPath));
    UpdateVolumeRow(list, row, record);
}

void RememberKeyPath(const BListView& list, int row) {
    ListedVolume& listed = ListedAt(list, row);
    CopyText(listed.lastKeyPath, FieldText(listed.record.KeyPath));
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
    const auto& listed = reinterpret_cast<const ListedVolume&>(record);
    const bool isDismounting = listed.isDismounting;
    SetColumn(list, item.iItem, kKeyColumn, isDismounting ? L"dismounting" : record.KeyPath);
    wchar_t state[128];
    DescribeState(listed, state);
    SetColumn(list, item.iItem, kStateColumn, state);
    return item.iItem;
}

int AppendVolume(BListView& list, const VolumeRecord& record) {
    ListedVolume listed{};
    listed.record = record;
    listed.keyFile = record.KeyPath[0] != 0 ? KeyFileState::Readable : KeyFileState::None;
    CopyText(listed.lastKeyPath, FieldText(record.KeyPath));
    return Append(list, listed);
}

void RemoveRow(BListView& list, int row) {
    const std::unique_ptr<ListedVolume> volume(&ListedAt(list, row));
    ListView_DeleteItem(list.hwnd, row);
}

void ClearRows(BListView& list) {
    for (int row = CountRows(list) - 1; row >= 0; --row)
        RemoveRow(list, row);
}

int CountMounted(const BListView& list) {
    int count = 0;
    for (int row = CountRows(list) - 1; row >= 0; --row)
        count += RecordAt(list, row).IsMounted();
    return count;
}

bool AnyVolumeMounted(const BListView& list) {
    return CountMounted(list) > 0;
}

} // namespace quilla
