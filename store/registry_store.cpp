#include "store/registry_store.h"

#include "platform/error_box.h"
#include "platform/win32/handle.h"
#include "store/default_key_path.h"
#include "store/volume_list.h"
#include "toolkit/controls.h"

#include <commctrl.h>

namespace quilla {

namespace {

constexpr wchar_t kVolumesKey[] = L"Software\\Orvane\\Quilla\\Volumes";

/// One value of the key: its name is the volume's path, its data the key path.
struct StoredVolume {
    PathText path;
    PathText keyPath;
    bool isKeyPathGuessed; ///< none was stored
};
static_assert(sizeof(PathText) == 520);

/// Reads value number index, its key path replaced by the default one where it is unusable. Returns the
/// system's result.
LSTATUS ReadStoredVolume(HKEY key, DWORD index, StoredVolume& volume) {
    DWORD type = REG_NONE;
    DWORD size = sizeof(volume.keyPath);
    DWORD units = kPathUnits;
    LSTATUS status = RegEnumValueW(key, index, volume.path, &units, nullptr, &type,
                                   reinterpret_cast<BYTE*>(volume.keyPath), &size);
    if (status == ERROR_MORE_DATA) { // a value of some other size is as good as one of another type
        size = 0;
        units = kPathUnits;
        status = RegEnumValueW(key, index, volume.path, &units, nullptr, nullptr, nullptr, nullptr);
    }
    if (status != ERROR_SUCCESS)
        return status;
    volume.keyPath[kPathUnits - 1] = 0;
    volume.isKeyPathGuessed = type != REG_BINARY || size != sizeof(volume.keyPath) || volume.keyPath[0] == 0;
    if (volume.isKeyPathGuessed)
        DefaultKeyPath(FieldText(volume.path), volume.keyPath);
    return status;
}

/// A stored key path stays in the list though its medium may be absent; a guessed one only if there is such a
/// file, for a volume may well have none.
void KeepKeyPath(BListView& list, int row, bool isGuessed) {
    if (row < 0)
        return;
    ListedVolume& volume = ListedAt(list, row);
    if (isGuessed && volume.keyFile == KeyFileState::Missing) {
        volume.lastKeyPath[0] = 0;
        volume.keyFile = KeyFileState::None;
    }
    RecallKeyPath(list, row);
}

} // namespace

void LoadVolumeList(BListView& list) {
    const ErrorHold hold;
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kVolumesKey, 0, KEY_READ, &opened) != ERROR_SUCCESS)
        return;
    const UniqueRegistryKey key(opened);
    // Names of values differ in more than letter case: only rows from elsewhere can be the same volume.
    const auto takeIn = ListView_GetItemCount(list.hwnd) == 0 ? AddNewVolume : FindVolume;
    for (DWORD index = 0;; ++index) {
        StoredVolume volume;
        const LSTATUS status = ReadStoredVolume(key.Get(), index, volume);
        if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA)
            return;
        // A name longer than any path names no volume, nor does the key's default value.
        if (status == ERROR_SUCCESS && volume.path[0] != 0)
            KeepKeyPath(list, takeIn(list, volume.path, volume.keyPath), volume.isKeyPathGuessed);
    }
}

void SaveVolumeList(const BListView& list) {
    RegDeleteTreeW(HKEY_CURRENT_USER, kVolumesKey); // with what somebody may have put below it
    HKEY created = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, kVolumesKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                    nullptr, &created, nullptr);
    const UniqueRegistryKey key(created);
    for (int row = ListView_GetItemCount(list.hwnd) - 1; row >= 0; --row) {
        const ListedVolume& volume = ListedAt(list, row);
        PathText keyPath{};
        CopyText(keyPath, FieldText(volume.lastKeyPath));
        RegSetValueExW(key.Get(), volume.record.Path, 0, REG_BINARY, reinterpret_cast<const BYTE*>(keyPath),
                       sizeof(keyPath));
    }
}

} // namespace quilla
