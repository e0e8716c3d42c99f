#pragma once

#include "export/iscsi/text_keys.h"

#include <cstdint>

namespace quilla::iscsi {

/// What both sides agree on (RFC 7143, section 13), with the values that hold when nothing is said.
struct Parameters {
    std::uint32_t initiatorSegment = 8192; ///< bytes of data that one unit to the initiator may carry
    std::uint32_t maxBurst = 262144;
    std::uint32_t firstBurst = 65536;
    bool initialReady = true; ///< unsolicited data-out only after a ready-to-transfer
    bool immediateData = true;
    bool headerDigest = false;
    bool dataDigest = false;
};

/// Negotiates one operational key, of whatever kind, and adds the answer, if one is due.
void NegotiateKey(const TextKey& pair, Parameters& parameters, TextWriter& answer);

} // namespace quilla::iscsi
