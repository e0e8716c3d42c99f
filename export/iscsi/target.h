#pragma once

#include "export/iscsi/parameter_data.h"
#include "export/iscsi/session_table.h"
#include "export/iscsi/target_keys.h"
#include "export/range_lock.h"
#include "export/stream_server.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace quilla::iscsi {

class PduChannel;

/// Exports one block device as an iSCSI target with one logical unit (RFC 7143), on loopback TCP at a port
/// chosen by the system. Name and secret are needed to log in; nothing is discovered without the secret.
class Target final : public StreamServer {
  public:
    /// Device and lock must outlive the target; whoever else serves the device shares the lock. The label is
    /// for traces.
    Target(BlockDevice& device, RangeLock& ranges, const TargetKeys& keys, std::string_view label,
           ServerLimits limits = {}, bool isReadOnly = false);
    ~Target() override;

    [[nodiscard]] const TargetKeys& Keys() const { return keys_; }

  private:
    struct Visit;
    void Serve(Connection& connection) override;
    void ServeClient(Connection& connection, std::span<std::byte> memory);
    [[nodiscard]] bool Admit(Connection& connection, Login& login);
    void RunSession(Connection& connection, PduChannel& channel, const Login& login,
                    std::span<std::byte> scratch);

    RangeLock& ranges_;
    TargetKeys keys_;
    UnitState unit_;
    SessionTable sessions_;
};

} // namespace quilla::iscsi
