#include "platform/win32/pointer_history.h"

#include <algorithm>

namespace quilla {

std::size_t ReadPointerHistory(std::span<POINT> points) {
    constexpr std::size_t kMostPoints = 64; // what the system keeps
    MOUSEMOVEPOINT history[kMostPoints]{};
    POINT position{};
    GetCursorPos(&position);
    MOUSEMOVEPOINT latest{.x = position.x & 0xFFFF, .y = position.y & 0xFFFF, .time = 0, .dwExtraInfo = 0};
    const int count =
        GetMouseMovePointsEx(sizeof(latest), &latest, history, kMostPoints, GMMP_USE_DISPLAY_POINTS);
    const std::size_t given = std::min(points.size(), static_cast<std::size_t>(std::max(count, 0)));
    for (std::size_t i = 0; i < given; ++i)
        points[i] = {history[i].x, history[i].y};
    return given;
}

} // namespace quilla
