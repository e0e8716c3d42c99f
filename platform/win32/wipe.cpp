#include "platform/wipe.h"

#include <windows.h>

namespace quilla {

void WipeMemory(void* memory, std::size_t size) {
    SecureZeroMemory(memory, size);
}

} // namespace quilla
