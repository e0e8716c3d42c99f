#include "platform/locked_memory.h"

#include "platform/wipe.h"

#include <sys/mman.h>

namespace quilla {

void* AllocateLockedMemory(std::size_t size) {
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    static_cast<void>(mlock(memory, size)); // a small limit may refuse; the memory serves still
    static_cast<void>(madvise(memory, size, MADV_DONTDUMP));
    return memory;
}

void ReleaseLockedMemory(void* memory, std::size_t size) {
    if (memory == nullptr)
        return;
    WipeMemory(memory, size);
    munmap(memory, size);
}

} // namespace quilla
