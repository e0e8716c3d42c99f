// Data-in, data-out, ready-to-transfer and SCSI response (RFC 7143, 11.3 to 11.8).

#include "export/iscsi/task_set.h"

#include "platform/wipe.h"

#include <algorithm>

namespace quilla::iscsi {

namespace {

Response MakeResponse(ResponseCode code, const Request& command) {
    Response response{};
    response.code = static_cast<std::uint8_t>(code);
    response.flags = kFinal;
    response.tag = command.tag;
    return response;
}

/// Tells how far the initiator's expectation and what the command was about are apart.
void SetResidual(Response& response, std::uint32_t expected, std::uint32_t wanted) {
    if (wanted > expected)
        response.flags |= kOverflow;
    else if (wanted < expected)
        response.flags |= kUnderflow;
    response.length = wanted > expected ? wanted - expected : expected - wanted;
}

constexpr std::size_t kDataNumberAt = 4, kOffsetAt = 8; // in the tail of data-out

} // namespace

TaskSet::~TaskSet() {
    for (Task& task : tasks_)
        Wipe(task.whole);
}

bool TaskSet::ServeCommand(const Pdu& pdu) {
    const Request& command = pdu.header;
    if (device_->NoticeReset())
        AbortAll();
    Plan plan = device_->Begin(command.tail, command.lun);
    const bool isBoth = command.Has(kReads) && command.Has(kWrites);
    if (isBoth)
        plan = {.sense = kInvalidField};
    if (command.Has(kWrites))
        return ServeDataOut(pdu, plan);
    switch (plan.transfer) {
    case Plan::Transfer::Reply:
        return SendReply(command, plan);
    case Plan::Transfer::Read:
        return SendData(command, plan);
    case Plan::Transfer::WriteSame:
    case Plan::Transfer::SelectModes:
    case Plan::Transfer::Write:
    case Plan::Transfer::WriteThenCompare:
    case Plan::Transfer::Compare: // with no data at all
        return ServeDataOut(pdu, plan);
    case Plan::Transfer::None:
        break;
    }
    return Respond(command, plan.sense ? Status::CheckCondition : Status::Good, plan.sense, 0, plan.length);
}

bool TaskSet::SendReply(const Request& command, const Plan& plan) {
    const std::uint32_t expected = command.Has(kReads) ? std::uint32_t{command.reference} : 0;
    const std::uint32_t size = std::min(plan.length, expected);
    if (size == 0)
        return Respond(command, Status::Good, kNoSense, 0, plan.length);
    Response response = MakeResponse(ResponseCode::DataIn, command);
    response.flags |= kHasStatus;
    response.transferTag = kNoTag;
    SetResidual(response, expected, plan.length);
    return channel_.Append(response, device_->Reply().first(size), StatusUse::Counts);
}

/// Data of the medium goes from the device into the gathered replies without another copy; the last unit
/// carries the status.
bool TaskSet::SendData(const Request& command, const Plan& plan) {
    const std::uint32_t expected = command.Has(kReads) ? std::uint32_t{command.reference} : 0;
    const std::uint32_t total = std::min(plan.length, expected);
    Response response = MakeResponse(ResponseCode::DataIn, command);
    response.transferTag = kNoTag;
    std::uint32_t number = 0;
    std::uint32_t sequenceEnd = terms_.maxBurst;
    for (std::uint32_t sent = 0; sent < total;) {
        const std::uint32_t size =
            std::min({total - sent, terms_.initiatorSegment, kMaxSegment, sequenceEnd - sent});
        const std::span<std::byte> room = channel_.Reserve(size);
        if (room.empty())
            return false;
        if (const Sense sense = device_->Read(plan, sent, room); sense)
            return Respond(command, Status::CheckCondition, sense, number, sent);
        const bool isLast = sent + size == total;
        const bool endsSequence = sent + size == sequenceEnd;
        response.flags = isLast || endsSequence ? kFinal : 0;
        if (isLast) {
            response.flags |= kHasStatus;
            SetResidual(response, expected, plan.length);
        }
        response.sequence = number++;
        response.offset = sent;
        if (!channel_.Commit(response, size, isLast ? StatusUse::Counts : StatusUse::None))
            return false;
        sent += size;
        if (endsSequence)
            sequenceEnd += terms_.maxBurst;
    }
    return total > 0 || Respond(command, Status::Good, kNoSense, 0, plan.length);
}

bool TaskSet::ServeDataOut(const Pdu& pdu, const Plan& plan) {
    const Request& command = pdu.header;
    // Most writes come whole with their command, so the task's place is taken only if it has to wait.
    auto* const free = std::ranges::find(tasks_, false, &Task::isWaiting);
    if (free == tasks_.end())
        return Respond(command, Status::TaskSetFull, kNoSense, 0, 0);
    Task& task = *free;
    task.command = command;
    task.plan = plan;
    if (plan.transfer == Plan::Transfer::Read || plan.transfer == Plan::Transfer::Reply)
        task.plan.transfer = Plan::Transfer::None; // reads, and has nowhere to
    task.isImmediate = command.IsImmediate();
    task.expected = command.Has(kWrites) ? std::uint32_t{command.reference} : 0;
    task.position = task.dataNumber = task.requestNumber = 0;
    task.transferTag = kNoTag;
    task.sequenceEnd = std::min(terms_.firstBurst, task.expected);
    Sense& sense = task.plan.sense;
    if (!pdu.data.empty() && !terms_.immediateData)
        sense = kUnexpectedData;
    else if (pdu.data.size() > task.sequenceEnd)
        sense = kWrongAmountOfData;
    TakePiece(task, pdu.data);
    if (command.Has(kFinal))
        return Advance(task);
    if (terms_.initialReady && !sense)
        sense = kUnexpectedData;
    task.isWaiting = true;
    channel_.numbers.window -= task.isImmediate ? 0 : 1;
    return true;
}

/// Data of a task that is not known belongs to one that was aborted or has failed: nobody waits for it.
bool TaskSet::ServeData(const Pdu& pdu) {
    if (device_->NoticeReset())
        AbortAll();
    const Request& header = pdu.header;
    Task* const task = FindTask(header.tag);
    if (task == nullptr || task->transferTag != header.reference)
        return true;
    Sense& sense = task->plan.sense;
    const bool isInOrder = header.TailNumber(kDataNumberAt) == task->dataNumber++ &&
                           header.TailNumber(kOffsetAt) == task->position;
    const bool fits = pdu.data.size() <= task->sequenceEnd - task->position;
    if (!sense && !pdu.isDataIntact)
        sense = kDataDigestError;
    else if (!sense && (!isInOrder || !fits))
        sense = kWrongAmountOfData;
    if (fits)
        TakePiece(*task, pdu.data);
    if (!header.Has(kFinal))
        return true;
    if (!sense && task->transferTag != kNoTag && task->position < task->sequenceEnd)
        sense = kWrongAmountOfData;
    return Advance(*task);
}

void TaskSet::TakePiece(Task& task, std::span<std::byte> piece) {
    const std::uint32_t wanted = task.Wanted();
    if (!task.plan.sense && task.position < wanted && !piece.empty()) {
        const std::size_t useful = std::min<std::size_t>(piece.size(), wanted - task.position);
        task.plan.sense = device_->Take(task.plan, task.position, piece.first(useful), task.whole);
    }
    task.position +=
        static_cast<std::uint32_t>(std::min<std::size_t>(piece.size(), task.expected - task.position));
}

/// Asks for more data after a sequence, or ends the task.
bool TaskSet::Advance(Task& task) {
    const std::uint32_t wanted = task.Wanted();
    if (!task.plan.sense && task.position < wanted) {
        task.sequenceEnd = task.position + std::min(wanted - task.position, terms_.maxBurst);
        task.dataNumber = 0;
        task.transferTag = lastTransferTag_ = (lastTransferTag_ + 1) & ~(1U << 31);
        if (!task.isWaiting)
            channel_.numbers.window -= task.isImmediate ? 0 : 1;
        task.isWaiting = true;
        Response response = MakeResponse(ResponseCode::ReadyToTransfer, task.command);
        response.lun = task.command.lun;
        response.transferTag = task.transferTag;
        response.sequence = task.requestNumber++;
        response.offset = task.position;
        response.length = task.sequenceEnd - task.position;
        return channel_.Append(response, {}, StatusUse::None);
    }
    Sense sense = task.plan.sense;
    if (!sense)
        sense = device_->Finish(task.plan, std::min(task.position, wanted), task.whole);
    Release(task);
    return Respond(task.command, sense ? Status::CheckCondition : Status::Good, sense, 0,
                   sense ? 0 : task.plan.length);
}

void TaskSet::Release(Task& task) {
    if (task.isWaiting)
        channel_.numbers.window += task.isImmediate ? 0 : 1;
    task.isWaiting = false;
}

TaskSet::Task* TaskSet::FindTask(std::uint32_t tag) {
    for (Task& task : tasks_)
        if (task.isWaiting && task.command.tag == tag)
            return &task;
    return nullptr;
}

bool TaskSet::Abort(std::uint32_t tag) {
    Task* const task = FindTask(tag);
    if (task != nullptr)
        Release(*task);
    return task != nullptr;
}

void TaskSet::AbortAll() {
    for (Task& task : tasks_)
        Release(task);
}

/// The status by itself, with sense data behind a length of its own, after so many units of data.
bool TaskSet::Respond(const Request& command, Status status, Sense sense, std::uint32_t sent,
                      std::uint32_t wanted) {
    Response response = MakeResponse(ResponseCode::ScsiResponse, command);
    response.status = static_cast<std::uint8_t>(status);
    response.sequence = sent;
    const bool moves = command.Has(kReads) || command.Has(kWrites);
    SetResidual(response, moves ? std::uint32_t{command.reference} : 0, wanted);
    if (!sense)
        return channel_.Append(response, {}, StatusUse::Counts);
    const SenseData senseData = FixedSense(sense);
    std::array<std::byte, 2 + sizeof(senseData)> data;
    StoreBig(data.data(), static_cast<std::uint16_t>(sizeof(senseData)));
    std::ranges::copy(std::as_bytes(std::span(senseData)), data.begin() + 2);
    return channel_.Append(response, data, StatusUse::Counts);
}

} // namespace quilla::iscsi
