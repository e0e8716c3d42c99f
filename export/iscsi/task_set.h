#pragma once

#include "export/iscsi/device_server.h"
#include "export/iscsi/negotiation.h"
#include "export/iscsi/pdu_channel.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quilla::iscsi {

/// The SCSI commands of a session and their data. Commands are carried out in the order of their arrival;
/// those that still wait for data from the initiator are kept, and their data goes to the device as it
/// arrives.
class TaskSet {
  public:
    /// Without a device no command may come.
    TaskSet(PduChannel& channel, const Parameters& terms, DeviceServer* device)
        : channel_(channel), terms_(terms), device_(device) {}
    ~TaskSet();
    TaskSet(const TaskSet&) = delete;
    TaskSet& operator=(const TaskSet&) = delete;

    /// Serve a command, or a unit of data-out; false if the peer is gone.
    [[nodiscard]] bool ServeCommand(const Pdu& pdu);
    [[nodiscard]] bool ServeData(const Pdu& pdu);

    /// Forgets a task that waits for data; false if there is none of that tag.
    bool Abort(std::uint32_t tag);
    void AbortAll();

  private:
    /// Immediate commands come on top of the window.
    static constexpr std::size_t kImmediateTasks = 8;

    struct Task {
        bool isWaiting = false;
        bool isImmediate = false;
        Request command;
        Plan plan;
        std::uint32_t expected = 0;    ///< bytes from the initiator, as it says
        std::uint32_t position = 0;    ///< bytes that have come
        std::uint32_t sequenceEnd = 0; ///< position that the present sequence may reach
        std::uint32_t dataNumber = 0;
        std::uint32_t requestNumber = 0; ///< of the next ready-to-transfer
        std::uint32_t transferTag = kNoTag;
        CommandData whole;

        [[nodiscard]] std::uint32_t Wanted() const { return plan.length < expected ? plan.length : expected; }
    };

    [[nodiscard]] Task* FindTask(std::uint32_t tag);
    [[nodiscard]] bool ServeDataOut(const Pdu& pdu, const Plan& plan);
    [[nodiscard]] bool SendData(const Request& command, const Plan& plan);
    [[nodiscard]] bool SendReply(const Request& command, const Plan& plan);
    void TakePiece(Task& task, std::span<std::byte> piece);
    [[nodiscard]] bool Advance(Task& task);
    void Release(Task& task);
    [[nodiscard]] bool Respond(const Request& command, Status status, Sense sense, std::uint32_t sent,
                               std::uint32_t wanted);

    PduChannel& channel_;
    const Parameters& terms_;
    DeviceServer* device_;
    std::uint32_t lastTransferTag_ = 0;
    std::array<Task, kCommandWindow + kImmediateTasks> tasks_;
};

} // namespace quilla::iscsi
