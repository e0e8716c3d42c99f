#pragma once

#include "platform/byte_stream.h"
#include "platform/wipe.h"

#include <cstddef>
#include <cstring>
#include <span>
#include <type_traits>

namespace quilla {

/// Gathers replies in one buffer, so that a header and its payload, or many small replies, leave in one send.
class ReplyWriter {
  public:
    /// Stream and buffer belong to the caller.
    ReplyWriter(ByteStream& stream, std::span<std::byte> buffer) : stream_(stream), buffer_(buffer) {}
    ~ReplyWriter() { WipeMemory(buffer_.data(), used_); }
    ReplyWriter(const ReplyWriter&) = delete;
    ReplyWriter& operator=(const ReplyWriter&) = delete;

    /// Bytes gathered and not sent yet.
    [[nodiscard]] std::size_t Gathered() const { return end_; }

    /// The most that Reserve can be asked for.
    [[nodiscard]] std::size_t Capacity() const { return buffer_.size(); }

    /// Room for so many bytes behind what is gathered, which is sent first if there is too little; empty if
    /// the send failed. Nothing is part of the stream before Commit.
    [[nodiscard]] std::span<std::byte> Reserve(std::size_t size);

    /// Adds the first bytes of the reserved room.
    void Commit(std::size_t size) { end_ += size; }

    /// Adds a structure; false if the peer is gone.
    template <typename Structure>
    [[nodiscard]] bool Append(const Structure& structure) {
        static_assert(std::is_trivially_copyable_v<Structure>);
        const std::span<std::byte> room = Reserve(sizeof(structure));
        if (room.empty())
            return false;
        std::memcpy(room.data(), &structure, sizeof(structure));
        Commit(sizeof(structure));
        return true;
    }

    /// Sends what is gathered; false if the peer is gone.
    [[nodiscard]] bool Send();

  private:
    ByteStream& stream_;
    std::span<std::byte> buffer_;
    std::size_t end_ = 0;
    std::size_t used_ = 0; // bytes of the buffer that were ever reserved: data of a volume is wiped
};

} // namespace quilla
