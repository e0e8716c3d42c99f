#include "store/same_volume.h"

#include "platform/win32/full_path.h"

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

} // namespace

bool IsSameVolume(const wchar_t* one, const wchar_t* other) {
    if (IsSameText(one, other))
        return true;
    if (*one == 0 || *other == 0)
        return false;
    PathText first;
    PathText second;
    WriteFullPath(one, first);
    WriteFullPath(other, second);
    return IsSameText(first, second);
}

} // namespace quilla
