#pragma once

#include "desktop/stream_driver.h"
#include "platform/block_device.h"

namespace quilla {

/// A loaded disk driver as a block device: every operation is one of its control codes.
class DriverBlockDevice final : public BlockDevice {
  public:
    explicit DriverBlockDevice(const StreamDriver& driver) : driver_(driver) {}
    ~DriverBlockDevice() override { Close(); }
    DriverBlockDevice(const DriverBlockDevice&) = delete;
    DriverBlockDevice& operator=(const DriverBlockDevice&) = delete;

    /// Opens the driver for reading and writing and asks for its size; false if it refuses either.
    [[nodiscard]] bool Open();
    void Close();

    [[nodiscard]] std::uint64_t Size() const override { return size_; }
    [[nodiscard]] bool Read(std::uint64_t offset, std::span<std::byte> buffer) override;
    [[nodiscard]] bool Write(std::uint64_t offset, std::span<std::byte> payload) override;
    [[nodiscard]] bool WriteZeroes(std::uint64_t offset, std::uint64_t length) override;
    [[nodiscard]] bool Flush() override;

  private:
    const StreamDriver& driver_;
    std::uintptr_t open_ = 0;
    std::uint64_t size_ = 0;
};

} // namespace quilla
