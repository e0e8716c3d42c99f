#include "tests/nbd/nbd_client.h"

namespace quilla::test {

std::uint64_t Number(const Bytes& bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i)
        value = value << 8 | bytes.at(at + i);
    return value;
}

bool NbdClient::Send(const Bytes& bytes) {
    return socket_.IsOpen() && socket_.Send(std::as_bytes(std::span(bytes)));
}

std::optional<Bytes> NbdClient::Receive(std::size_t count) {
    Bytes bytes(count);
    for (std::size_t done = 0; done < count;) {
        const std::size_t got = socket_.Receive(std::as_writable_bytes(std::span(bytes)).subspan(done));
        if (got == 0)
            return std::nullopt;
        done += got;
    }
    return bytes;
}

bool NbdClient::Greet(std::uint32_t flags) {
    const auto greeting = Receive(18);
    return greeting && *greeting == Message().Put("NBDMAGICIHAVEOPT").Put16(3).Get() &&
           Send(Message().Put32(flags).Get());
}

bool NbdClient::SendOption(std::uint32_t option, const Bytes& data) {
    return Send(Message().Put("IHAVEOPT").Put32(option).Put32(data.size()).Put(data).Get());
}

std::optional<OptionAnswer> NbdClient::ReceiveAnswer() {
    const auto header = Receive(20);
    if (!header || Number(*header, 0, 8) != 0x3e889045565a9)
        return std::nullopt;
    auto data = Receive(static_cast<std::size_t>(Number(*header, 16, 4)));
    if (!data)
        return std::nullopt;
    return OptionAnswer{.option = static_cast<std::uint32_t>(Number(*header, 8, 4)),
                        .result = static_cast<std::uint32_t>(Number(*header, 12, 4)),
                        .data = std::move(*data)};
}

std::uint32_t NbdClient::Ask(std::uint32_t option, const Bytes& data) {
    if (!SendOption(option, data))
        return 0;
    for (;;) {
        const auto answer = ReceiveAnswer();
        if (!answer || answer->option != option)
            return 0;
        if (answer->result != kRepInfo)
            return answer->result;
    }
}

bool NbdClient::Enter(std::string_view name) {
    return Greet() && Ask(kOptGo, InfoData(name)) == kRepAck;
}

bool NbdClient::SendRequest(std::uint16_t command, std::uint64_t offset, std::uint32_t length,
                            const Bytes& payload, std::uint16_t flags, std::uint64_t cookie) {
    return Send(Message().Put(RequestBytes(command, offset, length, flags, cookie)).Put(payload).Get());
}

std::optional<std::uint32_t> NbdClient::ReceiveReply(std::uint64_t cookie) {
    const auto reply = Receive(16);
    if (!reply || Number(*reply, 0, 4) != 0x67446698 || Number(*reply, 8, 8) != cookie)
        return std::nullopt;
    return static_cast<std::uint32_t>(Number(*reply, 4, 4));
}

std::optional<std::uint32_t> NbdClient::Do(std::uint16_t command, std::uint64_t offset, std::uint32_t length,
                                           const Bytes& payload, std::uint16_t flags) {
    if (!SendRequest(command, offset, length, payload, flags))
        return std::nullopt;
    return ReceiveReply();
}

std::optional<Bytes> NbdClient::Read(std::uint64_t offset, std::uint32_t length) {
    if (Do(kCmdRead, offset, length) != kOk)
        return std::nullopt;
    return Receive(length);
}

Bytes InfoData(std::string_view name, const std::vector<std::uint16_t>& kinds) {
    Message message;
    message.Put32(name.size()).Put(name).Put16(kinds.size());
    for (const std::uint16_t kind : kinds)
        message.Put16(kind);
    return message.Get();
}

Bytes RequestBytes(std::uint16_t command, std::uint64_t offset, std::uint32_t length, std::uint16_t flags,
                   std::uint64_t cookie) {
    return Message()
        .Put32(0x25609513)
        .Put16(flags)
        .Put16(command)
        .Put64(cookie)
        .Put64(offset)
        .Put32(length)
        .Get();
}

} // namespace quilla::test
