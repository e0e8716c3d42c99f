#include "platform/clock.h"

#include <windows.h>

namespace quilla {

std::uint64_t LocalFileTime() {
    SYSTEMTIME now{};
    FILETIME moment{};
    GetLocalTime(&now);
    if (!SystemTimeToFileTime(&now, &moment))
        return 0;
    return static_cast<std::uint64_t>(moment.dwHighDateTime) << 32 | moment.dwLowDateTime;
}

} // namespace quilla
