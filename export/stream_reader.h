#pragma once

#include "platform/byte_stream.h"
#include "platform/wipe.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// Whether a receive may take in more than what is needed now.
enum class ReadAhead : std::uint8_t { No, Yes };

/// Receives into one large buffer and hands the bytes out in place, so that one receive serves many requests
/// and a payload is never copied.
class StreamReader {
  public:
    /// Stream and buffer belong to the caller.
    StreamReader(ByteStream& stream, std::span<std::byte> buffer) : stream_(stream), buffer_(buffer) {}
    ~StreamReader() { WipeMemory(buffer_.data(), used_); }
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;

    /// Bytes received and not taken yet.
    [[nodiscard]] std::size_t Available() const { return end_ - begin_; }

    /// Receives once, on the way to so many available bytes, at most the buffer; false at the end of the
    /// stream.
    [[nodiscard]] bool ReceiveOnce(std::size_t needed, ReadAhead ahead);

    /// Receives until so many bytes are available; false at the end of the stream.
    [[nodiscard]] bool Require(std::size_t needed, ReadAhead ahead);

    /// Hands out the next bytes, which must be available; they stay in place until the next receive.
    [[nodiscard]] std::span<std::byte> Take(std::size_t count);

    /// Copies a structure out of the next bytes, which must be available.
    template <typename Structure>
    [[nodiscard]] Structure TakeStructure() {
        Structure structure;
        CopyOut(&structure, sizeof(structure));
        return structure;
    }

  private:
    void CopyOut(void* to, std::size_t count);

    ByteStream& stream_;
    std::span<std::byte> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t used_ = 0; // bytes of the buffer that ever held anything: data of a volume is wiped
};

} // namespace quilla
