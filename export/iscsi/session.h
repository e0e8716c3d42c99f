#pragma once

#include "export/iscsi/device_server.h"
#include "export/iscsi/negotiation.h"
#include "export/iscsi/pdu_channel.h"
#include "export/iscsi/task_set.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quilla::iscsi {

/// What a session needs to know beyond its commands.
struct SessionContext {
    std::string_view target;  ///< name
    std::string_view address; ///< "127.0.0.1:PORT,1"
    std::uint16_t connectionNumber;
};

/// The full-feature phase of a session's one connection: requests in the order of their numbers until the
/// initiator logs out, breaks off or breaks the rules, or the server stops.
class Session {
  public:
    /// Called when the initiator has taken its leave, before the answer to that.
    using LeaveHandler = void (*)(void* context);

    /// Without a device it is for discovery only.
    Session(PduChannel& channel, const Parameters& terms, const SessionContext& context, DeviceServer* device)
        : channel_(channel), terms_(terms), context_(context), device_(device),
          tasks_(channel, terms_, device) {}

    /// Runs the phase; true if the initiator logged out.
    bool Run(LeaveHandler leave, void* leaveContext);

  private:
    enum class Outcome : std::uint8_t { Continue, Goodbye, Close };

    [[nodiscard]] Outcome Say(Response& response, std::span<const std::byte> data = {});
    [[nodiscard]] Outcome Serve(const Pdu& pdu);
    [[nodiscard]] Outcome ServeNumbered(const Pdu& pdu);
    [[nodiscard]] Outcome ServeNop(const Pdu& pdu);
    [[nodiscard]] Outcome ServeTaskManagement(const Pdu& pdu);
    [[nodiscard]] Outcome ServeText(const Pdu& pdu);
    [[nodiscard]] Outcome ServeLogout(const Pdu& pdu);
    [[nodiscard]] std::uint8_t ManageTasks(const Request& request);
    [[nodiscard]] Outcome Reject(const Request& request, RejectReason reason);
    void AnnounceEnd();

    PduChannel& channel_;
    Parameters terms_;
    const SessionContext context_;
    DeviceServer* device_;
    TaskSet tasks_;
    LeaveHandler leave_ = nullptr;
    void* leaveContext_ = nullptr;
};

} // namespace quilla::iscsi
