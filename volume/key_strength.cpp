#include "volume/key_strength.h"

#include "volume/chunk_walker.h"
#include "volume/key_replacement.h"
#include "volume/random_pool.h"

namespace quilla {

namespace {

constexpr std::uint32_t kArgon2idVersion13 = 1;
constexpr Argon2Cost kLeastCost = {.memory = 8 * 1024, .passes = 1, .lanes = 1};

using Step = ChunkWalker::Step;

template <typename T>
std::span<std::byte> BytesOf(T& object) {
    return std::as_writable_bytes(std::span(&object, 1));
}

bool IsBetween(std::uint32_t least, std::uint32_t value, std::uint32_t greatest) {
    return least <= value && value <= greatest;
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
           IsBetween(kLeastCost.memory, strength.memory, kGreatestArgon2Cost.memory) &&
           IsBetween(kLeastCost.passes, strength.passes, kGreatestArgon2Cost.passes) &&
           IsBetween(kLeastCost.lanes, strength.lanes, kGreatestArgon2Cost.lanes);
}

Argon2Cost CostOf(const KeyStrength& strength) {
    return {.memory = strength.memory, .passes = strength.passes, .lanes = strength.lanes};
}

KeyFileStatus LoadKeyStrength(const PathUnit* path, std::optional<KeyStrength>& strength) {
    const File file = OpenKeyFile(path, FileAccess::Read);
    return file.IsOpen() ? FindStrength(file, strength) : KeyFileStatus::CannotOpen;
}

KeyFileStatus LoadSealedKey(const PathUnit* path, CipherId cipher, KeyBlock& block,
                            std::optional<KeyStrength>& strength) {
    const File file = OpenKeyFile(path, FileAccess::Read);
    if (!file.IsOpen())
        return KeyFileStatus::CannotOpen;
    const KeyFileStatus status = LoadChunk(file, KeyBlockHeader(cipher), BytesOf(block));
    return status == KeyFileStatus::Done ? FindStrength(file, strength) : status;
}

KeyFileStatus AppendKeyStrength(const PathUnit* path, const KeyStrength& strength) {
    const File file = OpenKeyFile(path, FileAccess::ReadWrite);
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
    File file = OpenKeyFile(path, FileAccess::ReadWrite);
    if (!file.IsOpen() || !file.IsIntact(0)) // replaced by another before this one had it alone
        return KeyFileStatus::CannotOpen;
    std::optional<KeyStrength> present;
    if (const auto status = FindStrength(file, present); status != KeyFileStatus::Done)
        return status;
    const ChunkHeader header = KeyBlockHeader(cipher);
    if (!present && strength == nullptr)
        return StoreChunk(file, header, std::as_bytes(std::span(&block, 1)));
    return ReplaceKeyBlock(path, file, header, block, strength);
}

} // namespace quilla
