#include "platform/clock.h"

#include <atomic>
#include <windows.h>

namespace quilla {

/// The system's counter has 32 bits. Its half turns are counted here, which is right as long as somebody asks
/// once in 24 days.
std::uint64_t MonotonicMilliseconds() {
    static std::atomic<std::uint32_t> halfTurns{0};
    std::uint32_t seen = halfTurns.load();
    for (;;) {
        const DWORD now = GetTickCount();
        const std::uint32_t turn = seen + ((seen ^ now >> 31) & 1);
        if (halfTurns.compare_exchange_weak(seen, turn))
            return static_cast<std::uint64_t>(turn / 2) << 32 | now;
    }
}

} // namespace quilla
