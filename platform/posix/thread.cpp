#include "platform/thread.h"

#include <ctime>
#include <memory>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <utility>

namespace quilla {

namespace {

template <typename Native>
Native* As(std::byte* state) {
    return std::launder(reinterpret_cast<Native*>(state));
}

struct StartBlock {
    Thread::Routine routine;
    void* context;
};

void* RunThread(void* argument) {
    const std::unique_ptr<StartBlock> start(static_cast<StartBlock*>(argument));
    start->routine(start->context);
    return nullptr;
}

} // namespace

Lock::Lock() {
    static_assert(sizeof(pthread_mutex_t) <= sizeof(state_));
    pthread_mutex_init(new (state_) pthread_mutex_t, nullptr);
}

Lock::~Lock() {
    pthread_mutex_destroy(As<pthread_mutex_t>(state_));
}

void Lock::Acquire() {
    pthread_mutex_lock(As<pthread_mutex_t>(state_));
}

void Lock::Release() {
    pthread_mutex_unlock(As<pthread_mutex_t>(state_));
}

Condition::Condition() {
    static_assert(sizeof(pthread_cond_t) <= sizeof(state_));
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(new (state_) pthread_cond_t, &attributes);
    pthread_condattr_destroy(&attributes);
}

Condition::~Condition() {
    pthread_cond_destroy(As<pthread_cond_t>(state_));
}

void Condition::Wait(Lock& lock) {
    pthread_cond_wait(As<pthread_cond_t>(state_), As<pthread_mutex_t>(lock.state_));
}

bool Condition::WaitFor(Lock& lock, std::uint32_t milliseconds) {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const long nanoseconds = end.tv_nsec + static_cast<long>(milliseconds % 1000) * 1'000'000;
    end.tv_sec += static_cast<time_t>(milliseconds / 1000) + nanoseconds / 1'000'000'000;
    end.tv_nsec = nanoseconds % 1'000'000'000;
    return pthread_cond_timedwait(As<pthread_cond_t>(state_), As<pthread_mutex_t>(lock.state_), &end) == 0;
}

void Condition::WakeOne() {
    pthread_cond_signal(As<pthread_cond_t>(state_));
}

void Condition::WakeAll() {
    pthread_cond_broadcast(As<pthread_cond_t>(state_));
}

bool Thread::Start(Routine routine, void* context) {
    Join();
    std::unique_ptr<StartBlock> start(new (std::nothrow) StartBlock{.routine = routine, .context = context});
    pthread_t thread{};
    if (!start || pthread_create(&thread, nullptr, RunThread, start.get()) != 0)
        return false;
    static_cast<void>(start.release()); // the thread owns it now
    static_assert(sizeof(pthread_t) <= sizeof(handle_));
    handle_ = static_cast<std::uintptr_t>(thread);
    started_ = true;
    return true;
}

void Thread::Join() {
    if (std::exchange(started_, false))
        pthread_join(static_cast<pthread_t>(handle_), nullptr);
}

unsigned CountProcessors() {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0)
        return 1;
    const int count = CPU_COUNT(&allowed);
    return count > 0 ? static_cast<unsigned>(count) : 1;
}

} // namespace quilla
