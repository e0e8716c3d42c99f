#include "volume/key_replacement.h"

#include "platform/file_replacement.h"
#include "volume/chunk_walker.h"

#include <algorithm>

namespace quilla {

namespace {

using Step = ChunkWalker::Step;

/// Writes one piece after the other; the first failure remains.
class Copier {
  public:
    Copier(const File& from, const File& to) : from_(from), to_(to) {}

    void Write(std::span<const std::byte> bytes) {
        if (status_ != KeyFileStatus::Done)
            return;
        const Transfer transfer = to_.WriteAt(position_, bytes);
        if (!transfer.succeeded || transfer.bytes != bytes.size())
            status_ = KeyFileStatus::CannotWrite;
        position_ += bytes.size();
    }

    void Copy(std::uint64_t position, std::uint64_t size) {
        std::byte buffer[4096];
        while (size > 0 && status_ == KeyFileStatus::Done) {
            const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(size, sizeof(buffer)));
            const Transfer transfer = from_.ReadAt(position, std::span(buffer).first(piece));
            if (!transfer.succeeded || transfer.bytes != piece)
                status_ = KeyFileStatus::CannotRead;
            Write(std::span(buffer).first(piece));
            position += piece;
            size -= piece;
        }
    }

    [[nodiscard]] KeyFileStatus Status() const { return status_; }

  private:
    const File& from_;
    const File& to_;
    std::uint64_t position_ = 0;
    KeyFileStatus status_ = KeyFileStatus::Done;
};

} // namespace

KeyFileStatus CopyKeyFile(const File& from, const File& to, const ChunkHeader& keyHeader,
                          const KeyBlock& block, const KeyStrength* strength) {
    Copier copier(from, to);
    copier.Copy(0, sizeof(ChunkHeader));
    bool isExchanged = false;
    ChunkWalker walker(from);
    Step step = walker.Next();
    for (; step == Step::Chunk; step = walker.Next()) {
        const ChunkHeader& header = walker.Header();
        if (header.tag == ChunkTag::Strength)
            continue;
        copier.Write(std::as_bytes(std::span(&header, 1)));
        if (header == keyHeader && !isExchanged) {
            isExchanged = true;
            copier.Write(std::as_bytes(std::span(&block, 1)));
        } else {
            copier.Copy(walker.PayloadPosition(), walker.PayloadSize());
        }
    }
    if (step == Step::CannotRead)
        return KeyFileStatus::CannotRead;
    if (step != Step::End || !isExchanged) // what is added behind a cut chunk would belong to it
        return KeyFileStatus::UnknownFormat;
    if (strength != nullptr) {
        const StrengthChunk chunk = {.strength = *strength};
        copier.Write(std::as_bytes(std::span(&chunk, 1)));
    }
    return copier.Status();
}

File OpenKeyFile(const PathUnit* path, FileAccess access) {
    const FileSharing sharing = access == FileAccess::Read ? FileSharing::Read : FileSharing::None;
    File file = File::Open(path, access, sharing, FileCreation::OpenExisting);
    if (file.IsOpen())
        RemoveUnfinishedReplacement(path, file);
    return file;
}

KeyFileStatus ReplaceKeyBlock(const PathUnit* path, File& file, const ChunkHeader& keyHeader,
                              const KeyBlock& block, const KeyStrength* strength) {
    FileReplacement replacement(path, file);
    if (!replacement.New().IsOpen())
        return KeyFileStatus::CannotWrite;
    const KeyFileStatus status = CopyKeyFile(file, replacement.New(), keyHeader, block, strength);
    if (status != KeyFileStatus::Done)
        return status;
    return replacement.PutInPlace() ? KeyFileStatus::Done : KeyFileStatus::CannotWrite;
}

} // namespace quilla
