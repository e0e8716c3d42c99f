#include "platform/entropy_snapshot.h"

#include "platform/random.h"

#include <cstring>
#include <ctime>
#include <functional>
#include <pthread.h>
#include <span>
#include <unistd.h>

namespace quilla {

namespace {

/// A time in fields of the same size on every system, the fast one first.
std::array<std::uint64_t, 2> WholeTime(const timespec& time) {
    return {static_cast<std::uint64_t>(time.tv_nsec), static_cast<std::uint64_t>(time.tv_sec)};
}

/// As many bytes of an object as the field holds.
template <std::size_t N, typename T>
void CopyBytes(std::array<std::byte, N>& field, const T& object) {
    static_assert(sizeof(T) >= N);
    std::memcpy(field.data(), &object, N);
}

} // namespace

void TakeEntropySnapshot(EntropySnapshot& snapshot) {
    // There are no windows here; the generator stands in for everything that has no counterpart.
    static_cast<void>(FillFromSystemRandom(std::as_writable_bytes(std::span(&snapshot, 1))));
    snapshot.processId = static_cast<std::uint32_t>(getpid());
    snapshot.threadId = static_cast<std::uint32_t>(std::hash<pthread_t>()(pthread_self()));
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    snapshot.tickCount = static_cast<std::uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000);
    snapshot.hasFrequency = false;
    snapshot.hasCounter = true;
    CopyBytes(snapshot.counter, WholeTime(now));
    clock_gettime(CLOCK_REALTIME, &now);
    CopyBytes(snapshot.systemTime, WholeTime(now));
}

} // namespace quilla
