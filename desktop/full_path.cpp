#include "desktop/full_path.h"

#include <windows.h>

namespace quilla {

void CompletePath(PathText& path) {
    PathText full;
    const DWORD length = GetFullPathNameW(path, kPathUnits, full, nullptr);
    if (length < kPathUnits) // 0 for an empty path
        CopyText(path, TextView(full, length));
}

} // namespace quilla
