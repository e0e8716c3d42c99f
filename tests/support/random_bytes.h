#pragma once

#include "tests/support/hex.h"

#include <cstdint>
#include <random>

namespace quilla::test {

/// Random bytes that are the same in every run.
class RandomBytes {
  public:
    explicit RandomBytes(std::uint32_t seed) : generator_(seed) {}

    void Fill(std::span<std::byte> bytes) {
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(generator_());
    }
    Bytes Make(std::size_t size) {
        Bytes bytes(size);
        Fill(bytes);
        return bytes;
    }
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(generator_() % limit); }

  private:
    std::mt19937 generator_;
};

} // namespace quilla::test
