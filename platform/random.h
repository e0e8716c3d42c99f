#pragma once

#include <cstddef>
#include <span>

namespace quilla {

/// Fills a buffer from the operating system's cryptographic generator. Returns false if the system refuses.
[[nodiscard]] bool FillFromSystemRandom(std::span<std::byte> buffer);

} // namespace quilla
