#pragma once

#include "platform/socket.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A client that can say anything, right or wrong. Its numbers are written out here once more, on purpose:
/// the server's own structures would hide the server's own mistakes.
namespace quilla::test {

using Bytes = std::vector<std::uint8_t>;

/// Builds messages out of big-endian numbers and raw bytes.
class Message {
  public:
    Message& Put16(std::uint64_t value) { return PutNumber(value, 2); }
    Message& Put32(std::uint64_t value) { return PutNumber(value, 4); }
    Message& Put64(std::uint64_t value) { return PutNumber(value, 8); }
    Message& Put(std::string_view text) {
        std::ranges::copy(text, std::back_inserter(bytes_));
        return *this;
    }
    Message& Put(const Bytes& bytes) {
        std::ranges::copy(bytes, std::back_inserter(bytes_));
        return *this;
    }
    [[nodiscard]] const Bytes& Get() const { return bytes_; }

  private:
    Message& PutNumber(std::uint64_t value, std::size_t size) {
        for (std::size_t i = size; i-- > 0;)
            bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        return *this;
    }

    Bytes bytes_;
};

inline std::uint64_t Number(const Bytes& bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i)
        value = value << 8 | bytes.at(at + i);
    return value;
}

constexpr std::uint32_t kOptExportName = 1, kOptAbort = 2, kOptList = 3, kOptInfo = 6, kOptGo = 7,
                        kOptStructuredReply = 8;
constexpr std::uint32_t kRepAck = 1, kRepInfo = 3, kRepUnsupported = 0x80000001, kRepPolicy = 0x80000002,
                        kRepInvalid = 0x80000003, kRepUnknown = 0x80000006, kRepTooBig = 0x80000009;
constexpr std::uint16_t kCmdRead = 0, kCmdWrite = 1, kCmdDisconnect = 2, kCmdFlush = 3, kCmdWriteZeroes = 6;
constexpr std::uint16_t kFua = 1, kNoHole = 2;
constexpr std::uint32_t kOk = 0, kEio = 5;

/// The data of an Info or Go option.
inline Bytes InfoData(std::string_view name, const std::vector<std::uint16_t>& kinds = {}) {
    Message message;
    message.Put32(name.size()).Put(name).Put16(kinds.size());
    for (const std::uint16_t kind : kinds)
        message.Put16(kind);
    return message.Get();
}

inline Bytes RequestBytes(std::uint16_t command, std::uint64_t offset, std::uint32_t length,
                          std::uint16_t flags = 0, std::uint64_t cookie = 0) {
    Message message;
    message.Put32(0x25609513).Put16(flags).Put16(command).Put64(cookie).Put64(offset).Put32(length);
    return message.Get();
}

class NbdClient {
  public:
    explicit NbdClient(std::uint16_t port) : socket_(Socket::ConnectLoopback(port)) {
        if (socket_.IsOpen())
            socket_.SetTimeout(20'000);
    }

    [[nodiscard]] bool Send(const Bytes& bytes) {
        return socket_.IsOpen() && socket_.Send(std::as_bytes(std::span(bytes)));
    }

    /// Exactly so many bytes; nothing if the server closed before.
    [[nodiscard]] std::optional<Bytes> Receive(std::size_t count) {
        Bytes bytes(count);
        for (std::size_t done = 0; done < count;) {
            const std::size_t got = socket_.Receive(std::as_writable_bytes(std::span(bytes)).subspan(done));
            if (got == 0)
                return std::nullopt;
            done += got;
        }
        return bytes;
    }

    /// True when the server has closed and nothing more came.
    [[nodiscard]] bool IsClosed() { return !Receive(1).has_value(); }
    void Close() { socket_.Close(); }

    /// Greeting and client flags.
    [[nodiscard]] bool Greet(std::uint32_t flags = 3) {
        return Receive(18) == Message().Put("NBDMAGICIHAVEOPT").Put16(3).Get() &&
               Send(Message().Put32(flags).Get());
    }

    [[nodiscard]] bool SendOption(std::uint32_t option, const Bytes& data) {
        return Send(Message().Put("IHAVEOPT").Put32(option).Put32(data.size()).Put(data).Get());
    }

    /// Sends an option and returns the result of its last answer, 0 when the server closed.
    [[nodiscard]] std::uint32_t Ask(std::uint32_t option, const Bytes& data) {
        if (!SendOption(option, data))
            return 0;
        for (;;) {
            const auto answer = Receive(20);
            if (!answer || Number(*answer, 0, 8) != 0x3e889045565a9 || Number(*answer, 8, 4) != option ||
                !Receive(static_cast<std::size_t>(Number(*answer, 16, 4))))
                return 0;
            if (const auto result = static_cast<std::uint32_t>(Number(*answer, 12, 4)); result != kRepInfo)
                return result;
        }
    }

    /// The whole way into an export.
    [[nodiscard]] bool Enter(std::string_view name) {
        return Greet() && Ask(kOptGo, InfoData(name)) == kRepAck;
    }

    [[nodiscard]] bool SendRequest(std::uint16_t command, std::uint64_t offset, std::uint32_t length,
                                   const Bytes& payload = {}, std::uint16_t flags = 0) {
        return Send(Message().Put(RequestBytes(command, offset, length, flags)).Put(payload).Get());
    }

    /// The error of the next reply, whose cookie must be the one given; nothing if the server closed.
    [[nodiscard]] std::optional<std::uint32_t> ReceiveReply(std::uint64_t cookie = 0) {
        const auto reply = Receive(16);
        if (!reply || Number(*reply, 0, 4) != 0x67446698 || Number(*reply, 8, 8) != cookie)
            return std::nullopt;
        return static_cast<std::uint32_t>(Number(*reply, 4, 4));
    }

    /// A request with its reply, without reply payload.
    [[nodiscard]] std::optional<std::uint32_t> Do(std::uint16_t command, std::uint64_t offset,
                                                  std::uint32_t length, const Bytes& payload = {},
                                                  std::uint16_t flags = 0) {
        if (!SendRequest(command, offset, length, payload, flags))
            return std::nullopt;
        return ReceiveReply();
    }

    [[nodiscard]] std::optional<Bytes> Read(std::uint64_t offset, std::uint32_t length) {
        if (Do(kCmdRead, offset, length) != kOk)
            return std::nullopt;
        return Receive(length);
    }
    [[nodiscard]] std::optional<std::uint32_t> Write(std::uint64_t offset, const Bytes& payload,
                                                     std::uint16_t flags = 0) {
        return Do(kCmdWrite, offset, static_cast<std::uint32_t>(payload.size()), payload, flags);
    }

  private:
    Socket socket_;
};

} // namespace quilla::test
