#pragma once

#include <cstddef>
#include <cstdint>

/// The platform's block device interface: control codes and records of its disk drivers, plus the three codes
/// of the volume driver. Records that carry addresses have the natural layout of the processor.
namespace quilla {

inline constexpr std::uint32_t IOCTL_DISK_GETINFO = 0x00071C00;
inline constexpr std::uint32_t IOCTL_DISK_INITIALIZED = 0x00071C10;
inline constexpr std::uint32_t IOCTL_DISK_FLUSH_CACHE = 0x00071C54;
inline constexpr std::uint32_t IOCTL_DISK_READ = 0x00075C08;
inline constexpr std::uint32_t IOCTL_DISK_WRITE = 0x00079C0C;

/// The codes that drivers of the platform's first releases answered to.
inline constexpr std::uint32_t DISK_IOCTL_GETINFO = 1;
inline constexpr std::uint32_t DISK_IOCTL_READ = 2;
inline constexpr std::uint32_t DISK_IOCTL_WRITE = 3;
inline constexpr std::uint32_t DISK_IOCTL_GETNAME = 9;

/// The whole VolumeRecord in; its ActivityTime is brought up to date.
inline constexpr std::uint32_t IOCTL_VOLUME_QUERY = 0x00071F80;
/// The whole VolumeRecord in; the driver takes over its time-out and flags.
inline constexpr std::uint32_t IOCTL_VOLUME_UPDATE = 0x00071F84;
/// Nothing in; the driver flushes and releases the file.
inline constexpr std::uint32_t IOCTL_VOLUME_DETACH = 0x00071F88;

/// Nothing in, the device's size in bytes out, 64 bits wide (IOCTL_DISK_GET_LENGTH_INFO).
inline constexpr std::uint32_t IOCTL_DISK_GET_LENGTH_INFO = 0x0007405C;
/// A VolumeTransfer in: one transfer at a 64-bit offset, for volumes beyond the 2 TiB of a scatter request.
inline constexpr std::uint32_t IOCTL_VOLUME_TRANSFER = 0x00071F8C;

inline constexpr std::size_t kSectorSize = 512;

/// Geometry, as a disk driver reports it (DISK_INFO).
struct DiskInfo {
    std::uint32_t totalSectors;
    std::uint32_t bytesPerSector;
    std::uint32_t cylinders;
    std::uint32_t heads;
    std::uint32_t sectors;
    std::uint32_t flags;
};
static_assert(sizeof(DiskInfo) == 24);

/// One piece of a scatter-gather transfer (SG_BUF).
struct ScatterBuffer {
    std::uint8_t* address;
    std::uint32_t length;
};

inline constexpr std::size_t kMaxScatterBuffers = 16;

struct ScatterRequest;
using ScatterCompletion = std::uint32_t (*)(ScatterRequest* request);

/// A transfer of whole sectors (SG_REQ). A driver leaves its result in status (a system error code) and calls
/// nothing back when completion is null.
struct ScatterRequest {
    std::uint32_t start;
    std::uint32_t sectorCount;
    std::uint32_t bufferCount;
    std::uint32_t status;
    ScatterCompletion completion;
    ScatterBuffer buffers[kMaxScatterBuffers];
};

enum class TransferDirection : std::uint32_t { Read = 0, Write = 1, WriteZeroes = 2 };

/// One transfer of whole sectors between memory and the device; offset and length are multiples of
/// kSectorSize. A write enciphers in place: the memory at address holds nothing useful afterwards.
struct VolumeTransfer {
    std::uint64_t offset;  ///< bytes from the start of the device
    std::uint64_t length;  ///< bytes; a Read or Write must fit the address space
    std::uint8_t* address; ///< length bytes; not used by WriteZeroes
    TransferDirection direction;
};

} // namespace quilla
