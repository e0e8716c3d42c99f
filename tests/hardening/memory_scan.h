#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

/// Needles by a hash of their first bytes: one look at each place of a memory serves all of them.
class NeedleTable {
  public:
    explicit NeedleTable(const std::vector<Needle>& needles) {
        for (const Needle& needle : needles)
            places_[Hash(needle.bytes.data())].push_back(&needle);
    }

    /// Calls the function with each needle that stands in the memory, and its distance from the beginning.
    template <typename Function>
    void Search(std::span<const std::byte> memory, Function found) const {
        for (std::size_t at = 0; at + sizeof(std::uint64_t) <= memory.size(); ++at)
            for (const Needle* const needle : places_[Hash(memory.data() + at)])
                if (needle->bytes.size() <= memory.size() - at &&
                    std::memcmp(needle->bytes.data(), memory.data() + at, needle->bytes.size()) == 0)
                    found(*needle, at);
    }

  private:
    static std::size_t Hash(const std::byte* bytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof(word)); // no needle is shorter
        return word * 0x9E37'79B9'7F4A'7C15 >> 52;
    }

    std::array<std::vector<const Needle*>, 4096> places_;
};

/// Whether it is a part of a file that nobody can write: two thirds of a process, and nothing but the file's.
inline bool IsOfFileOnly(const MEMORY_BASIC_INFORMATION& region) {
    constexpr DWORD kWritable =
        PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    return region.Type != MEM_PRIVATE && (region.Protect & kWritable) == 0;
}

/// Looks for the needles in everything that is committed and readable in a process; what is found, and where.
/// A scan that sees nothing fails the test: it would prove nothing.
inline std::vector<std::pair<std::string, std::uintptr_t>> ScanMemory(HANDLE process,
                                                                      const std::vector<Needle>& needles) {
    constexpr std::size_t kPiece = std::size_t{1} << 20;
    constexpr std::size_t kOverlap = 256; // no needle is longer
    const NeedleTable table(needles);
    std::vector<std::pair<std::string, std::uintptr_t>> findings;
    std::vector<std::byte> memory(kPiece + kOverlap);
    std::size_t bytesScanned = 0;
    for (const auto& region : FindRegions(process, ~DWORD{PAGE_NOACCESS | PAGE_EXECUTE})) {
        if (IsOfFileOnly(region))
            continue;
        const auto* const start = static_cast<const std::byte*>(region.BaseAddress);
        for (std::size_t done = 0; done < region.RegionSize; done += kPiece) {
            const std::size_t want = std::min(memory.size(), region.RegionSize - done);
            const std::size_t got = ReadPiece(process, start + done, {memory.data(), want});
            bytesScanned += got;
            table.Search({memory.data(), got}, [&](const Needle& needle, std::size_t at) {
                if (at < kPiece)
                    findings.emplace_back(needle.what, reinterpret_cast<std::uintptr_t>(start) + done + at);
            });
        }
    }
    EXPECT_GT(bytesScanned, kPiece) << "nothing could be read";
    return findings;
}

} // namespace quilla::test
