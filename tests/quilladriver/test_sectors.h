#pragma once

#include "platform/disk_codes.h"
#include "tests/support/random_bytes.h"
#include "volume/volume_record.h"

#include <cstdint>

namespace quilla::test {

using SectorBytes = Bytes;

/// Random sectors and keys that are the same in every run.
class RandomSectors : public RandomBytes {
  public:
    using RandomBytes::RandomBytes;

    SectorBytes MakeSectors(std::size_t count) { return Make(count * kSectorSize); }
    DataKey MakeKey() {
        DataKey key;
        Fill(key);
        return key;
    }
};

/// Numbers of first sectors worth trying: around the wraps of 32 bits and far beyond any file.
inline constexpr std::uint64_t kFirstSectors[] = {
    0, 1, 0xFFFF'FFFD, 0x1'0000'0000, 0x123'4567'89AB, 0xFFFF'FFFF'FFFF'FF00};

} // namespace quilla::test
