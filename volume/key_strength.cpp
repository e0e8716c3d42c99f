#include "volume/key_strength.h"

#include "platform/clock.h"
#include "platform/file_replacement.h"
#include "platform/wipe.h"
#include "volume/chunk_walker.h"
#include "volume/random_pool.h"

#include <algorithm>

namespace quilla {

namespace {

constexpr std::uint32_t kArgon2idVersion13 = 1;
constexpr Argon2Cost kLeastCost = {.memory = 8 * 1024, .passes = 1, .lanes = 1};
constexpr Argon2Cost kGreatestCost = {.memory = 1024 * 1024, .passes = 64, .lanes = 16};

using Step = ChunkWalker::Step;

template <typename T>
std::span<std::byte> BytesOf(T& object) {
    return std::as_writable_bytes(std::span(&object, 1));
}

bool IsBetween(std::uint32_t least, std::uint32_t value, std::uint32_t greatest) {
    return least <= value && value <= greatest;
}

/// The chunk as it stands in a file.
struct StrengthChunk {
    ChunkHeader header = kStrengthHeader;
    KeyStrength strength;
};
static_assert(sizeof(StrengthChunk) == 64);

File OpenAlone(const PathUnit* path) {
    return File::Open(path, FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
}

KeyFileStatus TakeStrength(const File& file, const ChunkWalker& walker,
                           std::optional<KeyStrength>& strength) {
    KeyStrength read{};
    if (walker.Header() != kStrengthHeader || walker.PayloadSize() < sizeof(read))
        return KeyFileStatus::UnknownFormat;
    const Transfer transfer = file.ReadAt(walker.PayloadPosition(), BytesOf(read));
    if (!transfer.succeeded || transfer.bytes != sizeof(read))
        return KeyFileStatus::CannotRead;
    if (!IsAcceptable(read))
        return KeyFileStatus::UnknownFormat;
    strength = read;
    return KeyFileStatus::Done;
}

/// A file that is cut behind its key block has no such chunk; one that cannot be read may have it.
KeyFileStatus FindStrength(const File& file, std::optional<KeyStrength>& strength) {
    strength.reset();
    for (ChunkWalker walker(file);;) {
        const Step step = walker.Next();
        const bool hasHeader = step == Step::Chunk || step == Step::Cut;
        if (hasHeader && walker.Header().tag == ChunkTag::Strength)
            return TakeStrength(file, walker, strength);
        if (step == Step::End || step == Step::Cut)
            return KeyFileStatus::Done;
        if (step != Step::Chunk)
            return step == Step::TooMany ? KeyFileStatus::UnknownFormat : KeyFileStatus::CannotRead;
    }
}

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

/// Copies a file whose chunks are whole. The first key block of the cipher is exchanged, chunks of strength
/// are left out, and the new one comes last.
KeyFileStatus CopyChanged(const File& from, const File& to, const ChunkHeader& keyHeader,
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

} // namespace

bool MakeKeyStrength(KeyStrength& strength, const Argon2Cost& cost) {
    strength.memory = cost.memory;
    strength.passes = cost.passes;
    strength.lanes = cost.lanes;
    strength.algorithm = kArgon2idVersion13;
    return RandomFill(strength.salt) == strength.salt.size();
}

bool IsAcceptable(const KeyStrength& strength) {
    return strength.algorithm == kArgon2idVersion13 &&
           IsBetween(kLeastCost.memory, strength.memory, kGreatestCost.memory) &&
           IsBetween(kLeastCost.passes, strength.passes, kGreatestCost.passes) &&
           IsBetween(kLeastCost.lanes, strength.lanes, kGreatestCost.lanes);
}

Argon2Cost CostOf(const KeyStrength& strength) {
    return {.memory = strength.memory, .passes = strength.passes, .lanes = strength.lanes};
}

Argon2Result StrengthenKey(PasswordDigest& key, const KeyStrength& strength, Argon2Watch* watch) {
    Secret<PasswordDigest> wrapping;
    const Argon2Result result =
        Argon2id(*wrapping, {.password = key, .salt = strength.salt}, CostOf(strength), watch);
    key = *wrapping; // zeros, unless it is done
    return result;
}

std::optional<Argon2Cost> CostForMilliseconds(std::uint64_t milliseconds) {
    Argon2Cost cost = kDefaultArgon2Cost;
    KeyStrength strength{};
    PasswordDigest key{};
    strength.memory = cost.memory;
    strength.passes = cost.passes;
    strength.lanes = cost.lanes;
    const std::uint64_t begin = MonotonicMilliseconds();
    if (StrengthenKey(key, strength) != Argon2Result::Done)
        return std::nullopt;
    const std::uint64_t once = std::max<std::uint64_t>(MonotonicMilliseconds() - begin, 1);
    std::uint64_t passes = std::max<std::uint64_t>(cost.passes * milliseconds / once, 1);
    for (; passes > kGreatestCost.passes && cost.memory < kGreatestCost.memory; passes /= 2)
        cost.memory *= 2;
    cost.passes = static_cast<std::uint32_t>(std::min<std::uint64_t>(passes, kGreatestCost.passes));
    return cost;
}

KeyFileStatus LoadKeyStrength(const PathUnit* path, std::optional<KeyStrength>& strength) {
    const File file = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    return file.IsOpen() ? FindStrength(file, strength) : KeyFileStatus::CannotOpen;
}

KeyFileStatus LoadSealedKey(const PathUnit* path, CipherId cipher, KeyBlock& block,
                            std::optional<KeyStrength>& strength) {
    const File file = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    if (!file.IsOpen())
        return KeyFileStatus::CannotOpen;
    const KeyFileStatus status = LoadChunk(file, KeyBlockHeader(cipher), BytesOf(block));
    return status == KeyFileStatus::Done ? FindStrength(file, strength) : status;
}

KeyFileStatus AppendKeyStrength(const PathUnit* path, const KeyStrength& strength) {
    const File file = OpenAlone(path);
    std::uint64_t size = 0;
    if (!file.IsOpen() || !file.GetSize(size))
        return KeyFileStatus::CannotOpen;
    ChunkWalker walker(file);
    Step step = walker.Next();
    while (step == Step::Chunk && walker.Header().tag != ChunkTag::Strength)
        step = walker.Next();
    if (step != Step::End)
        return step == Step::CannotRead ? KeyFileStatus::CannotRead : KeyFileStatus::UnknownFormat;
    const StrengthChunk chunk = {.strength = strength};
    const Transfer transfer = file.WriteAt(size, std::as_bytes(std::span(&chunk, 1)));
    return transfer.succeeded && transfer.bytes == sizeof(chunk) && file.Flush() ? KeyFileStatus::Done
                                                                                 : KeyFileStatus::CannotWrite;
}

KeyFileStatus ChangeKeyBlock(const PathUnit* path, CipherId cipher, const KeyBlock& block,
                             const KeyStrength* strength) {
    File file = OpenAlone(path);
    if (!file.IsOpen() || !file.IsIntact(0)) // replaced by another before this one had it alone
        return KeyFileStatus::CannotOpen;
    std::optional<KeyStrength> present;
    if (const auto status = FindStrength(file, present); status != KeyFileStatus::Done)
        return status;
    const ChunkHeader header = KeyBlockHeader(cipher);
    if (!present && strength == nullptr)
        return StoreChunk(file, header, std::as_bytes(std::span(&block, 1)));
    FileReplacement replacement(path, file);
    if (!replacement.New().IsOpen())
        return KeyFileStatus::CannotWrite;
    if (const auto status = CopyChanged(file, replacement.New(), header, block, strength);
        status != KeyFileStatus::Done)
        return status;
    return replacement.PutInPlace() ? KeyFileStatus::Done : KeyFileStatus::CannotWrite;
}

} // namespace quilla
