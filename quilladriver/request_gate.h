#pragma once

#include "platform/thread.h"

#include <atomic>
#include <cstdint>

namespace quilla {

/// Lets requests through until it is closed; closing waits for those that are inside.
class RequestGate {
  public:
    /// False once the gate is closed. Each success is followed by one Leave.
    [[nodiscard]] bool Enter();
    void Leave();

    /// Refuses new requests and returns when none is inside any more. May be called again.
    void CloseAndDrain();

  private:
    static constexpr std::uint32_t kClosed = 1U << 31; ///< the other bits count the requests inside

    std::atomic<std::uint32_t> state_{0};
    Lock lock_;
    Condition drained_;
};

} // namespace quilla
