// The control codes: records of untrusted sizes in and out, one row per code.

#include "quilladriver/volume_driver.h"

#include "platform/disk_codes.h"
#include "quilladriver/scatter_transfer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace quilla {

namespace {

/// "\Storage\Data.raw" is shown as "Data".
TextView NameWithoutExtension(TextView path) {
    const std::size_t separator = path.find_last_of(TextView(QUILLA_TEXT("\\/:")));
    const TextView name = separator == TextView::npos ? path : path.substr(separator + 1);
    const std::size_t dot = name.rfind(QUILLA_TEXT('.'));
    return dot == TextView::npos || dot == 0 ? name : name.substr(0, dot);
}

template <typename Record>
bool LoadRecord(std::span<const std::byte> from, Record& record) {
    if (from.size() < sizeof(Record))
        return false;
    std::memcpy(&record, from.data(), sizeof(Record));
    return true;
}

DriverStatus PutOut(std::span<std::byte> to, const void* bytes, std::size_t size, std::uint32_t& returned) {
    if (to.size() < size)
        return DriverStatus::InsufficientBuffer;
    std::memcpy(to.data(), bytes, size);
    returned = static_cast<std::uint32_t>(size);
    return DriverStatus::Success;
}

/// A scatter request where it stands, so that its status can be left in it.
class ScatterRecord {
  public:
    explicit ScatterRecord(std::span<std::byte> in) : place_(in) {
        constexpr std::size_t kHeader = offsetof(ScatterRequest, buffers);
        if (in.size() < kHeader)
            return;
        std::memcpy(&request_, in.data(), kHeader);
        if (request_.bufferCount > kMaxScatterBuffers)
            return;
        const std::size_t listSize = request_.bufferCount * sizeof(ScatterBuffer);
        if (in.size() - kHeader < listSize)
            return;
        if (listSize > 0)
            std::memcpy(request_.buffers, in.data() + kHeader, listSize);
        isComplete_ = true;
    }

    [[nodiscard]] bool IsComplete() const { return isComplete_; }
    [[nodiscard]] const ScatterRequest& Get() const { return request_; }

    /// Leaves the result in the request and tells whoever wants to be told.
    DriverStatus Finish(DriverStatus status) const {
        const auto number = static_cast<std::uint32_t>(status);
        std::memcpy(place_.data() + offsetof(ScatterRequest, status), &number, sizeof(number));
        if (request_.completion != nullptr)
            request_.completion(reinterpret_cast<ScatterRequest*>(place_.data()));
        return status;
    }

  private:
    std::span<std::byte> place_;
    ScatterRequest request_{};
    bool isComplete_ = false;
};

} // namespace

struct VolumeDriver::ControlCode {
    std::uint32_t code;
    Handler handle;
};

const VolumeDriver::ControlCode VolumeDriver::kControlCodes[] = {
    {IOCTL_VOLUME_TRANSFER, &VolumeDriver::TransferBytes},
    {IOCTL_DISK_READ, &VolumeDriver::ReadSectors},
    {IOCTL_DISK_WRITE, &VolumeDriver::WriteSectors},
    {IOCTL_DISK_FLUSH_CACHE, &VolumeDriver::FlushCache},
    {IOCTL_DISK_GETINFO, &VolumeDriver::GetInfo},
    {IOCTL_DISK_GET_LENGTH_INFO, &VolumeDriver::GetLength},
    {IOCTL_DISK_INITIALIZED, &VolumeDriver::AcceptName},
    {IOCTL_VOLUME_QUERY, &VolumeDriver::QueryActivity},
    {IOCTL_VOLUME_UPDATE, &VolumeDriver::UpdateSettings},
    {DISK_IOCTL_GETINFO, &VolumeDriver::GetInfo},
    {DISK_IOCTL_READ, &VolumeDriver::ReadSectors},
    {DISK_IOCTL_WRITE, &VolumeDriver::WriteSectors},
    {DISK_IOCTL_GETNAME, &VolumeDriver::GetName},
};

bool VolumeDriver::Attach(File file, VolumeRecord& record) {
    if (!device_.Open(std::move(file), record.Cipher, record.Key))
        return false;
    CopyText(name_, NameWithoutExtension(FieldText(record.Path)));
    record.ActivityTime = device_.LastActivity();
    return true;
}

void VolumeDriver::Detach() {
    gate_.CloseAndDrain();
    device_.Close();
}

