#include "platform/random.h"

#include <cerrno>
#include <sys/random.h>

namespace quilla {

bool FillFromSystemRandom(std::span<std::byte> buffer) {
    while (!buffer.empty()) {
        const ssize_t count = getrandom(buffer.data(), buffer.size(), 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        buffer = buffer.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

} // namespace quilla
