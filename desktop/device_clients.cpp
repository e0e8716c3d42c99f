#include "desktop/device_clients.h"

#include "desktop/device_manager.h"
#include "desktop/private_file.h"
#include "platform/win32/format_text.h"

namespace quilla {

StopReport StopDeviceExport(std::wstring_view device) {
    return GetDeviceManager().StopExport(device);
}

bool CopyDeviceAddress(std::wstring_view device, std::span<wchar_t> text) {
    return GetDeviceManager().CopyUri(device, text);
}

bool CopyDeviceFilePath(std::wstring_view device, std::wstring_view extension, PathText& path) {
    wchar_t name[16];
    return FormatText(name, L"%.*ls.%.*ls", static_cast<int>(device.find(L':')), device.data(),
                      static_cast<int>(extension.size()), extension.data()) &&
           PrivatePath(name, path);
}

unsigned CountDeviceClients(std::wstring_view device) {
    return GetDeviceManager().CountClients(device);
}

void DescribeDeviceClients(std::wstring_view device, std::span<wchar_t> text) {
    GetDeviceManager().DescribeClients(device, text);
}

bool IsDeviceElsewhere(std::wstring_view device) {
    return DeviceManager::IsElsewhere(device);
}

} // namespace quilla
