#pragma once

#include <cstddef>

namespace quilla {

/// Memory for long-lived secrets: whole pages of their own, zeroed, kept out of the swap file and of core
/// dumps where the system allows. Null when there is no memory.
[[nodiscard]] void* AllocateLockedMemory(std::size_t size);

/// Wipes and gives back what AllocateLockedMemory returned; size as given there. Null is ignored.
void ReleaseLockedMemory(void* memory, std::size_t size);

} // namespace quilla
