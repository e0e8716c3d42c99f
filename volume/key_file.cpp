#include "volume/key_file.h"

#include "platform/wipe.h"
#include "volume/cipher_frame.h"

#include <algorithm>
#include <cstring>

namespace quilla {

namespace {

/// A search gives up after so many chunks: a key file has three, and a huge file of empty chunks must not
/// keep the program busy.
constexpr int kMaxChunks = 4096;

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
};
static_assert(offsetof(KeyFileImage, settingsHeader) == 16);
static_assert(offsetof(KeyFileImage, settings) == 32);
static_assert(offsetof(KeyFileImage, keyBlockHeader) == 56);
static_assert(offsetof(KeyFileImage, keyBlock) == 72);
static_assert(offsetof(KeyFileImage, reservedHeader) == 224);
static_assert(offsetof(KeyFileImage, reserved) == 240);
static_assert(sizeof(KeyFileImage) == kKeyFileSize);

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

/// A header that fits no chunk, to read into: what a short file lacks must not look like zeros.
constexpr ChunkHeader kNoHeader = {.tag = ChunkTag{0xFFFFFFFF},
                                   .param = 0xFFFF,
                                   .reserved = 0xFFFF,
                                   .lengthLow = 0xFFFFFFFF,
                                   .lengthHigh = 0xFFFFFFFF};

KeyFileStatus ReadTag(RecordReader& reader, ChunkTag tag, ChunkHeader& header) {
    header = kNoHeader;
    if (!reader.Read(header))
        return KeyFileStatus::CannotRead;
    return header.tag == tag ? KeyFileStatus::Done : KeyFileStatus::UnknownFormat;
}

bool ReadHeaderAt(const File& file, std::uint64_t position, ChunkHeader& header) {
    const Transfer transfer = file.ReadAt(position, BytesOf(header));
    return transfer.succeeded && transfer.bytes == sizeof(header);
}

/// Walks from chunk to chunk until a header equals the wanted one. Whatever a header says about its length,
/// the walk only goes forward and ends at the end of the file at the latest, which counts as a failed read. A
/// file of more chunks than any key file has is of an unknown format.
KeyFileStatus FindChunk(const File& file, const ChunkHeader& wanted, std::uint64_t& payloadPosition) {
    ChunkHeader header{};
    std::uint64_t size = 0;
    if (!file.GetSize(size) || !ReadHeaderAt(file, 0, header)) // what the file header says does not matter
        return KeyFileStatus::CannotRead;
    std::uint64_t position = sizeof(header);
    for (int chunks = 0; chunks < kMaxChunks; ++chunks) {
        if (!ReadHeaderAt(file, position, header))
            return KeyFileStatus::CannotRead;
        position += sizeof(header);
        payloadPosition = position;
        if (header == wanted)
            return KeyFileStatus::Done;
        const std::uint64_t rest = size > position ? size - position : 0;
        position += std::min(header.Length(), rest);
    }
    return KeyFileStatus::UnknownFormat;
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

KeyFileStatus ReadSummary(const PathUnit* path, VolumeRecord& record) {
    const File file = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
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

KeyFileStatus ReadKeyFileChunk(const PathUnit* path, const ChunkHeader& wanted,
                               std::span<std::byte> payload) {
    const File file = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    if (!file.IsOpen())
        return KeyFileStatus::CannotOpen;
    std::uint64_t position = 0;
    if (const auto status = FindChunk(file, wanted, position); status != KeyFileStatus::Done)
        return status;
    const Transfer transfer = file.ReadAt(position, payload);
    return transfer.succeeded && transfer.bytes == payload.size() ? KeyFileStatus::Done
                                                                  : KeyFileStatus::CannotRead;
}

KeyFileStatus RewriteKeyFileChunk(const PathUnit* path, const ChunkHeader& wanted,
                                  std::span<const std::byte> payload) {
    const File file = File::Open(path, FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
    if (!file.IsOpen())
        return KeyFileStatus::CannotOpen;
    std::uint64_t position = 0;
    if (const auto status = FindChunk(file, wanted, position); status != KeyFileStatus::Done)
        return status;
    return WriteWhole(file, position, payload) && file.Flush() ? KeyFileStatus::Done
                                                               : KeyFileStatus::CannotWrite;
}

KeyFileStatus CreateKeyFile(const PathUnit* path, const VolumeRecord& record,
                            const PasswordDigest& passwordKey) {
    Secret<KeyFileImage> image;
    *image = EmptyImage(record);
    const bool enciphered = record.Cipher != CipherId::None;
    if (enciphered && !AddKeyBlock(*image, record.Cipher, passwordKey))
        return BlockSizeOf(record.Cipher) == 0 ? KeyFileStatus::UnknownFormat : KeyFileStatus::CannotCreate;
    File file = File::Open(path, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    if (!file.IsOpen())
        return KeyFileStatus::CannotCreate;
    constexpr std::size_t kTail = offsetof(KeyFileImage, reservedHeader);
    const std::size_t head = enciphered ? kTail : offsetof(KeyFileImage, keyBlock);
    const auto bytes = std::as_bytes(std::span(&*image, 1));
    if (WriteWhole(file, 0, bytes.first(head)) && WriteWhole(file, head, bytes.subspan(kTail)) &&
        file.Flush())
        return KeyFileStatus::Done;
    file.Close();
    File::Remove(path);
    return KeyFileStatus::CannotWrite;
}

} // namespace quilla
