#pragma once

#include "platform/text.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace quilla {

/// Tells of nearly every path that is new that it is, without a look at the rows, so that loading a list
/// takes time in proportion to its length. Only hashes are kept: it may take a new path for a known one,
/// never the other way round.
class SeenPaths {
  public:
    /// Room for so many paths.
    explicit SeenPaths(std::size_t count);

    /// Whether a path, letter case ignored, may have been added before. Adds it.
    [[nodiscard]] bool Add(TextView path);

  private:
    std::size_t capacity_ = 2; ///< a power of two, always more than the paths
    std::size_t room_;
    std::unique_ptr<std::uint32_t[]> hashes_; ///< zero where nothing is
};

} // namespace quilla
