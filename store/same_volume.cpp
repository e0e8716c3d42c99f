#include "store/same_volume.h"

#include <windows.h>

namespace quilla {

namespace {

/// Folds one unit as the platform does for file names.
TextUnit FoldUnit(TextUnit unit) {
    const auto folded = CharLowerW(reinterpret_cast<wchar_t*>(static_cast<std::uintptr_t>(unit)));
    return static_cast<TextUnit>(reinterpret_cast<std::uintptr_t>(folded));
}

bool IsSameText(TextView one, TextView other) {
    if (one.size() != other.size())
        return false;
    for (std::size_t i = 0; i < one.size(); ++i)
        if (one[i] != other[i] && FoldUnit(one[i]) != FoldUnit(other[i]))
            return false;
    return true;
}

/// Whether a full path lies on a drive of this machine, which answers at once.
bool IsLocal(const wchar_t* path) {
    const wchar_t root[] = {path[0], L':', L'\\', 0};
    return path[0] != 0 && path[1] == L':' && GetDriveTypeW(root) != DRIVE_REMOTE;
}

/// The full form of a path; the path itself where that does not fit.
struct FullPath {
    explicit FullPath(const wchar_t* path) {
        PathText full;
        const DWORD length = GetFullPathNameW(path, kPathUnits, full, nullptr);
        CopyText(text, length > 0 && length < kPathUnits ? full : path);
        if (TextView(text).find(L'~') == TextView::npos || !IsLocal(text))
            return;
        const DWORD longLength = GetLongPathNameW(text, full, kPathUnits); // 0 for a missing file
        if (longLength > 0 && longLength < kPathUnits)
            CopyText(text, full);
    }
    PathText text;
};

} // namespace

bool IsSameVolume(const wchar_t* one, const wchar_t* other) {
    if (IsSameText(one, other))
        return true;
    if (*one == 0 || *other == 0)
        return false;
    return IsSameText(FullPath(one).text, FullPath(other).text);
}

} // namespace quilla
