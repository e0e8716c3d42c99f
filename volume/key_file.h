#pragma once

#include "platform/file.h"
#include "volume/key_block.h"
#include "volume/volume_record.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

/// The key file: a file header and chunks, each a 16-byte header with its payload (docs/key-file-format.md).
/// These functions, which load and store, report nothing to the user, unlike those of store/ that read and
/// write; after a failure the platform's last error is the failed call's.
namespace quilla {

enum class ChunkTag : std::uint32_t {
    FileHeader = 0,
    Settings = 1,
    KeyBlock = 2,
    Reserved = 3,
    Strength = 0x51544B44, ///< "DKTQ"
};

/// The head of a chunk, and of the file itself. Numbers are little-endian.
struct ChunkHeader {
    ChunkTag tag;
    std::uint16_t param; ///< key block: the cipher; reserved chunk: 2; otherwise 0
    std::uint16_t reserved;
    std::uint32_t lengthLow; ///< of the payload in bytes
    std::uint32_t lengthHigh;

    [[nodiscard]] std::uint64_t Length() const { return (std::uint64_t{lengthHigh} << 32) | lengthLow; }
    bool operator==(const ChunkHeader&) const = default;
};
static_assert(std::is_trivially_copyable_v<ChunkHeader> && sizeof(ChunkHeader) == 16);
static_assert(std::has_unique_object_representations_v<ChunkHeader>, "headers are compared in all 16 bytes");
static_assert(offsetof(ChunkHeader, tag) == 0);
static_assert(offsetof(ChunkHeader, param) == 4);
static_assert(offsetof(ChunkHeader, reserved) == 6);
static_assert(offsetof(ChunkHeader, lengthLow) == 8);
static_assert(offsetof(ChunkHeader, lengthHigh) == 12);

/// A header that fits no chunk, to read into: what a short file lacks must not look like zeros.
inline constexpr ChunkHeader kNoChunkHeader = {.tag = ChunkTag{0xFFFFFFFF},
                                               .param = 0xFFFF,
                                               .reserved = 0xFFFF,
                                               .lengthLow = 0xFFFFFFFF,
                                               .lengthHigh = 0xFFFFFFFF};

inline constexpr std::uint16_t kFormatMark = 65;

/// Payload of the settings chunk.
struct VolumeSettings {
    std::uint32_t zero;
    std::uint16_t formatMark;
    std::uint16_t unused1;
    std::uint64_t timeout; ///< 100-ns units; 0 = never
    std::uint32_t options; ///< bit 0 travels with the time-out, the others are kept as they are
    std::uint32_t unused2;
};
static_assert(std::is_trivially_copyable_v<VolumeSettings> && sizeof(VolumeSettings) == 24);
static_assert(offsetof(VolumeSettings, zero) == 0);
static_assert(offsetof(VolumeSettings, formatMark) == 4);
static_assert(offsetof(VolumeSettings, unused1) == 6);
static_assert(offsetof(VolumeSettings, timeout) == 8);
static_assert(offsetof(VolumeSettings, options) == 16);
static_assert(offsetof(VolumeSettings, unused2) == 20);

inline constexpr std::uint32_t kTimeoutOption = 1; ///< bit 0 of the option word and of a record's flags

/// Header of a chunk whose payload is a T.
template <typename T>
[[nodiscard]] constexpr ChunkHeader HeaderOf(ChunkTag tag, std::uint16_t param = 0) {
    return {.tag = tag, .param = param, .reserved = 0, .lengthLow = sizeof(T), .lengthHigh = 0};
}

inline constexpr ChunkHeader kSettingsHeader = HeaderOf<VolumeSettings>(ChunkTag::Settings);

/// Payload of the optional chunk that slows down guessing (volume/key_strength.h).
struct KeyStrength {
    std::array<std::byte, 32> salt;
    std::uint32_t memory; ///< KiB
    std::uint32_t passes;
    std::uint32_t lanes;
    std::uint32_t algorithm; ///< 1 = Argon2id, version 0x13
};
static_assert(std::is_trivially_copyable_v<KeyStrength> && sizeof(KeyStrength) == 48);
static_assert(offsetof(KeyStrength, memory) == 32);
static_assert(offsetof(KeyStrength, passes) == 36);
static_assert(offsetof(KeyStrength, lanes) == 40);
static_assert(offsetof(KeyStrength, algorithm) == 44);

inline constexpr ChunkHeader kStrengthHeader = HeaderOf<KeyStrength>(ChunkTag::Strength);

/// A key block is found only by a reader that knows the volume's cipher.
[[nodiscard]] constexpr ChunkHeader KeyBlockHeader(CipherId cipher) {
    return HeaderOf<KeyBlock>(ChunkTag::KeyBlock, static_cast<std::uint16_t>(cipher));
}

/// Bytes in a key file as it is written for a volume with a cipher.
inline constexpr std::size_t kKeyFileSize = 760;
inline constexpr std::size_t kStrongKeyFileSize = 824; ///< with the option that slows down guessing

enum class KeyFileStatus : std::uint8_t {
    Done,
    CannotCreate,
    CannotOpen,
    CannotRead,
    CannotWrite,
    UnknownFormat,
    NoMemory, ///< for the function that slows down guessing
    Stopped   ///< that function, by the user
};

/// Reads time-out and cipher into a record and clears its flags. A failure leaves what was not reached yet as
/// it was.
[[nodiscard]] KeyFileStatus LoadSummary(const PathUnit* path, VolumeRecord& record);

/// Finds the chunk whose header equals the wanted one and reads its payload, as long as the header says. On a
/// failure the payload is left as it was or partly filled.
[[nodiscard]] KeyFileStatus LoadChunk(const PathUnit* path, const ChunkHeader& wanted,
                                      std::span<std::byte> payload);

/// The same for a file that is open already.
[[nodiscard]] KeyFileStatus LoadChunk(const File& file, const ChunkHeader& wanted,
                                      std::span<std::byte> payload);

/// Finds the chunk in the same way and writes over its payload in one piece, so that a process killed
/// meanwhile leaves the old payload or the new one.
[[nodiscard]] KeyFileStatus StoreChunk(const PathUnit* path, const ChunkHeader& wanted,
                                       std::span<const std::byte> payload);
[[nodiscard]] KeyFileStatus StoreChunk(const File& file, const ChunkHeader& wanted,
                                       std::span<const std::byte> payload);

/// Creates the key file of a volume from its record: time-out, flags and, with a cipher, a key block with a
/// new master key. Refuses a cipher that cannot encipher with UnknownFormat, since the master key would be
/// written as it is; without random numbers nothing is created. With a strength, whose wrapping key the given
/// key then is, its chunk comes last. What a failure has begun is removed.
[[nodiscard]] KeyFileStatus CreateKeyFile(const PathUnit* path, const VolumeRecord& record,
                                          const PasswordDigest& passwordKey,
                                          const KeyStrength* strength = nullptr);

} // namespace quilla
