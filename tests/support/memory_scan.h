#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <vector>
#include <windows.h>

namespace quilla::test {

/// What stands in the committed memory of a process at one moment.
class MemorySnapshot {
  public:
    explicit MemorySnapshot(HANDLE process) {
        MEMORY_BASIC_INFORMATION region;
        for (const std::byte* address = nullptr;
             VirtualQueryEx(process, address, &region, sizeof(region)) != 0;
             address = static_cast<const std::byte*>(region.BaseAddress) + region.RegionSize) {
            if (region.State != MEM_COMMIT || (region.Protect & (PAGE_NOACCESS | PAGE_GUARD)) != 0)
                continue;
            std::vector<std::byte>& content = regions_.emplace_back(region.RegionSize);
            SIZE_T size = 0;
            ReadProcessMemory(process, region.BaseAddress, content.data(), content.size(), &size);
            content.resize(size);
        }
    }

    /// How often a sequence of bytes stands there.
    [[nodiscard]] int Count(std::span<const std::byte> wanted) const {
        int found = 0;
        for (const std::vector<std::byte>& region : regions_) {
            const std::byte* from = region.data();
            const std::byte* const end = from + region.size();
            while ((from = Find(from, end, wanted)) != nullptr) {
                ++found;
                ++from;
            }
        }
        return found;
    }

  private:
    static const std::byte* Find(const std::byte* from, const std::byte* end,
                                 std::span<const std::byte> wanted) {
        while (from + wanted.size() <= end) {
            const auto rest = static_cast<std::size_t>(end - from) - wanted.size() + 1;
            from = static_cast<const std::byte*>(std::memchr(from, std::to_integer<int>(wanted[0]), rest));
            if (from == nullptr || std::memcmp(from, wanted.data(), wanted.size()) == 0)
                return from;
            ++from;
        }
        return nullptr;
    }

    std::vector<std::vector<std::byte>> regions_;
};

} // namespace quilla::test
