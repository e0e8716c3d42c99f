#pragma once

#include "volume/key_file.h"

namespace quilla {

/// Goes through an open key file from chunk to chunk. Whatever a header says about its length, the walk only
/// goes forward and ends at the end of the file at the latest.
class ChunkWalker {
  public:
    enum class Step : std::uint8_t {
        Chunk,
        End,        ///< the file ends where a chunk does
        Cut,        ///< it ends inside a header, or before the payload that the last header promised
        CannotRead, ///< the platform's last error tells why
        TooMany     ///< more chunks than any key file has
    };

    explicit ChunkWalker(const File& file) : file_(file) {}

    Step Next();

    /// Of the current chunk; after Cut, as much of it as there is, with ones in the missing places.
    [[nodiscard]] const ChunkHeader& Header() const { return header_; }
    [[nodiscard]] std::uint64_t PayloadPosition() const { return payload_; }
    /// Payload bytes that the file really has.
    [[nodiscard]] std::uint64_t PayloadSize() const { return payloadSize_; }

  private:
    [[nodiscard]] Step Begin();

    const File& file_;
    std::uint64_t size_ = 0; ///< of the file
    std::uint64_t payload_ = 0;
    std::uint64_t payloadSize_ = 0;
    ChunkHeader header_{};
    int chunks_ = 0;
};

} // namespace quilla
