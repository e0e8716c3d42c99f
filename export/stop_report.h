#pragma once

namespace quilla {

/// What the end of an export met.
struct StopReport {
    /// Clients that were attached and had not said good-bye.
    unsigned clientsCutOff = 0;
    /// Whether the device could be flushed after the last request. If not, data that clients wrote is lost.
    bool flushed = true;
};

} // namespace quilla
