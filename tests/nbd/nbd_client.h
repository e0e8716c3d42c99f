#pragma once

#include "platform/socket.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

/// A client that can say anything, right or wrong. Its numbers are written out here once more, on purpose:
/// the server's own structures would hide the server's own mistakes.
namespace quilla::test {

using Bytes = std::vector<std::uint8_t>;

/// Repeatable numbers.
class Random {
  public:
    explicit Random(std::uint32_t seed) : generator_(seed) {}
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(generator_() % limit); }
    std::uint8_t Byte() { return static_cast<std::uint8_t>(generator_()); }

  private:
    std::mt19937 generator_;
};

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

std::uint64_t Number(const Bytes& bytes, std::size_t at, std::size_t size);

constexpr std::uint32_t kOptExportName = 1, kOptAbort = 2, kOptList = 3, kOptInfo = 6, kOptGo = 7,
                        kOptStructuredReply = 8;
constexpr std::uint32_t kRepAck = 1, kRepInfo = 3, kRepUnsupported = 0x80000001, kRepPolicy = 0x80000002,
                        kRepInvalid = 0x80000003, kRepUnknown = 0x80000006, kRepTooBig = 0x80000009;
constexpr std::uint16_t kCmdRead = 0, kCmdWrite = 1, kCmdDisconnect = 2, kCmdFlush = 3, kCmdTrim = 4,
                        kCmdWriteZeroes = 6;
constexpr std::uint16_t kFua = 1, kNoHole = 2, kDontFragment = 4;
constexpr std::uint32_t kOk = 0, kEio = 5, kEinval = 22, kEnospc = 28;

struct OptionAnswer {
    std::uint32_t option;
    std::uint32_t result;
    Bytes data;
};

class NbdClient {
  public:
    NbdClient() = default;
    explicit NbdClient(std::uint16_t port) : socket_(Socket::ConnectLoopback(port)) {
        if (socket_.IsOpen())
            socket_.SetTimeout(20'000);
    }

    [[nodiscard]] bool Send(const Bytes& bytes);
    /// Exactly so many bytes; nothing if the server closed before.
    [[nodiscard]] std::optional<Bytes> Receive(std::size_t count);
    /// True when the server has closed and nothing more came.
    [[nodiscard]] bool IsClosed() { return !Receive(1).has_value(); }
    void Close() { socket_.Close(); }

    /// Greeting and client flags.
    [[nodiscard]] bool Greet(std::uint32_t flags = 3);
    [[nodiscard]] bool SendOption(std::uint32_t option, const Bytes& data);
    [[nodiscard]] std::optional<OptionAnswer> ReceiveAnswer();
    /// Sends an option and returns the result of its last answer, 0 when the server closed.
    [[nodiscard]] std::uint32_t Ask(std::uint32_t option, const Bytes& data);
    /// The whole way into an export.
    [[nodiscard]] bool Enter(std::string_view name);

    [[nodiscard]] bool SendRequest(std::uint16_t command, std::uint64_t offset, std::uint32_t length,
                                   const Bytes& payload = {}, std::uint16_t flags = 0,
                                   std::uint64_t cookie = 0);
    /// The error of the next reply, whose cookie must be the one given; nothing if the server closed.
    [[nodiscard]] std::optional<std::uint32_t> ReceiveReply(std::uint64_t cookie = 0);
    /// A request with its reply, without reply payload.
    [[nodiscard]] std::optional<std::uint32_t> Do(std::uint16_t command, std::uint64_t offset,
                                                  std::uint32_t length, const Bytes& payload = {},
                                                  std::uint16_t flags = 0);
    [[nodiscard]] std::optional<Bytes> Read(std::uint64_t offset, std::uint32_t length);
    [[nodiscard]] std::optional<std::uint32_t> Write(std::uint64_t offset, const Bytes& payload,
                                                     std::uint16_t flags = 0) {
        return Do(kCmdWrite, offset, static_cast<std::uint32_t>(payload.size()), payload, flags);
    }

  private:
    Socket socket_;
};

/// The data of an Info or Go option.
Bytes InfoData(std::string_view name, const std::vector<std::uint16_t>& kinds = {});
Bytes RequestBytes(std::uint16_t command, std::uint64_t offset, std::uint32_t length, std::uint16_t flags = 0,
                   std::uint64_t cookie = 0);

} // namespace quilla::test
