#include "desktop/current_folder.h"

#include <windows.h>

namespace quilla {

void AddCurrentFolder(PathText& path) {
    const TextView typed = FieldText(path);
    const bool hasDrive = typed.size() > 1 && typed[1] == L':';
    if (hasDrive || typed.starts_with(L'\\'))
        return;
    PathText full;
    const DWORD length = GetFullPathNameW(path, kPathUnits, full, nullptr);
    if (length < kPathUnits) // 0 for an empty path
        CopyText(path, TextView(full, length));
}

} // namespace quilla
