#include "store/default_key_path.h"

#include <algorithm>

namespace quilla {

void DefaultKeyPath(TextView volumePath, PathText& keyPath) {
    constexpr TextView kExtension = QUILLA_TEXT(".key");
    const std::size_t dot = volumePath.rfind(QUILLA_TEXT('.'));
    const std::size_t backslash = volumePath.rfind(QUILLA_TEXT('\\'));
    const bool hasExtension = dot != TextView::npos && (backslash == TextView::npos || backslash < dot);

    CopyText(keyPath, hasExtension ? volumePath.substr(0, dot) : volumePath);
    const std::size_t stem = FieldText(keyPath).size();
    const std::size_t room = std::min(kExtension.size(), kPathUnits - 1 - stem);
    std::ranges::copy(kExtension.substr(0, room), keyPath + stem);
    keyPath[stem + room] = 0;
}

} // namespace quilla
