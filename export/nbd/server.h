#pragma once

#include "export/range_lock.h"
#include "export/stream_server.h"

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace quilla::nbd {

/// Exports one block device over the Network Block Device protocol (fixed newstyle), on loopback TCP at a
/// port chosen by the system, or on a listener of the caller's. The export's name is a capability: no other
/// name is served and none is ever listed.
class Server final : public StreamServer {
  public:
    /// Device and lock must outlive the server; whoever else serves the device shares the lock. The name has
    /// at most kMaxNameLength bytes of ASCII; what stands before its first '-' is no secret. It is empty
    /// where the listener itself lets nobody else in.
    static constexpr std::size_t kMaxNameLength = 64;
    Server(BlockDevice& device, RangeLock& ranges, std::string_view exportName, ServerLimits limits = {},
           bool isReadOnly = false);
    ~Server() override;

  private:
    void Serve(Connection& connection) override;
    void ServeClient(Connection& connection, std::span<std::byte> received, std::span<std::byte> gathered);

    RangeLock& ranges_;
    std::array<char, kMaxNameLength> name_{};
    std::size_t nameLength_;
    const bool isReadOnly_;
};

} // namespace quilla::nbd
