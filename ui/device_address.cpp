#include "ui/device_address.h"

#include "desktop/device_manager.h"

namespace quilla {

bool CopyDeviceAddress(const VolumeRecord& record, std::span<wchar_t, kAddressUnits> text) {
    return record.IsMounted() && GetDeviceManager().CopyUri(record.DeviceName, text);
}

} // namespace quilla
