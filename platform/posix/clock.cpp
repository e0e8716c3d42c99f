#include "platform/clock.h"

#include <ctime>

namespace quilla {

std::uint64_t LocalFileTime() {
    constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
    constexpr std::int64_t kUnitsPerSecond = 10'000'000;
    timespec now{};
    tm local{};
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    const std::int64_t seconds = now.tv_sec + local.tm_gmtoff + kSecondsFrom1601To1970;
    return static_cast<std::uint64_t>(seconds * kUnitsPerSecond + now.tv_nsec / 100);
}

std::uint64_t MonotonicMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

} // namespace quilla
