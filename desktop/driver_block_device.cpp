#include "desktop/driver_block_device.h"

#include "platform/disk_codes.h"

#include <utility>

namespace quilla {

bool DriverBlockDevice::Open() {
    DWORD returned = 0;
    open_ = driver_.Open(GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    return open_ != 0 &&
           driver_.Control(open_, IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &size_, sizeof(size_), &returned) &&
           returned == sizeof(size_);
}

void DriverBlockDevice::Close() {
    if (open_ != 0)
        driver_.Close(std::exchange(open_, 0));
}

bool DriverBlockDevice::Read(std::uint64_t offset, std::span<std::byte> buffer) {
    VolumeTransfer transfer{.offset = offset,
                            .length = buffer.size(),
                            .address = reinterpret_cast<std::uint8_t*>(buffer.data()),
                            .direction = TransferDirection::Read};
    return driver_.Control(open_, IOCTL_VOLUME_TRANSFER, &transfer, sizeof(transfer));
}

bool DriverBlockDevice::Write(std::uint64_t offset, std::span<std::byte> payload) {
    VolumeTransfer transfer{.offset = offset,
                            .length = payload.size(),
                            .address = reinterpret_cast<std::uint8_t*>(payload.data()),
                            .direction = TransferDirection::Write};
    return driver_.Control(open_, IOCTL_VOLUME_TRANSFER, &transfer, sizeof(transfer));
}

bool DriverBlockDevice::WriteZeroes(std::uint64_t offset, std::uint64_t length) {
    VolumeTransfer transfer{
        .offset = offset, .length = length, .address = nullptr, .direction = TransferDirection::WriteZeroes};
    return driver_.Control(open_, IOCTL_VOLUME_TRANSFER, &transfer, sizeof(transfer));
}

bool DriverBlockDevice::Flush() {
    return driver_.Control(open_, IOCTL_DISK_FLUSH_CACHE, nullptr, 0);
}

} // namespace quilla
