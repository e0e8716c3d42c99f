#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <utility>
#include <vector>
#include <windows.h>

namespace quilla::test {

/// Bytes that must not be found, and what they are.
struct Needle {
    std::string what;
    std::vector<std::byte> bytes;
};

/// The committed regions of a process whose protection is one of some kinds.
inline std::vector<MEMORY_BASIC_INFORMATION> FindRegions(HANDLE process, DWORD protections) {
    std::vector<MEMORY_BASIC_INFORMATION> regions;
    MEMORY_BASIC_INFORMATION region{};
    for (const std::byte* at = nullptr;
         VirtualQueryEx(process, at, &region, sizeof(region)) == sizeof(region) && region.RegionSize > 0;
         at = static_cast<const std::byte*>(region.BaseAddress) + region.RegionSize)
        if (region.State == MEM_COMMIT && (region.Protect & protections) != 0 &&
            (region.Protect & PAGE_GUARD) == 0)
            regions.push_back(region);
    return regions;
}

/// Reads a piece of another process's memory; nothing where its pages have gone meanwhile. A system under
/// load may refuse for a moment, which must not pass for a place where nothing is found.
inline std::size_t ReadPiece(HANDLE process, const std::byte* from, std::span<std::byte> into) {
    MEMORY_BASIC_INFORMATION region{};
    for (int attempt = 0; attempt < 20; ++attempt) {
        SIZE_T got = 0;
        if (ReadProcessMemory(process, from, into.data(), into.size(), &got))
            return got;
        if (VirtualQueryEx(process, from, &region, sizeof(region)) == 0 || region.State != MEM_COMMIT)
            return 0;
        Sleep(10);
    }
    ADD_FAILURE() << "unread: " << into.size() << " bytes at " << static_cast<const void*>(from)
                  << ", protection " << std::hex << region.Protect << ", error " << GetLastError();
    return 0;
}

/// Looks for the needles in everything that is committed and readable in a process; what is found, and where.
/// A scan that sees nothing fails the test: it would prove nothing.
inline std::vector<std::pair<std::string, std::uintptr_t>> ScanMemory(HANDLE process,
                                                                      const std::vector<Needle>& needles) {
    constexpr std::size_t kPiece = std::size_t{1} << 20;
    constexpr std::size_t kOverlap = 256; // no needle is longer
    using Searcher = std::boyer_moore_horspool_searcher<std::vector<std::byte>::const_iterator>;
    std::vector<Searcher> searchers;
    for (const Needle& needle : needles)
        searchers.emplace_back(needle.bytes.begin(), needle.bytes.end());
    std::vector<std::pair<std::string, std::uintptr_t>> findings;
    std::vector<std::byte> memory(kPiece + kOverlap);
    std::size_t bytesScanned = 0;
    for (const auto& region : FindRegions(process, ~DWORD{PAGE_NOACCESS | PAGE_EXECUTE})) {
        const auto* const start = static_cast<const std::byte*>(region.BaseAddress);
        for (std::size_t done = 0; done < region.RegionSize; done += kPiece) {
            const std::size_t want = std::min(memory.size(), region.RegionSize - done);
            const std::size_t got = ReadPiece(process, start + done, {memory.data(), want});
            bytesScanned += got;
            const auto end = memory.begin() + static_cast<std::ptrdiff_t>(got);
            for (std::size_t i = 0; i < needles.size(); ++i)
                for (auto at = std::search(memory.begin(), end, searchers[i]); at != end;
                     at = std::search(at + 1, end, searchers[i]))
                    if (at - memory.begin() < static_cast<std::ptrdiff_t>(kPiece))
                        findings.emplace_back(needles[i].what,
                                              reinterpret_cast<std::uintptr_t>(start) + done +
                                                  static_cast<std::size_t>(at - memory.begin()));
        }
    }
    EXPECT_GT(bytesScanned, kPiece) << "nothing could be read";
    return findings;
}

} // namespace quilla::test
