#pragma once

#include "platform/thread.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quilla {

/// Keeps transfers that touch the same sectors apart: readers of a range share it, a writer has it alone.
/// Ranges are granted in the order they were asked for, so nobody starves; a thread holds one range at a
/// time, so nobody deadlocks.
class RangeLock {
  public:
    /// Threads that may hold or wait for a range at a time.
    static constexpr std::size_t kMaxHolders = 64;

    enum class Mode : std::uint8_t { Shared, Exclusive };

    /// Waits for [first, end) and holds it until Release of the slot it returns.
    [[nodiscard]] std::size_t Acquire(std::uint64_t first, std::uint64_t end, Mode mode);
    void Release(std::size_t slot);

  private:
    struct Claim {
        std::uint64_t first;
        std::uint64_t end;
        std::uint64_t ticket; // 0 = free
        Mode mode;
    };

    [[nodiscard]] bool MustWait(const Claim& claim) const;

    Lock lock_;
    Condition released_;
    std::array<Claim, kMaxHolders> claims_{};
    std::size_t used_ = 0; // claims at and above this index are free
    std::size_t waiting_ = 0;
    std::uint64_t lastTicket_ = 0;
};

/// Holds a range for a scope.
class RangeGuard {
  public:
    RangeGuard(RangeLock& lock, std::uint64_t offset, std::uint64_t length, RangeLock::Mode mode)
        : lock_(lock), slot_(lock.Acquire(offset, offset + length, mode)) {}
    ~RangeGuard() { lock_.Release(slot_); }
    RangeGuard(const RangeGuard&) = delete;
    RangeGuard& operator=(const RangeGuard&) = delete;

  private:
    RangeLock& lock_;
    std::size_t slot_;
};

} // namespace quilla
