#include "platform/win32/full_path.h"

#include <windows.h>

namespace quilla {

namespace {

/// Whether a full path lies on a drive of this machine, which answers at once.
bool IsLocal(const wchar_t* path) {
    const wchar_t root[] = {path[0], L':', L'\\', 0};
    return path[0] != 0 && path[1] == L':' && GetDriveTypeW(root) != DRIVE_REMOTE;
}

} // namespace

void WriteFullPath(const wchar_t* path, PathText& text) {
    PathText full;
    const DWORD length = GetFullPathNameW(path, kPathUnits, full, nullptr);
    CopyText(text, length > 0 && length < kPathUnits ? full : path);
    if (TextView(text).find(L'~') == TextView::npos || !IsLocal(text))
        return;
    const DWORD longLength = GetLongPathNameW(text, full, kPathUnits); // 0 for a missing file
    if (longLength > 0 && longLength < kPathUnits)
        CopyText(text, full);
}

} // namespace quilla
