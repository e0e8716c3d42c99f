#include "export/iscsi/session_table.h"

#include "platform/clock.h"

#include <algorithm>

namespace quilla::iscsi {

std::uint16_t SessionTable::Enter(const InitiatorPort& port, Connection& connection,
                                  std::uint32_t milliseconds) {
    const std::uint64_t deadline = MonotonicMilliseconds() + milliseconds;
    const LockGuard guard(lock_);
    for (;;) {
        const auto isSame = [&port](const Place& place) {
            return place.connection != nullptr && place.port == port;
        };
        auto* const old = std::ranges::find_if(places_, isSame);
        if (old == places_.end())
            break;
        old->connection->Stream().Shutdown(); // it leaves before it closes
        const std::uint64_t now = MonotonicMilliseconds();
        if (now >= deadline)
            return 0;
        left_.WaitFor(lock_, static_cast<std::uint32_t>(deadline - now));
    }
    auto* const free =
        std::ranges::find_if(places_, [](const Place& place) { return place.connection == nullptr; });
    if (free == places_.end())
        return 0;
    *free = {.connection = &connection, .port = port};
    return NewHandle();
}

void SessionTable::Leave(const Connection& connection) {
    const LockGuard guard(lock_);
    for (Place& place : places_)
        if (place.connection == &connection)
            place.connection = nullptr;
    left_.WakeAll();
}

} // namespace quilla::iscsi
