#include "platform/thread.h"

#include <new>
#include <windows.h>

namespace quilla {

namespace {

template <typename Native>
Native* As(std::byte* state) {
    return std::launder(reinterpret_cast<Native*>(state));
}

class SectionGuard {
  public:
    explicit SectionGuard(CRITICAL_SECTION& section) : section_(section) { EnterCriticalSection(&section_); }
    ~SectionGuard() { LeaveCriticalSection(&section_); }
    SectionGuard(const SectionGuard&) = delete;
    SectionGuard& operator=(const SectionGuard&) = delete;

  private:
    CRITICAL_SECTION& section_;
};

/// A thread that waits; stands on its stack. Each has an event of its own, so that nobody takes a wake-up
/// that was meant for who came before.
struct Waiter {
    HANDLE event;
    Waiter* next;
};

class WaitingLine {
  public:
    WaitingLine() { InitializeCriticalSection(&section_); }
    ~WaitingLine() { DeleteCriticalSection(&section_); }
    WaitingLine(const WaitingLine&) = delete;
    WaitingLine& operator=(const WaitingLine&) = delete;

    void Enter(Waiter& waiter) {
        const SectionGuard guard(section_);
        *FindPlace(nullptr) = &waiter;
    }

    /// False for a waiter whom a wake-up took out already.
    bool Leave(const Waiter& waiter) {
        const SectionGuard guard(section_);
        Waiter** const place = FindPlace(&waiter);
        if (*place == nullptr)
            return false;
        *place = waiter.next;
        return true;
    }

    /// Wakes who has waited longest; false if nobody does.
    bool WakeFirst() {
        const SectionGuard guard(section_);
        Waiter* const woken = first_;
        if (woken == nullptr)
            return false;
        first_ = woken->next;
        EventModify(woken->event, EVENT_SET);
        return true;
    }

    /// Wakes who waits now. Who comes back to wait once more stands outside until it is done, and is not
    /// among them.
    void WakeAll() {
        const SectionGuard guard(section_);
        while (WakeFirst()) {
        }
    }

  private:
    Waiter** FindPlace(const Waiter* waiter) {
        Waiter** place = &first_;
        while (*place != waiter && *place != nullptr)
            place = &(*place)->next;
        return place;
    }

    CRITICAL_SECTION section_{};
    Waiter* first_ = nullptr;
};

} // namespace

Lock::Lock() {
    static_assert(sizeof(CRITICAL_SECTION) <= sizeof(state_));
    InitializeCriticalSection(new (state_) CRITICAL_SECTION);
}

Lock::~Lock() {
    DeleteCriticalSection(As<CRITICAL_SECTION>(state_));
}

void Lock::Acquire() {
    EnterCriticalSection(As<CRITICAL_SECTION>(state_));
}

void Lock::Release() {
    LeaveCriticalSection(As<CRITICAL_SECTION>(state_));
}

Condition::Condition() {
    static_assert(sizeof(WaitingLine) <= sizeof(state_));
    new (state_) WaitingLine;
}

Condition::~Condition() {
    As<WaitingLine>(state_)->~WaitingLine();
}

void Condition::Wait(Lock& lock) {
    WaitFor(lock, INFINITE);
}

/// Without an event, where the system is out of memory, this comes back at once: to the caller a spurious
/// wake-up, after which it looks again.
bool Condition::WaitFor(Lock& lock, std::uint32_t milliseconds) {
    Waiter waiter{.event = CreateEventW(nullptr, FALSE, FALSE, nullptr), .next = nullptr};
    if (waiter.event == nullptr) {
        lock.Release();
        Sleep(1);
        lock.Acquire();
        return true;
    }
    auto& line = *As<WaitingLine>(state_);
    line.Enter(waiter);
    lock.Release();
    WaitForSingleObject(waiter.event, milliseconds);
    const bool timeRanOut = line.Leave(waiter);
    CloseHandle(waiter.event);
    lock.Acquire();
    return !timeRanOut;
}

void Condition::WakeOne() {
    As<WaitingLine>(state_)->WakeFirst();
}

void Condition::WakeAll() {
    As<WaitingLine>(state_)->WakeAll();
}

} // namespace quilla
