#include "quilladriver/request_gate.h"

namespace quilla {

bool RequestGate::Enter() {
    std::uint32_t state = state_.load();
    while ((state & kClosed) == 0)
        if (state_.compare_exchange_weak(state, state + 1))
            return true;
    return false;
}

void RequestGate::Leave() {
    std::uint32_t state = state_.load();
    while ((state & kClosed) == 0)
        if (state_.compare_exchange_weak(state, state - 1))
            return;
    // The gate may cease to exist as soon as the last request is out, so the count sinks under the lock.
    const LockGuard guard(lock_);
    if (state_.fetch_sub(1) == kClosed + 1)
        drained_.WakeAll();
}

void RequestGate::CloseAndDrain() {
    state_.fetch_or(kClosed);
    const LockGuard guard(lock_);
    while (state_.load() != kClosed)
        drained_.Wait(lock_);
}

} // namespace quilla
