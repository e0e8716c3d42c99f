#include "volume/key_file.h"

#include "platform/wipe.h"
#include "volume/chunk_walker.h"
#include "volume/cipher_frame.h"
#include "volume/key_replacement.h"

#include <algorithm>
#include <cstring>

namespace quilla {

namespace {

constexpr std::size_t kReservedSize = 520;
constexpr std::uint16_t kReservedParam = 2;

/// A key file as it is written, byte for byte.
struct KeyFileImage {
    ChunkHeader fileHeader;
    ChunkHeader settingsHeader;
    VolumeSettings settings;
    ChunkHeader keyBlockHeader;
    KeyBlock keyBlock; ///< left out without a cipher
    ChunkHeader reservedHeader;
    std::byte reserved[kReservedSize];
    ChunkHeader strengthHeader; ///< only with the option that slows down guessing
    KeyStrength strength;
};
static_assert(offsetof(KeyFileImage, settingsHeader) == 16);
static_assert(offsetof(KeyFileImage, settings) == 32);
static_assert(offsetof(KeyFileImage, keyBlockHeader) == 56);
static_assert(offsetof(KeyFileImage, keyBlock) == 72);
static_assert(offsetof(KeyFileImage, reservedHeader) == 224);
static_assert(offsetof(KeyFileImage, reserved) == 240);
static_assert(offsetof(KeyFileImage, strengthHeader) == kKeyFileSize);
static_assert(sizeof(KeyFileImage) == kStrongKeyFileSize);

template <typename T>
std::span<std::byte> BytesOf(T& object) {
    return std::as_writable_bytes(std::span(&object, 1));
}

/// Reads a file's records one after the other; bytes that a short file lacks keep what the object held.
class RecordReader {
  public:
    explicit RecordReader(const File& file) : file_(file) {}

    template <typename T>
    [[nodiscard]] bool Read(T& object) {
        const Transfer transfer = file_.ReadAt(position_, BytesOf(object));
        position_ += transfer.bytes;
        return transfer.succeeded;
    }

