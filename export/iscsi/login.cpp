#include "export/iscsi/login.h"

#include "platform/clock.h"
#include "platform/wipe.h"

#include <algorithm>

namespace quilla::iscsi {

namespace {

constexpr std::uint8_t kStageMask = 3;
constexpr int kNoStage = 2;

/// What a refusal is told as, by its status.
struct Cause {
    LoginStatus status;
    const char* text;
};
constexpr Cause kCauses[] = {
    {LoginStatus::AuthenticationFailure, "it does not know the secret"},
    {LoginStatus::TargetNotFound, "it does not know the target's name"},
    {LoginStatus::OutOfResources, "all sessions are taken"},
};

/// Keys of the first request. Later they would change who it is, or what it may, behind the checks.
bool IsNameKey(std::string_view key) {
    return key == "InitiatorName" || key == "SessionType" || key == "TargetName";
}

constexpr char kNoProtocol[] = "it does not keep to the protocol";

} // namespace

Login::~Login() {
    WipeMemory(text_.data(), text_.size());
}

bool Login::Run(std::uint32_t limitMilliseconds) {
    const std::uint64_t deadline = MonotonicMilliseconds() + limitMilliseconds;
    channel_.SetDeadline(deadline);
    Outcome outcome = Outcome::Continue;
    for (unsigned count = 0; count < kMaxUnits && outcome == Outcome::Continue; ++count) {
        Pdu pdu;
        outcome = channel_.Receive(pdu) ? ServeUnit(pdu) : Outcome::Close;
    }
    if (outcome == Outcome::Done)
        return true;
    if (outcome == Outcome::Continue)
        refusal_ = "it said more than a login may take";
    else if (refusal_ == nullptr && MonotonicMilliseconds() >= deadline)
        refusal_ = "its login took too long";
    static_cast<void>(channel_.Send());
    return false;
}

bool Login::Conclude(std::uint16_t handle) {
    handle_ = handle;
    parameters_.firstBurst = std::min(parameters_.firstBurst, parameters_.maxBurst);
    if (!Answer(LoginStatus::Success, true) || !channel_.Send())
        return false;
    channel_.SetDigests(parameters_.headerDigest, parameters_.dataDigest);
    channel_.SetSegmentLimit(kMaxSegment);
    if (!isDiscovery_)
        channel_.SetDeadline(0);
    return true;
}

void Login::Refuse(LoginStatus status) {
    const auto* const cause = std::ranges::find(kCauses, status, &Cause::status);
    refusal_ = cause == std::end(kCauses) ? kNoProtocol : cause->text;
    answer_.Clear();
    static_cast<void>(Answer(status, false) && channel_.Send());
}

Login::Outcome Login::ServeUnit(const Pdu& pdu) {
    request_ = pdu.header;
    if (request_.Code() != RequestCode::Login || !request_.IsImmediate()) {
        refusal_ = kNoProtocol;
        return Outcome::Close;
    }
    const auto stage = static_cast<Stage>(request_.flags >> 2 & kStageMask);
    const auto next = static_cast<Stage>(request_.flags & kStageMask);
    const bool isContinued = request_.Has(kContinue);
    const bool wantsTransit = request_.Has(kTransit);
    LoginStatus status = hasBegun_ ? LoginStatus::Success : Begin(request_);
    if (status == LoginStatus::Success && stage != stage_)
        status =
            stage == Stage::Operational ? LoginStatus::AuthenticationFailure : LoginStatus::InvalidRequest;
    else if (status == LoginStatus::Success &&
             (pdu.data.size() > text_.size() - textSize_ ||
              (wantsTransit && (isContinued || next <= stage || static_cast<int>(next) == kNoStage))))
        status = LoginStatus::InitiatorError;
    if (status == LoginStatus::Success) {
        std::ranges::copy(pdu.data, std::as_writable_bytes(std::span(text_)).begin() +
                                        static_cast<std::ptrdiff_t>(textSize_));
        textSize_ += pdu.data.size();
        answer_.Clear();
        status = isContinued ? status : TakeKeys(stage);
    }
    if (status != LoginStatus::Success) {
        Refuse(status);
        return Outcome::Close;
    }
    const bool transits = wantsTransit && chap_.HasPassed(); // never when more of the text is to come
    if (transits && next == Stage::FullFeature)
        return Outcome::Done;
    if (transits)
        stage_ = next;
    return Answer(LoginStatus::Success, transits) ? Outcome::Continue : Outcome::Close;
}

/// The first request.
LoginStatus Login::Begin(const Request& request) {
    hasBegun_ = true;
    std::ranges::copy_n(request.lun.begin(), static_cast<std::ptrdiff_t>(port_.session.size()),
                        port_.session.begin());
    connectionNumber_ = static_cast<std::uint16_t>(request.reference >> 16);
    channel_.numbers.commandExpected = request.commandNumber;
    channel_.numbers.status = request.statusExpected;
    constexpr std::size_t kLowestVersion = 1;
    if (request.detail[kLowestVersion] > 0)
        return LoginStatus::UnsupportedVersion;
    // A session has one connection; one with a handle asks for another.
    return request.lun[6] == 0 && request.lun[7] == 0 ? LoginStatus::Success : LoginStatus::NoSuchSession;
}

LoginStatus Login::TakeKeys(Stage stage) {
    std::string_view text(text_.data(), textSize_);
    hasChapKeys_ = offersChap_ = false;
    for (TextKey pair; TakeTextKey(text, pair);)
        if (const LoginStatus status = TakeKey(pair); status != LoginStatus::Success)
            return status;
    WipeMemory(text_.data(), textSize_);
    textSize_ = 0;
    if (!hasNames_) {
        hasNames_ = true;
        if (const LoginStatus status = CheckNames(); status != LoginStatus::Success)
            return status;
        if (!isDiscovery_)
            answer_.AddNumber("TargetPortalGroupTag", 1);
    }
    if (stage == Stage::Operational && !hasDeclared_) {
        hasDeclared_ = true;
        answer_.AddNumber("MaxRecvDataSegmentLength", kMaxSegment);
    }
    return stage == Stage::Security ? Authenticate() : LoginStatus::Success;
}

LoginStatus Login::TakeKey(const TextKey& pair) {
    if (hasNames_ && IsNameKey(pair.key))
        return LoginStatus::Success;
    if (pair.key == "InitiatorName") {
        if (pair.value.size() >= port_.name.size())
            return LoginStatus::InitiatorError;
        port_.name.fill(0);
        std::ranges::copy(pair.value, port_.name.begin());
    } else if (pair.key == "SessionType") {
        isDiscovery_ = pair.value == "Discovery";
        if (!isDiscovery_ && pair.value != "Normal")
            return LoginStatus::SessionTypeNotSupported;
    } else if (pair.key == "TargetName") {
        isTargetNamed_ = true;
        isTargetRight_ =
            IsSameSecret(std::as_bytes(std::span(pair.value)), std::as_bytes(std::span(identity_.target)));
    } else if (pair.key == "AuthMethod") {
        std::string_view list = pair.value;
        for (std::string_view method; TakeListElement(list, method);)
            offersChap_ |= method == "CHAP";
        if (!offersChap_)
            return LoginStatus::AuthenticationFailure;
    } else if (pair.key.starts_with("CHAP_")) {
        hasChapKeys_ = true;
        chap_.Take(pair);
    } else {
        NegotiateKey(pair, parameters_, answer_);
    }
    return LoginStatus::Success;
}

LoginStatus Login::CheckNames() const {
    if (port_.name[0] == 0 || (!isDiscovery_ && !isTargetNamed_))
        return LoginStatus::MissingParameter;
    return isDiscovery_ || isTargetRight_ ? LoginStatus::Success : LoginStatus::TargetNotFound;
}

/// Nobody gets on without the exchange: an initiator that wants to leave this stage otherwise is refused.
LoginStatus Login::Authenticate() {
    if (offersChap_) {
        isChapChosen_ = true;
        answer_.Add("AuthMethod", "CHAP");
    }
    const bool isStep = isChapChosen_ && hasChapKeys_;
    if (isStep && chap_.Advance(answer_) == Chap::Step::Failed)
        return LoginStatus::AuthenticationFailure;
    const bool leavesWithout = request_.Has(kTransit) && !offersChap_ && !isStep && !chap_.HasPassed();
    return leavesWithout ? LoginStatus::AuthenticationFailure : LoginStatus::Success;
}

bool Login::Answer(LoginStatus status, bool transits) {
    Response response{};
    response.code = static_cast<std::uint8_t>(ResponseCode::Login);
    const unsigned stages = request_.flags & (transits ? 0xF : 0xC);
    response.flags = static_cast<std::uint8_t>((transits ? kTransit : 0) | stages);
    response.lun = request_.lun;
    response.lun[6] = static_cast<std::uint8_t>(handle_ >> 8);
    response.lun[7] = static_cast<std::uint8_t>(handle_);
    response.tag = request_.tag;
    response.sequence = static_cast<std::uint32_t>(status) << 16;
    return channel_.Append(response, answer_.Bytes(), StatusUse::Counts);
}

} // namespace quilla::iscsi
