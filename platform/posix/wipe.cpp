#include "platform/wipe.h"

#include <cstring>

namespace quilla {

void WipeMemory(void* memory, std::size_t size) {
    explicit_bzero(memory, size);
}

} // namespace quilla
