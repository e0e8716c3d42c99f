#pragma once

#include <cstdint>

namespace quilla {

/// The local time as a file time: 100-ns units since 1601.
[[nodiscard]] std::uint64_t LocalFileTime();

/// Milliseconds since some moment in the past; never set back, unlike the time of day.
[[nodiscard]] std::uint64_t MonotonicMilliseconds();

} // namespace quilla
