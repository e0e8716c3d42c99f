#pragma once

#include "volume/cipher_id.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// One implementation of a sector cipher for one kind of processor. All kernels of a cipher give the same
/// bytes; each lays its key schedule out as it likes.
struct SectorKernel {
    CipherId cipher;
    const char* name;      ///< as the About box shows it
    bool (*isSupported)(); ///< whether this processor and its system can run it
    std::size_t scheduleSize;

    /// Builds the schedule in memory aligned to a page.
    void (*setUp)(void* schedule, const DataKey& key);

    /// Works on count sectors in place, of which the first has the number given.
    void (*encrypt)(const void* schedule, std::uint64_t firstSector, std::byte* sectors, std::size_t count);
    void (*decrypt)(const void* schedule, std::uint64_t firstSector, std::byte* sectors, std::size_t count);
};

/// Every kernel of this build, for each cipher the best first.
[[nodiscard]] std::span<const SectorKernel* const> AllSectorKernels();

/// The best kernel of a cipher that this processor can run; null when the cipher has none.
[[nodiscard]] const SectorKernel* ChooseSectorKernel(CipherId cipher);

} // namespace quilla
