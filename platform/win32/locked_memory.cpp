#include "platform/locked_memory.h"

#include "platform/wipe.h"

#include <windows.h>

namespace quilla {

void* AllocateLockedMemory(std::size_t size) {
    void* const memory = VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (memory != nullptr)
        VirtualLock(memory, size); // a small working set may refuse; the memory serves still
    return memory;
}

void ReleaseLockedMemory(void* memory, std::size_t size) {
    if (memory == nullptr)
        return;
    const DWORD error = GetLastError();
    WipeMemory(memory, size);
    VirtualUnlock(memory, size);
    VirtualFree(memory, 0, MEM_RELEASE);
    SetLastError(error);
}

} // namespace quilla
