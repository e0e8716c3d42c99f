#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// A connected stream of bytes in both directions: what a protocol needs of a socket.
class ByteStream {
  public:
    virtual ~ByteStream() = default;

    /// Receives what is there, at least one byte, at most the buffer; 0 when the peer is gone, the stream was
    /// shut down or the time ran out.
    [[nodiscard]] virtual std::size_t Receive(std::span<std::byte> buffer) = 0;

    /// Sends all bytes; false when the peer is gone, the stream was shut down or the time ran out.
    [[nodiscard]] virtual bool Send(std::span<const std::byte> bytes) = 0;

    /// Limits how long one Receive or Send may wait; 0 = no limit.
    virtual void SetTimeout(std::uint32_t milliseconds) = 0;

  protected:
    ByteStream() = default;
    ByteStream(const ByteStream&) = default;
    ByteStream& operator=(const ByteStream&) = default;
};

} // namespace quilla
