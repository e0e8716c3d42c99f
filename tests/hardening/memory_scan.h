#pragma once

#include <cstddef>
#include <cstdint>
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

/// Looks for the needles in everything that is committed and readable in a process; what is found, and where.
/// A scan that sees nothing fails the test: it would prove nothing.
[[nodiscard]] std::vector<std::pair<std::string, std::uintptr_t>>
ScanMemory(HANDLE process, const std::vector<Needle>& needles);

/// Regions of a process that can be written and executed at once.
[[nodiscard]] std::vector<std::uintptr_t> FindWritableCode(HANDLE process);

} // namespace quilla::test
