#include "platform/clock.h"

#include <windows.h>

namespace quilla {

std::uint64_t MonotonicMilliseconds() {
    return GetTickCount64();
}

} // namespace quilla
