#include "export/range_lock.h"

namespace quilla {

std::size_t RangeLock::Acquire(std::uint64_t first, std::uint64_t end, Mode mode) {
    const LockGuard guard(lock_);
    std::size_t slot = 0;
    while (slot < used_ && claims_[slot].ticket != 0)
        ++slot;
    if (slot == used_)
        ++used_;
    claims_[slot] = {.first = first, .end = end, .ticket = ++lastTicket_, .mode = mode};
    while (MustWait(claims_[slot])) {
        ++waiting_;
        released_.Wait(lock_);
        --waiting_;
    }
    return slot;
}

void RangeLock::Release(std::size_t slot) {
    const LockGuard guard(lock_);
    claims_[slot].ticket = 0;
    while (used_ > 0 && claims_[used_ - 1].ticket == 0)
        --used_;
    if (waiting_ > 0)
        released_.WakeAll();
}

bool RangeLock::MustWait(const Claim& claim) const {
    for (std::size_t i = 0; i < used_; ++i) {
        const Claim& other = claims_[i];
        const bool isEarlier = other.ticket != 0 && other.ticket < claim.ticket;
        const bool overlaps = other.first < claim.end && claim.first < other.end;
        if (isEarlier && overlaps && (other.mode == Mode::Exclusive || claim.mode == Mode::Exclusive))
            return true;
    }
    return false;
}

} // namespace quilla
