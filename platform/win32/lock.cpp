#include "platform/thread.h"

#include <new>
#include <windows.h>

namespace quilla {

namespace {

template <typename Native>
Native* As(std::byte* state) {
    return std::launder(reinterpret_cast<Native*>(state));
}

} // namespace

Lock::Lock() {
    static_assert(sizeof(SRWLOCK) <= sizeof(state_));
    InitializeSRWLock(new (state_) SRWLOCK);
}

Lock::~Lock() = default;

void Lock::Acquire() {
    AcquireSRWLockExclusive(As<SRWLOCK>(state_));
}

void Lock::Release() {
    ReleaseSRWLockExclusive(As<SRWLOCK>(state_));
}

Condition::Condition() {
    static_assert(sizeof(CONDITION_VARIABLE) <= sizeof(state_));
    InitializeConditionVariable(new (state_) CONDITION_VARIABLE);
}

Condition::~Condition() = default;

void Condition::Wait(Lock& lock) {
    WaitFor(lock, INFINITE);
}

bool Condition::WaitFor(Lock& lock, std::uint32_t milliseconds) {
    return SleepConditionVariableSRW(As<CONDITION_VARIABLE>(state_), As<SRWLOCK>(lock.state_), milliseconds,
                                     0) != FALSE;
}

void Condition::WakeOne() {
    WakeConditionVariable(As<CONDITION_VARIABLE>(state_));
}

void Condition::WakeAll() {
    WakeAllConditionVariable(As<CONDITION_VARIABLE>(state_));
}

} // namespace quilla
