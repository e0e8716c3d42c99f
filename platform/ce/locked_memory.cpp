// The system has no swap file: pages of their own are as good as locked.

#include "platform/locked_memory.h"

#include "platform/wipe.h"

#include <windows.h>

namespace quilla {

void* AllocateLockedMemory(std::size_t size) {
    return VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
}

void ReleaseLockedMemory(void* memory, std::size_t size) {
    if (memory == nullptr)
        return;
    const DWORD error = GetLastError();
    WipeMemory(memory, size);
    VirtualFree(memory, 0, MEM_RELEASE);
    SetLastError(error);
}

} // namespace quilla
