#include "desktop/device_clients.h"

#include "desktop/device_manager.h"

namespace quilla {

StopReport StopDeviceExport(std::wstring_view device) {
    return GetDeviceManager().StopExport(device);
}

bool CopyDeviceAddress(std::wstring_view device, std::span<wchar_t> text) {
    return GetDeviceManager().CopyUri(device, text);
}

unsigned CountDeviceClients(std::wstring_view device) {
    return GetDeviceManager().CountClients(device);
}

} // namespace quilla
