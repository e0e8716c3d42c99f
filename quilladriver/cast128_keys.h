#pragma once

#include "volume/cast128.h"
#include "volume/volume_record.h"

namespace quilla {

/// The two schedules of a volume enciphered with CAST-128 in CBC mode.
struct CastKeyPair {
    CastSchedule data; ///< data key bytes 0 to 15
    CastSchedule iv;   ///< data key bytes 16 to 31
};

/// Builds both schedules. The caller wipes the result.
void BuildCastKeys(CastKeyPair& keys, const DataKey& key);

} // namespace quilla
