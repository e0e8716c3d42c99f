#include "volume/chunk_walker.h"

#include <algorithm>

namespace quilla {

namespace {

/// A walk gives up after so many chunks: a key file has three or four, and a huge file of empty chunks must
/// not keep the program busy.
constexpr int kMaxChunks = 4096;

} // namespace

/// What the file header says does not matter, but it has to be there.
ChunkWalker::Step ChunkWalker::Begin() {
    ChunkHeader fileHeader{};
    const bool isSized = file_.GetSize(size_);
    const Transfer transfer = file_.ReadAt(0, std::as_writable_bytes(std::span(&fileHeader, 1)));
    payload_ = sizeof(fileHeader);
    if (!isSized || !transfer.succeeded)
        return Step::CannotRead;
    return transfer.bytes == sizeof(fileHeader) ? Step::Chunk : Step::Cut;
}

ChunkWalker::Step ChunkWalker::Next() {
    if (chunks_ == 0)
        if (const Step step = Begin(); step != Step::Chunk)
            return step;
    if (chunks_++ == kMaxChunks)
        return Step::TooMany;
    const bool wasCut = chunks_ > 1 && header_.Length() > payloadSize_;
    const std::uint64_t position = payload_ + payloadSize_;
    header_ = kNoChunkHeader;
    const Transfer transfer = file_.ReadAt(position, std::as_writable_bytes(std::span(&header_, 1)));
    if (!transfer.succeeded)
        return Step::CannotRead;
    if (transfer.bytes < sizeof(header_))
        return transfer.bytes == 0 && !wasCut ? Step::End : Step::Cut;
    payload_ = position + sizeof(header_);
    payloadSize_ = std::min(header_.Length(), size_ > payload_ ? size_ - payload_ : 0);
    return Step::Chunk;
}

} // namespace quilla
