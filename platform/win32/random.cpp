#include "platform/random.h"

#include <windows.h>

#include <bcrypt.h>

namespace quilla {

bool FillFromSystemRandom(std::span<std::byte> buffer) {
    return BCryptGenRandom(nullptr, reinterpret_cast<PUCHAR>(buffer.data()),
                           static_cast<ULONG>(buffer.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG) >= 0;
}

} // namespace quilla