  private:
    const File& file_;
    std::uint64_t position_ = 0;
};

KeyFileStatus ReadTag(RecordReader& reader, ChunkTag tag, ChunkHeader& header) {
    header = kNoChunkHeader;
    if (!reader.Read(header))
        return KeyFileStatus::CannotRead;
    return header.tag == tag ? KeyFileStatus::Done : KeyFileStatus::UnknownFormat;
}

/// Walks to the chunk whose header equals the wanted one. A file that ends before it counts as a failed read.
KeyFileStatus FindChunk(const File& file, const ChunkHeader& wanted, std::uint64_t& payloadPosition) {
    ChunkWalker walker(file);
    ChunkWalker::Step step = walker.Next();
    while (step == ChunkWalker::Step::Chunk && walker.Header() != wanted)
        step = walker.Next();
    payloadPosition = walker.PayloadPosition();
    if (step == ChunkWalker::Step::Chunk)
        return KeyFileStatus::Done;
    return step == ChunkWalker::Step::TooMany ? KeyFileStatus::UnknownFormat : KeyFileStatus::CannotRead;
}

KeyFileImage EmptyImage(const VolumeRecord& record) {
    KeyFileImage image{};
    image.fileHeader = HeaderOf<ChunkHeader>(ChunkTag::FileHeader);
    image.settingsHeader = kSettingsHeader;
    image.settings.formatMark = kFormatMark;
    image.settings.timeout = record.Timeout;
    image.settings.options = record.Flags & kTimeoutOption;
    image.keyBlockHeader = {
        .tag = ChunkTag::KeyBlock, .param = 0, .reserved = 0, .lengthLow = 0, .lengthHigh = 0};
    image.reservedHeader = {.tag = ChunkTag::Reserved,
                            .param = kReservedParam,
                            .reserved = 0,
                            .lengthLow = kReservedSize,
                            .lengthHigh = 0};
    return image;
}

bool AddKeyBlock(KeyFileImage& image, CipherId cipher, const PasswordDigest& passwordKey) {
    Secret<PasswordDigest> key;
    *key = passwordKey;
    image.keyBlockHeader = KeyBlockHeader(cipher);
    return MakeKeyBlock(image.keyBlock, cipher, *key);
}

bool WriteWhole(const File& file, std::uint64_t position, std::span<const std::byte> bytes) {
    const Transfer transfer = file.WriteAt(position, bytes);
    return transfer.succeeded && transfer.bytes == bytes.size();
}

} // namespace

KeyFileStatus LoadSummary(const PathUnit* path, VolumeRecord& record) {
    const File file = OpenKeyFile(path, FileAccess::Read);
    if (!file.IsOpen())
        return KeyFileStatus::CannotOpen;
    RecordReader reader(file);
    ChunkHeader header;
    if (const auto status = ReadTag(reader, ChunkTag::FileHeader, header); status != KeyFileStatus::Done)
        return status;
    if (const auto status = ReadTag(reader, ChunkTag::Settings, header); status != KeyFileStatus::Done)
        return status;
    VolumeSettings settings{};
    settings.timeout = record.Timeout;
    if (!reader.Read(settings))
        return KeyFileStatus::CannotRead;
    record.Timeout = settings.timeout;
    record.Flags = 0;
    if (const auto status = ReadTag(reader, ChunkTag::KeyBlock, header); status != KeyFileStatus::Done)
        return status;
    if (header.reserved != 0 || header.param >= kCipherIdCount)
        return KeyFileStatus::UnknownFormat;
    record.Cipher = CipherId{header.param};
    return KeyFileStatus::Done;
}

KeyFileStatus LoadChunk(const PathUnit* path, const ChunkHeader& wanted, std::span<std::byte> payload) {
    const File file = OpenKeyFile(path, FileAccess::Read);
    return file.IsOpen() ? LoadChunk(file, wanted, payload) : KeyFileStatus::CannotOpen;
}

KeyFileStatus LoadChunk(const File& file, const ChunkHeader& wanted, std::span<std::byte> payload) {
    std::uint64_t position = 0;
    if (const auto status = FindChunk(file, wanted, position); status != KeyFileStatus::Done)
        return status;
    const Transfer transfer = file.ReadAt(position, payload);
    return transfer.succeeded && transfer.bytes == payload.size() ? KeyFileStatus::Done
                                                                  : KeyFileStatus::CannotRead;
}

KeyFileStatus StoreChunk(const PathUnit* path, const ChunkHeader& wanted,
                         std::span<const std::byte> payload) {
    const File file = OpenKeyFile(path, FileAccess::ReadWrite);
    return file.IsOpen() ? StoreChunk(file, wanted, payload) : KeyFileStatus::CannotOpen;
}

KeyFileStatus StoreChunk(const File& file, const ChunkHeader& wanted, std::span<const std::byte> payload) {
    std::uint64_t position = 0;
    if (const auto status = FindChunk(file, wanted, position); status != KeyFileStatus::Done)
        return status;
    return WriteWhole(file, position, payload) && file.Flush() ? KeyFileStatus::Done
                                                               : KeyFileStatus::CannotWrite;
}

KeyFileStatus CreateKeyFile(const PathUnit* path, const VolumeRecord& record,
                            const PasswordDigest& passwordKey, const KeyStrength* strength) {
    Secret<KeyFileImage> image;
    *image = EmptyImage(record);
    const bool enciphered = record.Cipher != CipherId::None;
    if (enciphered && !AddKeyBlock(*image, record.Cipher, passwordKey))
        return BlockSizeOf(record.Cipher) == 0 ? KeyFileStatus::UnknownFormat : KeyFileStatus::CannotCreate;
    if (strength != nullptr) {
        image->strengthHeader = kStrengthHeader;
        image->strength = *strength;
    }
    File file = File::Open(path, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    if (!file.IsOpen())
        return KeyFileStatus::CannotCreate;
    constexpr std::size_t kTail = offsetof(KeyFileImage, reservedHeader);
    const std::size_t head = enciphered ? kTail : offsetof(KeyFileImage, keyBlock);
    const std::size_t size = strength != nullptr ? kStrongKeyFileSize : kKeyFileSize;
    const auto bytes = std::as_bytes(std::span(&*image, 1)).first(size);
    if (WriteWhole(file, 0, bytes.first(head)) && WriteWhole(file, head, bytes.subspan(kTail)) &&
        file.Flush())
        return KeyFileStatus::Done;
    file.Close();
    File::Remove(path);
    return KeyFileStatus::CannotWrite;
}

} // namespace quilla
