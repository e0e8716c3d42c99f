#pragma once

#include "store/volume_files.h"
#include "volume/volume_record.h"

#include <cstddef>

namespace quilla {

class BListView;

/// The volumes the user knows about are the rows of the main window's list view; each row owns a
/// heap-allocated record through its item data. The record keeps its address for as long as its row exists.

/// What the system has made of a mounted volume, as far as this program has seen to it.
enum class DriveState : unsigned char { None, Attaching, Attached, Detaching };

/// What a row owns: the record that requests carry and the driver knows, and what only the list remembers.
struct ListedVolume {
    VolumeRecord record; ///< first, so that the item data is the address of both
    KeyFileState keyFile = KeyFileState::None;
    /// The last key path that the volume had. A request without one, and a key file that is not there at the
    /// moment, take it from the record, but not from the user's list.
    PathText lastKeyPath{};
    bool isDismounting = false; ///< still mounted, while its disk takes its time
    DriveState drive = DriveState::None;
    TextUnit driveLetters[64] = {}; ///< "E: F:"; empty for a disk that has no file system yet
};
static_assert(offsetof(ListedVolume, record) == 0);

[[nodiscard]] ListedVolume& ListedAt(const BListView& list, int row);

/// The record that a row owns.
[[nodiscard]] VolumeRecord& RecordAt(const BListView& list, int row);

/// The row of a record, or -1 if it has none any more. Rows move when the list is sorted, which can happen
/// whenever an error box is open.
[[nodiscard]] int RowOf(const BListView& list, const VolumeRecord& record);

/// The first selected row, or -1.
[[nodiscard]] int SelectedRow(const BListView& list);

/// The last row of a volume, or -1.
[[nodiscard]] int FindRow(const BListView& list, const wchar_t* path);

/// Finds the row of a volume or appends one; either way sets its KeyPath, reads size, cipher, time-out and
/// flags from the files again and rewrites the row's texts. A mounted volume stays mounted. Returns the row.
int FindVolume(BListView& list, const wchar_t* path, const wchar_t* keyPath);

/// The same for a path that is known not to be on the list.
int AddNewVolume(BListView& list, const wchar_t* path, const wchar_t* keyPath);

/// Gives a row whose record has lost its key path the last one back and reads its files again. The path stays
/// even if its file is missing.
void RecallKeyPath(BListView& list, int row);

/// Makes the record's key path the one to remember, after the user has edited it.
void RememberKeyPath(const BListView& list, int row);

/// Writes a record's texts and mounted mark into a row that owns the record from then on; row -1 appends one.
/// Returns the row.
int UpdateVolumeRow(BListView& list, int row, VolumeRecord& record);

/// Appends a row for a copy of a record. Returns the row.
int AppendVolume(BListView& list, const VolumeRecord& record);

/// Frees a row's record and removes the row.
void RemoveRow(BListView& list, int row);

/// The same for all rows, from the last to the first.
void ClearRows(BListView& list);

[[nodiscard]] int CountMounted(const BListView& list);

/// Whether any volume of the list is mounted; while one is, the main window hides instead of closing.
[[nodiscard]] bool AnyVolumeMounted(const BListView& list);

} // namespace quilla
