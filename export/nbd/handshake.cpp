#include "export/nbd/handshake.h"

#include "platform/clock.h"
#include "platform/disk_codes.h"

#include <algorithm>
#include <array>

namespace quilla::nbd {

namespace {

constexpr std::uint16_t kTransmissionFlags =
    kHasFlags | kSendFlush | kSendFua | kSendWriteZeroes | kCanMultiConn;
constexpr std::uint32_t kPreferredBlock = 4096;

std::uint16_t TransmissionFlags(const Export& theExport) {
    return theExport.isReadOnly ? kTransmissionFlags | kReadOnly : kTransmissionFlags;
}

/// Names are capabilities, so none is listed. Everything else that is not used is not known either,
/// structured replies among it: payload and error of a read travel in simple ones.
OptionResult RefusalOf(Option option) {
    return option == Option::List ? OptionResult::ErrorPolicy : OptionResult::ErrorUnsupported;
}

bool IsUsed(Option option) {
    return option == Option::ExportName || option == Option::Info || option == Option::Go;
}

/// The parts of an Info or Go option: a name with its length, a count of information requests, the requests.
struct InfoRequest {
    std::span<const std::byte> name;
    std::span<const std::byte> kinds; // 16 bits each
};

bool ParseInfoRequest(std::span<const std::byte> data, InfoRequest& request) {
    if (data.size() < sizeof(Big32) + sizeof(Big16))
        return false;
    const std::size_t nameLength = LoadBig<std::uint32_t>(data.data());
    const std::size_t behindName = data.size() - sizeof(Big32) - sizeof(Big16);
    if (nameLength > behindName)
        return false;
    request.name = data.subspan(sizeof(Big32), nameLength);
    const std::span<const std::byte> rest = data.subspan(sizeof(Big32) + nameLength);
    request.kinds = rest.subspan(sizeof(Big16));
    return request.kinds.size() == sizeof(Big16) * LoadBig<std::uint16_t>(rest.data());
}

bool AsksFor(const InfoRequest& request, InfoType type) {
    for (std::size_t at = 0; at < request.kinds.size(); at += sizeof(Big16))
        if (LoadBig<std::uint16_t>(request.kinds.data() + at) == static_cast<std::uint16_t>(type))
            return true;
    return false;
}

constexpr char kNoProtocol[] = "it does not keep to the protocol";
constexpr char kTooMuch[] = "it said more than a handshake may take";
constexpr char kTooSlow[] = "its handshake took too long";
constexpr char kWrongName[] = "it does not know the export's name";

} // namespace

bool Handshake::Run(std::uint32_t limitMilliseconds) {
    deadline_ = MonotonicMilliseconds() + limitMilliseconds;
    Outcome outcome = Greet() ? Outcome::Continue : Outcome::Close;
    for (unsigned count = 0; count < kMaxOptions && outcome == Outcome::Continue; ++count)
        outcome = ServeOption();
    if (outcome == Outcome::Attach)
        return true;
    if (outcome == Outcome::Continue)
        refusal_ = kTooMuch;
    else if (refusal_ == nullptr && MonotonicMilliseconds() >= deadline_)
        refusal_ = kTooSlow;
    static_cast<void>(replies_.Send()); // the last words to a client that is turned away
    return false;
}

Handshake::Outcome Handshake::Refuse(const char* why) {
    refusal_ = why;
    return Outcome::Close;
}

bool Handshake::Greet() {
    const Greeting greeting = {
        .magic = kGreetingMagic, .optionMagic = kOptionMagic, .flags = kFixedNewstyle | kNoZeroes};
    if (!replies_.Append(greeting) || !Require(sizeof(Big32)))
        return false;
    const std::uint32_t flags = reader_.TakeStructure<Big32>();
    fixedNewstyle_ = (flags & kFixedNewstyle) != 0;
    noZeroes_ = (flags & kNoZeroes) != 0;
    if ((flags & ~std::uint32_t{kFixedNewstyle | kNoZeroes}) != 0)
        refusal_ = kNoProtocol;
    return refusal_ == nullptr;
}

/// Sends what the client waits for and receives so many bytes, all before the deadline however slowly they
/// come.
bool Handshake::Require(std::size_t count) {
    while (reader_.Available() < count) {
        const std::uint64_t now = MonotonicMilliseconds();
        if (now >= deadline_)
            return false;
        stream_.SetTimeout(static_cast<std::uint32_t>(deadline_ - now));
        if (!replies_.Send() || !reader_.ReceiveOnce(count, ReadAhead::Yes))
            return false;
    }
    return true;
}

bool Handshake::Skip(std::size_t count) {
    while (count > 0) {
        if (!Require(1))
            return false;
        count -= reader_.Take(std::min(count, reader_.Available())).size();
    }
    return true;
}

Handshake::Outcome Handshake::ServeOption() {
    if (!Require(sizeof(OptionHeader)))
        return Outcome::Close;
    const auto header = reader_.TakeStructure<OptionHeader>();
    const auto option = static_cast<Option>(std::uint32_t{header.option});
    const std::size_t length = header.length;
    if (header.magic != kOptionMagic || (!fixedNewstyle_ && option != Option::ExportName))
        return Refuse(kNoProtocol);
    if (!IsUsed(option) || length > kMaxOptionBytes)
        return RefuseUnread(option, length);
    if (!Require(length))
        return Outcome::Close;
    const std::span<const std::byte> data = reader_.Take(length);
    return option == Option::ExportName ? ServeExportName(data) : ServeInfo(option, data);
}

/// Answers an option whose data is not looked at.
Handshake::Outcome Handshake::RefuseUnread(Option option, std::size_t length) {
    if (length > kMaxSkippedBytes || option == Option::ExportName)
        return Refuse(kTooMuch);
    if (!Skip(length))
        return Outcome::Close;
    if (option == Option::Abort)
        return Answer(option, OptionResult::Ack, Outcome::Close);
    return Answer(option, IsUsed(option) ? OptionResult::ErrorTooBig : RefusalOf(option));
}

/// The old way in: a wrong name can only be answered by closing.
Handshake::Outcome Handshake::ServeExportName(std::span<const std::byte> name) {
    if (!IsExport(name))
        return Refuse(kWrongName);
    if (!replies_.Append(ExportReply{.size = export_.size, .flags = TransmissionFlags(export_)}))
        return Outcome::Close;
    if (!noZeroes_ && !replies_.Append(std::array<std::byte, kExportReplyZeroes>{}))
        return Outcome::Close;
    return Outcome::Attach;
}

Handshake::Outcome Handshake::ServeInfo(Option option, std::span<const std::byte> data) {
    InfoRequest request{};
    if (!ParseInfoRequest(data, request))
        return Answer(option, OptionResult::ErrorInvalid);
    if (request.name.size() > kMaxNameBytes)
        return Answer(option, OptionResult::ErrorTooBig);
    if (!IsExport(request.name)) {
        refusal_ = kWrongName; // unless it tries again and knows better
        return Answer(option, OptionResult::ErrorUnknown);
    }
    const ExportInfo exportInfo = {.type = static_cast<std::uint16_t>(InfoType::Export),
                                   .size = export_.size,
                                   .flags = TransmissionFlags(export_)};
    if (!SendInfo(option, exportInfo))
        return Outcome::Close;
    const BlockSizeInfo blockSize = {.type = static_cast<std::uint16_t>(InfoType::BlockSize),
                                     .minimum = std::uint32_t{kSectorSize},
                                     .preferred = kPreferredBlock,
                                     .maximum = kMaximumPayload};
    if (AsksFor(request, InfoType::BlockSize) && !SendInfo(option, blockSize))
        return Outcome::Close;
    return Answer(option, OptionResult::Ack, option == Option::Go ? Outcome::Attach : Outcome::Continue);
}

Handshake::Outcome Handshake::Answer(Option option, OptionResult result, Outcome next) {
    const OptionReply reply = {.magic = kOptionReplyMagic,
                               .option = static_cast<std::uint32_t>(option),
                               .result = static_cast<std::uint32_t>(result),
                               .length = 0};
    return replies_.Append(reply) ? next : Outcome::Close;
}

template <typename Info>
bool Handshake::SendInfo(Option option, const Info& info) {
    const OptionReply reply = {.magic = kOptionReplyMagic,
                               .option = static_cast<std::uint32_t>(option),
                               .result = static_cast<std::uint32_t>(OptionResult::Info),
                               .length = sizeof(info)};
    return replies_.Append(reply) && replies_.Append(info);
}

/// Compares in a time that depends on the lengths only: the name is a secret.
bool Handshake::IsExport(std::span<const std::byte> name) const {
    if (name.size() != export_.name.size())
        return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < name.size(); ++i)
        difference |= std::to_integer<unsigned>(name[i]) ^ static_cast<unsigned char>(export_.name[i]);
    return difference == 0;
}

} // namespace quilla::nbd
