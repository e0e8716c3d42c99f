#pragma once

#include <cstddef>
#include <span>
#include <windows.h>

namespace quilla {

/// Fills in where the pointer was last, latest first; returns how many points there were.
[[nodiscard]] std::size_t ReadPointerHistory(std::span<POINT> points);

} // namespace quilla
