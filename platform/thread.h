#pragma once

#include <cstddef>
#include <cstdint>

namespace quilla {

/// Mutual exclusion inside one process; not recursive.
class Lock {
  public:
    Lock();
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Acquire();
    void Release();

  private:
    friend class Condition;
    alignas(void*) std::byte state_[64];
};

/// Holds a lock for a scope.
class LockGuard {
  public:
    explicit LockGuard(Lock& lock) : lock_(lock) { lock_.Acquire(); }
    ~LockGuard() { lock_.Release(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

  private:
    Lock& lock_;
};

/// Threads wait here, with a lock held, for another thread to change what the lock protects.
class Condition {
  public:
    Condition();
    ~Condition();
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    /// Releases the lock, waits for a wake-up (spurious ones occur) and takes the lock again.
    void Wait(Lock& lock);

    /// The same with a limit; false when the time ran out.
    bool WaitFor(Lock& lock, std::uint32_t milliseconds);

    void WakeOne();
    void WakeAll();

  private:
    alignas(void*) std::byte state_[64];
};

/// A thread of execution; joined before its object ends.
class Thread {
  public:
    using Routine = void (*)(void* context);

    Thread() = default;
    ~Thread() { Join(); }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts a thread that runs routine(context); false if the system refuses.
    [[nodiscard]] bool Start(Routine routine, void* context);

    /// Waits for the thread to end; does nothing if none was started.
    void Join();

  private:
    std::uintptr_t handle_ = 0;
    bool started_ = false;
};

/// Number of processors this process may use, at least 1.
[[nodiscard]] unsigned CountProcessors();

} // namespace quilla
