#include "export/iscsi/pdu_channel.h"

#include "export/iscsi/crc32c.h"
#include "platform/clock.h"

#include <algorithm>
#include <cstring>

namespace quilla::iscsi {

namespace {

/// Gathered replies of this size are worth a send of their own.
constexpr std::size_t kSendSize = 64U << 10;

constexpr std::size_t Padded(std::size_t length) {
    return (length + 3) & ~std::size_t{3};
}

} // namespace

void PduChannel::SetDeadline(std::uint64_t moment) {
    deadline_ = moment;
    if (moment == 0)
        stream_.SetTimeout(0);
}

void PduChannel::SetDigests(bool ofHeaders, bool ofData) {
    headerDigest_ = ofHeaders ? 4 : 0;
    dataDigest_ = ofData ? 4 : 0;
}

/// Makes so many bytes available; before it waits, the peer gets what it may be waiting for.
bool PduChannel::Require(std::size_t count) {
    if (reader_.Available() >= count)
        return true;
    if (!replies_.Send())
        return false;
    while (reader_.Available() < count) {
        if (deadline_ != 0) {
            const std::uint64_t now = MonotonicMilliseconds();
            if (now >= deadline_)
                return false;
            stream_.SetTimeout(static_cast<std::uint32_t>(deadline_ - now));
        }
        if (!reader_.ReceiveOnce(count, IsStopping() ? ReadAhead::No : ReadAhead::Yes))
            return false;
    }
    return true;
}

bool PduChannel::Receive(Pdu& pdu) {
    if ((IsStopping() && reader_.Available() < sizeof(Request)) || !Require(sizeof(Request)))
        return false;
    const std::span<std::byte> start = reader_.Take(sizeof(Request));
    std::memcpy(&pdu.header, start.data(), sizeof(Request));
    std::uint32_t headerSum = headerDigest_ > 0 ? Crc32c(start) : 0;
    const std::size_t dataLength = pdu.header.dataLength;
    const std::size_t extraLength = std::size_t{4} * pdu.header.extraWords;
    const std::size_t dataDigest = dataLength > 0 ? dataDigest_ : 0;
    if (dataLength > segmentLimit_ || !Require(extraLength + headerDigest_ + Padded(dataLength) + dataDigest))
        return false;
    const std::span<std::byte> extra = reader_.Take(extraLength);
    if (headerDigest_ > 0) {
        headerSum = Crc32c(extra, headerSum);
        if (LoadLittle<std::uint32_t>(reader_.Take(headerDigest_).data()) != headerSum)
            return false; // nothing in the header can be trusted, its lengths neither
    }
    const std::span<std::byte> padded = reader_.Take(Padded(dataLength));
    pdu.data = padded.first(dataLength);
    pdu.isDataIntact =
        dataDigest == 0 || LoadLittle<std::uint32_t>(reader_.Take(dataDigest).data()) == Crc32c(padded);
    return true;
}

std::span<std::byte> PduChannel::Reserve(std::size_t dataLength) {
    room_ = replies_.Reserve(sizeof(Response) + headerDigest_ + Padded(dataLength) + dataDigest_);
    return room_.empty() ? room_ : room_.subspan(sizeof(Response) + headerDigest_, dataLength);
}

bool PduChannel::Commit(Response& header, std::size_t dataLength, StatusUse use) {
    header.dataLength = dataLength;
    header.statusNumber = numbers.status;
    numbers.status += use == StatusUse::Counts ? 1 : 0;
    header.commandExpected = numbers.commandExpected;
    header.commandLast = numbers.commandExpected + numbers.window - 1;
    std::memcpy(room_.data(), &header, sizeof(header));
    if (headerDigest_ > 0)
        StoreLittle(room_.data() + sizeof(header), Crc32c(room_.first(sizeof(header))));
    const std::size_t begin = sizeof(header) + headerDigest_;
    const std::size_t length = Padded(dataLength);
    if (length > dataLength)
        std::memset(room_.data() + begin + dataLength, 0, length - dataLength);
    std::size_t size = begin + length;
    if (dataDigest_ > 0 && dataLength > 0) {
        StoreLittle(room_.data() + size, Crc32c(room_.subspan(begin, length)));
        size += dataDigest_;
    }
    replies_.Commit(size);
    return replies_.Gathered() < kSendSize || replies_.Send();
}

bool PduChannel::Append(Response& header, std::span<const std::byte> data, StatusUse use) {
    const std::span<std::byte> room = Reserve(data.size());
    if (room_.empty())
        return false;
    std::ranges::copy(data, room.begin());
    return Commit(header, data.size(), use);
}

} // namespace quilla::iscsi
