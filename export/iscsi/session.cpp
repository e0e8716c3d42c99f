// Everything in full-feature phase that is not a SCSI command: NOP, text, task management, logout, reject.

#include "export/iscsi/session.h"

#include <algorithm>
#include <array>

namespace quilla::iscsi {

namespace {

Response Answer(ResponseCode code, const Request& request) {
    Response response{};
    response.code = static_cast<std::uint8_t>(code);
    response.flags = kFinal;
    response.tag = request.tag;
    return response;
}

} // namespace

Session::Outcome Session::Say(Response& response, std::span<const std::byte> data) {
    return channel_.Append(response, data, StatusUse::Counts) ? Outcome::Continue : Outcome::Close;
}

bool Session::Run(LeaveHandler leave, void* leaveContext) {
    leave_ = leave;
    leaveContext_ = leaveContext;
    Outcome outcome = Outcome::Continue;
    while (outcome == Outcome::Continue) {
        Pdu pdu;
        outcome = channel_.Receive(pdu) ? Serve(pdu) : Outcome::Close;
    }
    if (outcome == Outcome::Close && channel_.IsStopping())
        AnnounceEnd();
    static_cast<void>(channel_.Send());
    return outcome == Outcome::Goodbye;
}

Session::Outcome Session::Serve(const Pdu& pdu) {
    const Request& request = pdu.header;
    if (request.Code() == RequestCode::DataOut && device_ != nullptr) {
        if (!pdu.isDataIntact && Reject(request, RejectReason::DataDigest) == Outcome::Close)
            return Outcome::Close;
        return tasks_.ServeData(pdu) ? Outcome::Continue : Outcome::Close;
    }
    if (!pdu.isDataIntact) {
        // Without recovery of single units the gap in the numbers could never be closed.
        static_cast<void>(Reject(request, RejectReason::DataDigest));
        return Outcome::Close;
    }
    if (request.Code() == RequestCode::Snack)
        return Reject(request, RejectReason::SnackRefused);
    if (!request.IsImmediate()) {
        if (request.commandNumber != channel_.numbers.commandExpected || channel_.numbers.window == 0)
            return Outcome::Continue; // outside the window: ignored (RFC 7143, 4.2.2.1)
        ++channel_.numbers.commandExpected;
    }
    return ServeNumbered(pdu);
}

Session::Outcome Session::ServeNumbered(const Pdu& pdu) {
    const Request& request = pdu.header;
    switch (request.Code()) {
    case RequestCode::NopOut:
        return ServeNop(pdu);
    case RequestCode::Text:
        return ServeText(pdu);
    case RequestCode::Logout:
        return ServeLogout(pdu);
    case RequestCode::TaskManagement:
        if (device_ != nullptr)
            return ServeTaskManagement(pdu);
        break;
    case RequestCode::ScsiCommand:
        if (device_ != nullptr)
            return tasks_.ServeCommand(pdu) ? Outcome::Continue : Outcome::Close;
        break;
    default:
        return Reject(request, RejectReason::NotSupported);
    }
    return Reject(request, RejectReason::ProtocolError);
}

Session::Outcome Session::ServeNop(const Pdu& pdu) {
    if (pdu.header.tag == kNoTag)
        return Outcome::Continue; // wants no answer
    Response response = Answer(ResponseCode::NopIn, pdu.header);
    response.lun = pdu.header.lun;
    response.transferTag = kNoTag;
    const auto echo = pdu.data.first(std::min<std::size_t>(pdu.data.size(), terms_.initiatorSegment));
    return Say(response, echo);
}

Session::Outcome Session::ServeTaskManagement(const Pdu& pdu) {
    Response response = Answer(ResponseCode::TaskManagement, pdu.header);
    response.detail = ManageTasks(pdu.header);
    return Say(response);
}

std::uint8_t Session::ManageTasks(const Request& request) {
    constexpr std::uint8_t kAbortTask = 1, kAbortTaskSet = 2, kClearTaskSet = 4, kUnitReset = 5,
                           kWarmReset = 6;
    constexpr std::uint8_t kComplete = 0, kNoSuchTask = 1, kNoSuchLun = 2, kNotSupported = 5;
    const std::uint8_t function = request.flags & ~kFinal;
    if (function != kWarmReset && request.lun != std::array<std::uint8_t, 8>{})
        return kNoSuchLun;
    switch (function) {
    case kAbortTask:
        return tasks_.Abort(request.reference) ? kComplete : kNoSuchTask;
    case kAbortTaskSet:
    case kClearTaskSet:
        tasks_.AbortAll();
        return kComplete;
    case kUnitReset:
    case kWarmReset: // there is one unit
        tasks_.AbortAll();
        device_->ResetUnit();
        return kComplete;
    default:
        return kNotSupported;
    }
}

Session::Outcome Session::ServeText(const Pdu& pdu) {
    if (!pdu.header.Has(kFinal) || pdu.header.reference != kNoTag) // none goes on in another unit
        return Reject(pdu.header, RejectReason::ProtocolError);
    std::string_view text(reinterpret_cast<const char*>(pdu.data.data()), pdu.data.size());
    TextWriter answer;
    for (TextKey pair; TakeTextKey(text, pair);) {
        const bool isMine = pair.value.empty() || pair.value == "All" || pair.value == context_.target;
        if (pair.key == "SendTargets" && isMine) {
            answer.Add("TargetName", context_.target);
            answer.Add("TargetAddress", context_.address);
        } else if (pair.key == "MaxRecvDataSegmentLength") {
            NegotiateKey(pair, terms_, answer);
        } else if (pair.key != "SendTargets") {
            answer.Add(pair.key, "NotUnderstood");
        }
    }
    Response response = Answer(ResponseCode::Text, pdu.header);
    response.transferTag = kNoTag;
    const auto bytes =
        answer.Bytes().first(std::min<std::size_t>(answer.Bytes().size(), terms_.initiatorSegment));
    return Say(response, bytes);
}

Session::Outcome Session::ServeLogout(const Pdu& pdu) {
    constexpr std::uint8_t kCloseConnection = 1; // 0 closes the session
    constexpr std::uint8_t kDone = 0, kNoSuchConnection = 1, kNoRecovery = 2;
    const std::uint8_t reason = pdu.header.flags & ~kFinal;
    Response response = Answer(ResponseCode::Logout, pdu.header);
    if (reason == kCloseConnection && pdu.header.reference >> 16 != context_.connectionNumber)
        response.detail = kNoSuchConnection;
    else
        response.detail = reason <= kCloseConnection ? kDone : kNoRecovery;
    if (response.detail == kDone)
        leave_(leaveContext_); // the place is free when the initiator hears of it
    const Outcome outcome = Say(response);
    return outcome == Outcome::Continue && response.detail == kDone ? Outcome::Goodbye : outcome;
}

Session::Outcome Session::Reject(const Request& request, RejectReason reason) {
    Response response = Answer(ResponseCode::Reject, request);
    response.tag = kNoTag;
    response.detail = static_cast<std::uint8_t>(reason);
    return Say(response, std::as_bytes(std::span(&request, 1)));
}

/// The volume goes: all connections of the session are dropped, and there is nothing to come back to.
void Session::AnnounceEnd() {
    constexpr std::uint32_t kDropsSession = 3;
    Response response{};
    response.code = static_cast<std::uint8_t>(ResponseCode::AsyncMessage);
    response.flags = kFinal;
    response.tag = kNoTag;
    response.sequence = kDropsSession << 24;
    static_cast<void>(Say(response));
}

} // namespace quilla::iscsi
