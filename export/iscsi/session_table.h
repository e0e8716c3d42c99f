#pragma once

#include "export/connection.h"
#include "export/iscsi/login.h"
#include "platform/thread.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace quilla::iscsi {

/// Who is logged in. Two, since an initiator that was cut off comes back before the target has noticed, and a
/// cluster of one machine has two paths.
class SessionTable {
  public:
    static constexpr std::size_t kMaxSessions = 2;

    /// Takes a place for an initiator's port. Whoever holds one with the same port is cut off first and given
    /// so many milliseconds to go (session reinstatement, RFC 7143, 6.3.5). Returns the session's handle, 0
    /// when there is no place.
    [[nodiscard]] std::uint16_t Enter(const InitiatorPort& port, Connection& connection,
                                      std::uint32_t milliseconds);

    /// Tells a session from others, whatever its kind; never 0.
    [[nodiscard]] std::uint16_t NewHandle() { return static_cast<std::uint16_t>(handles_++ % 0xFFFF + 1); }

    /// Gives a connection's place up, if it has one.
    void Leave(const Connection& connection);

  private:
    struct Place {
        Connection* connection = nullptr;
        InitiatorPort port;
    };

    Lock lock_;
    Condition left_;
    std::array<Place, kMaxSessions> places_;
    std::atomic<std::uint32_t> handles_ = 0;
};

} // namespace quilla::iscsi
