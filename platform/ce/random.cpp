#include "platform/random.h"

#include <windows.h>

namespace quilla {

bool FillFromSystemRandom(std::span<std::byte> buffer) {
    return CeGenRandom(static_cast<DWORD>(buffer.size()), reinterpret_cast<BYTE*>(buffer.data())) != FALSE;
}

} // namespace quilla
