#include "tests/hardening/memory_scan.h"

#include <algorithm>
#include <cstdint>
#include <functional>

namespace quilla::test {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;
constexpr std::size_t kOverlap = 256; // no needle is longer

std::size_t bytesScanned = 0;

bool IsReadable(const MEMORY_BASIC_INFORMATION& region) {
    constexpr DWORD kNoAccess = PAGE_NOACCESS | PAGE_GUARD | PAGE_EXECUTE;
    return region.State == MEM_COMMIT && (region.Protect & kNoAccess) == 0;
}

/// Calls visit for each region of a process.
void WalkRegions(HANDLE process, const std::function<void(const MEMORY_BASIC_INFORMATION&)>& visit) {
    MEMORY_BASIC_INFORMATION region{};
    const std::byte* at = nullptr;
    while (VirtualQueryEx(process, at, &region, sizeof(region)) == sizeof(region) && region.RegionSize > 0) {
        visit(region);
        at = static_cast<const std::byte*>(region.BaseAddress) + region.RegionSize;
    }
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Finding& finding) {
    const char* const type = finding.type == MEM_IMAGE    ? "image"
                             : finding.type == MEM_MAPPED ? "mapped"
                                                          : "private";
    return out << finding.what << " at " << std::hex << finding.address << " (" << type << " memory from "
               << finding.allocation << ')' << std::dec;
}

std::size_t BytesScanned() {
    return bytesScanned;
}

std::vector<Finding> ScanMemory(HANDLE process, const std::vector<Needle>& needles) {
    using Searcher = std::boyer_moore_horspool_searcher<std::vector<std::byte>::const_iterator>;
    std::vector<Searcher> searchers;
    for (const Needle& needle : needles)
        searchers.emplace_back(needle.bytes.begin(), needle.bytes.end());
    std::vector<Finding> findings;
    std::vector<std::byte> memory(kPiece + kOverlap);
    bytesScanned = 0;
    WalkRegions(process, [&](const MEMORY_BASIC_INFORMATION& region) {
        if (!IsReadable(region))
            return;
        const auto* const start = static_cast<const std::byte*>(region.BaseAddress);
        for (std::size_t done = 0; done < region.RegionSize; done += kPiece) {
            const std::size_t want = std::min(memory.size(), region.RegionSize - done);
            SIZE_T got = 0;
            if (!ReadProcessMemory(process, start + done, memory.data(), want, &got))
                continue;
            bytesScanned += std::min(got, kPiece);
            const auto end = memory.begin() + static_cast<std::ptrdiff_t>(got);
            for (std::size_t i = 0; i < needles.size(); ++i)
                for (auto at = std::search(memory.begin(), end, searchers[i]); at != end;
                     at = std::search(at + 1, end, searchers[i]))
                    if (at - memory.begin() < static_cast<std::ptrdiff_t>(kPiece))
                        findings.push_back(
                            {.what = needles[i].what,
                             .address = reinterpret_cast<std::uintptr_t>(start) + done +
                                        static_cast<std::size_t>(at - memory.begin()),
                             .allocation = reinterpret_cast<std::uintptr_t>(region.AllocationBase),
                             .type = region.Type});
        }
    });
    return findings;
}

std::vector<std::uintptr_t> FindWritableCode(HANDLE process) {
    std::vector<std::uintptr_t> found;
    WalkRegions(process, [&](const MEMORY_BASIC_INFORMATION& region) {
        constexpr DWORD kBoth = PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
        if (region.State == MEM_COMMIT && (region.Protect & kBoth) != 0)
            found.push_back(reinterpret_cast<std::uintptr_t>(region.BaseAddress));
    });
    return found;
}

} // namespace quilla::test
