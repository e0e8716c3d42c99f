#pragma once

#include "export/iscsi/wire.h"
#include "export/reply_writer.h"
#include "export/stream_reader.h"
#include "export/stream_server.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla::iscsi {

/// A protocol data unit of an initiator; the data stands in the receive buffer until the next one.
struct Pdu {
    Request header;
    std::span<std::byte> data;
    bool isDataIntact; ///< as far as a digest tells
};

/// Commands that may wait for their data at a time.
inline constexpr std::uint32_t kCommandWindow = 128;

/// The numbers that go out with every unit (RFC 7143, 4.2.2).
struct Numbers {
    std::uint32_t status = 0; ///< of the next status
    std::uint32_t commandExpected = 0;
    std::uint32_t window = kCommandWindow; ///< commands that may come
};

/// Whether a unit carries a status, which has a number of its own.
enum class StatusUse : std::uint8_t { None, Counts };

/// Cuts a stream into protocol data units, with digests when they are agreed on, and gathers those that go
/// out. Their data is produced in place, behind room for the header.
class PduChannel {
  public:
    PduChannel(ByteStream& stream, StreamReader& reader, ReplyWriter& replies,
               const std::atomic<ServerPhase>& phase)
        : stream_(stream), reader_(reader), replies_(replies), phase_(phase) {}

    /// Takes the next unit, after what is gathered has been sent. False at the end of the stream, at the
    /// deadline, when the server stops and nothing more has arrived, or when the unit breaks the rules.
    [[nodiscard]] bool Receive(Pdu& pdu);

    /// Room for the data of the next unit; empty if the peer is gone.
    [[nodiscard]] std::span<std::byte> Reserve(std::size_t dataLength);
    /// Adds the unit whose data has been put into the reserved room, or its first bytes.
    [[nodiscard]] bool Commit(Response& header, std::size_t dataLength, StatusUse use);
    /// Adds a unit with a copy of data; false if the peer is gone.
    [[nodiscard]] bool Append(Response& header, std::span<const std::byte> data, StatusUse use);
    [[nodiscard]] bool Send() { return replies_.Send(); }

    /// Login: the moment (MonotonicMilliseconds) when waiting ends; 0 lifts the limit.
    void SetDeadline(std::uint64_t moment);
    void SetDigests(bool ofHeaders, bool ofData);
    /// The most data of one unit to come.
    void SetSegmentLimit(std::uint32_t bytes) { segmentLimit_ = bytes; }

    [[nodiscard]] bool IsStopping() const {
        return phase_.load(std::memory_order_relaxed) != ServerPhase::Serving;
    }

    Numbers numbers;

  private:
    [[nodiscard]] bool Require(std::size_t count);

    ByteStream& stream_;
    StreamReader& reader_;
    ReplyWriter& replies_;
    const std::atomic<ServerPhase>& phase_;
    std::uint64_t deadline_ = 0;
    std::uint32_t segmentLimit_ = kMaxLoginSegment;
    std::size_t headerDigest_ = 0; // bytes
    std::size_t dataDigest_ = 0;
    std::span<std::byte> room_; // of the unit that is being made
};

} // namespace quilla::iscsi
