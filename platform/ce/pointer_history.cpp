#include "platform/win32/pointer_history.h"

#include <algorithm>

namespace quilla {

std::size_t ReadPointerHistory(std::span<POINT> points) {
    UINT count = 0;
    if (!GetMouseMovePoints(points.data(), static_cast<UINT>(points.size()), &count))
        return 0;
    return std::min<std::size_t>(points.size(), count);
}

} // namespace quilla