DriverStatus VolumeDriver::Control(std::uint32_t code, std::span<std::byte> in, std::span<std::byte> out,
                                   std::uint32_t& returned) {
    returned = 0;
    if (code == IOCTL_VOLUME_DETACH) {
        Detach();
        return DriverStatus::Success;
    }
    const auto* const known = std::ranges::find(kControlCodes, code, &ControlCode::code);
    if (known == std::end(kControlCodes))
        return DriverStatus::NotSupported;
    if (!gate_.Enter())
        return DriverStatus::NotReady;
    const DriverStatus status = (this->*known->handle)({.in = in, .out = out, .returned = &returned});
    gate_.Leave();
    return status;
}

DriverStatus VolumeDriver::GetInfo(const Request& request) {
    constexpr std::uint32_t kGeometryIsMadeUp = 2; // DISK_INFO_FLAG_CHS_UNCERTAIN
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    const DiskInfo info{.totalSectors = static_cast<std::uint32_t>(std::min(device_.SectorCount(), kMost)),
                        .bytesPerSector = kSectorSize,
                        .cylinders = 1,
                        .heads = 1,
                        .sectors = 1,
                        .flags = kGeometryIsMadeUp};
    // Early file systems hand the record over as input.
    return PutOut(request.out.empty() ? request.in : request.out, &info, sizeof(info), *request.returned);
}

DriverStatus VolumeDriver::GetLength(const Request& request) {
    const std::uint64_t size = device_.Size();
    return PutOut(request.out, &size, sizeof(size), *request.returned);
}

DriverStatus VolumeDriver::GetName(const Request& request) {
    const std::size_t units = FieldText(name_).size() + 1;
    return PutOut(request.out, name_, units * sizeof(TextUnit), *request.returned);
}

DriverStatus VolumeDriver::AcceptName(const Request& request) {
    return request.in.size() == kDeviceNameUnits * sizeof(TextUnit) ? DriverStatus::Success
                                                                    : DriverStatus::InvalidParameter;
}

DriverStatus VolumeDriver::ReadSectors(const Request& request) {
    const ScatterRecord record(request.in);
    if (!record.IsComplete())
        return DriverStatus::InvalidParameter;
    return record.Finish(ReadScattered(device_, record.Get()));
}

DriverStatus VolumeDriver::WriteSectors(const Request& request) {
    const ScatterRecord record(request.in);
    if (!record.IsComplete())
        return DriverStatus::InvalidParameter;
    return record.Finish(WriteScattered(device_, record.Get()));
}

DriverStatus VolumeDriver::TransferBytes(const Request& request) {
    VolumeTransfer transfer;
    if (!LoadRecord(request.in, transfer) || !device_.Contains(transfer.offset, transfer.length))
        return DriverStatus::InvalidParameter;
    if (transfer.direction == TransferDirection::WriteZeroes)
        return device_.WriteZeroes(transfer.offset, transfer.length) ? DriverStatus::Success
                                                                     : DriverStatus::WriteFault;

    if (transfer.length > std::numeric_limits<std::size_t>::max() ||
        (transfer.address == nullptr && transfer.length > 0))
        return DriverStatus::InvalidParameter;
    const std::span bytes(reinterpret_cast<std::byte*>(transfer.address),
                          static_cast<std::size_t>(transfer.length));
    if (transfer.direction == TransferDirection::Read)
        return device_.Read(transfer.offset, bytes) ? DriverStatus::Success : DriverStatus::ReadFault;
    if (transfer.direction == TransferDirection::Write)
        return device_.Write(transfer.offset, bytes) ? DriverStatus::Success : DriverStatus::WriteFault;
    return DriverStatus::InvalidParameter;
}

DriverStatus VolumeDriver::FlushCache(const Request& /*request*/) {
    return device_.Flush() ? DriverStatus::Success : DriverStatus::WriteFault;
}

DriverStatus VolumeDriver::QueryActivity(const Request& request) {
    if (request.in.size() < sizeof(VolumeRecord))
        return DriverStatus::InvalidParameter;
    const std::uint64_t activity = device_.LastActivity();
    std::memcpy(request.in.data() + offsetof(VolumeRecord, ActivityTime), &activity, sizeof(activity));
    return DriverStatus::Success;
}

/// Time-out and flags stay with the manager, which reads them from its own record; there is nothing to keep.
DriverStatus VolumeDriver::UpdateSettings(const Request& request) {
    return request.in.size() < sizeof(VolumeRecord) ? DriverStatus::InvalidParameter : DriverStatus::Success;
}

} // namespace quilla
