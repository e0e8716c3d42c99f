#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// A device of 512-byte sectors, the seam between the export and whatever stores the data. Offsets, lengths
/// and the size are bytes and multiples of the sector size; callers stay inside the size. Every operation may
/// be called by several threads at once; the caller keeps operations that touch the same sector apart where
/// one of them writes. Operations return false on an I/O error, after which the device stays usable.
class BlockDevice {
  public:
    virtual ~BlockDevice() = default;

    /// Size in bytes; does not change while the device is in use.
    [[nodiscard]] virtual std::uint64_t Size() const = 0;

    /// Fills the buffer with the bytes at an offset.
    [[nodiscard]] virtual bool Read(std::uint64_t offset, std::span<std::byte> buffer) = 0;

    /// Stores the payload at an offset. The payload may be destroyed: a cipher works in place.
    [[nodiscard]] virtual bool Write(std::uint64_t offset, std::span<std::byte> payload) = 0;

    /// Makes a range read back as zeros.
    [[nodiscard]] virtual bool WriteZeroes(std::uint64_t offset, std::uint64_t length) = 0;

    /// Waits until every completed write is on the medium.
    [[nodiscard]] virtual bool Flush() = 0;

  protected:
    BlockDevice() = default;
    BlockDevice(const BlockDevice&) = default;
    BlockDevice& operator=(const BlockDevice&) = default;
};

} // namespace quilla
