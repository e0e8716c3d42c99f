#pragma once

#include "volume/twofish.h"
#include "volume/volume_record.h"

#include <cstdint>

namespace quilla {

/// An expanded key for kernels that do the MDS matrix in registers. The S-boxes hold a quarter of their
/// values, in the field of 0x169 that the matrix is defined over: its coefficients 01, 5B = 1 + 1/4 and EF =
/// 1 + 1/2 + 1/4 then need doublings only.
struct TwofishVectorKey {
    std::uint32_t subkeys[kTwofishSubkeys];
    std::uint8_t quarterSboxes[4][256];
};

struct TwofishVectorKeyPair {
    TwofishVectorKey data;
    TwofishVectorKey tweak;
};

/// Expands the data key and the tweak key derived from it. The caller wipes the result.
void BuildTwofishVectorKeys(TwofishVectorKeyPair& keys, const DataKey& key);

} // namespace quilla
