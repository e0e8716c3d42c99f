#pragma once

#include "export/range_lock.h"
#include "platform/block_device.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// Byte-granular access to a device of sectors, shared by all clients through one RangeLock. Every sector is
/// read and written as a whole with regard to other clients; a request of several sectors is not. Callers
/// stay inside the device's size.
class ByteDevice {
  public:
    ByteDevice(BlockDevice& device, RangeLock& ranges) : device_(device), ranges_(ranges) {}

    [[nodiscard]] std::uint64_t Size() const { return device_.Size(); }

    [[nodiscard]] bool Read(std::uint64_t offset, std::span<std::byte> buffer);

    /// The payload may be destroyed.
    [[nodiscard]] bool Write(std::uint64_t offset, std::span<std::byte> payload);

    [[nodiscard]] bool WriteZeroes(std::uint64_t offset, std::uint64_t length);

    [[nodiscard]] bool Flush() { return device_.Flush(); }

  private:
    [[nodiscard]] bool ReadInSector(std::uint64_t offset, std::span<std::byte> buffer);
    [[nodiscard]] bool WriteInSector(std::uint64_t offset, std::span<const std::byte> payload);

    BlockDevice& device_;
    RangeLock& ranges_;
};

} // namespace quilla
