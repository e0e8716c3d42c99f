#include "platform/wipe.h"

#include <cstring>

namespace quilla {

/// The system's own function for clearing memory, which the compiler takes for a loop over volatile bytes, is
/// inline there. After memset the compiler is told that somebody looks at the memory.
void WipeMemory(void* memory, std::size_t size) {
    std::memset(memory, 0, size);
    asm volatile("" : : "r"(memory) : "memory");
}

} // namespace quilla
