#pragma once

#include "volume/twofish.h"
#include "volume/volume_record.h"

namespace quilla {

/// The two expanded keys of a volume enciphered with Twofish in XTS mode.
struct TwofishKeyPair {
    TwofishKey data;
    TwofishKey tweak;
};

/// Expands the data key and derives and expands the tweak key. The caller wipes the result.
void ExpandTwofishKeys(TwofishKeyPair& keys, const DataKey& key);

/// The same two keys ready for kernels that look up in tables.
struct TwofishSchedulePair {
    TwofishSchedule data;
    TwofishSchedule tweak;
};

/// Builds a TwofishSchedulePair in the memory of a kernel's schedule.
void BuildTwofishSchedules(void* schedules, const DataKey& key);

} // namespace quilla
