#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>
#include <windows.h>

namespace quilla::test {

/// Bytes that must not be found, and what they are.
struct Needle {
    std::string what;
    std::vector<std::byte> bytes;
};

/// A place in another process where a needle lies.
struct Finding {
    std::string what;
    std::uintptr_t address;
    std::uintptr_t allocation; ///< start of the region it belongs to
    DWORD type;                ///< MEM_PRIVATE, MEM_MAPPED or MEM_IMAGE
};

std::ostream& operator<<(std::ostream& out, const Finding& finding);

/// Looks for the needles in everything that is committed and readable in a process.
[[nodiscard]] std::vector<Finding> ScanMemory(HANDLE process, const std::vector<Needle>& needles);

/// Bytes that were looked at by the last scan; a scan that saw nothing proves nothing.
[[nodiscard]] std::size_t BytesScanned();

/// Regions of a process that can be written and executed at once.
[[nodiscard]] std::vector<std::uintptr_t> FindWritableCode(HANDLE process);

} // namespace quilla::test
