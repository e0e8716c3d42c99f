#pragma once

#include "platform/disk_codes.h"
#include "volume/volume_record.h"

#include <cstdint>
#include <random>
#include <vector>

namespace quilla::test {

using SectorBytes = std::vector<std::byte>;

/// Random bytes that are the same in every run.
class RandomBytes {
  public:
    explicit RandomBytes(std::uint32_t seed) : generator_(seed) {}

    SectorBytes Make(std::size_t size) {
        SectorBytes bytes(size);
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(generator_());
        return bytes;
    }
    SectorBytes MakeSectors(std::size_t count) { return Make(count * kSectorSize); }
    DataKey MakeKey() {
        DataKey key;
        for (std::byte& byte : key)
            byte = static_cast<std::byte>(generator_());
        return key;
    }
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(generator_() % limit); }

  private:
    std::mt19937 generator_;
};

/// Numbers of first sectors worth trying: around the wraps of 32 bits and far beyond any file.
inline constexpr std::uint64_t kFirstSectors[] = {
    0, 1, 0xFFFF'FFFD, 0x1'0000'0000, 0x123'4567'89AB, 0xFFFF'FFFF'FFFF'FF00};

} // namespace quilla::test
