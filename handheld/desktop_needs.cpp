// What the program does for a desktop and need not do on Windows CE: there the system exports devices to the
// user, paths are complete, libraries come from fixed places, and the command line stands in memory of the
// one process.

#include "desktop/ce_services.h"
#include "desktop/command_line_memory.h"
#include "desktop/device_clients.h"
#include "desktop/device_export.h"
#include "desktop/full_path.h"

namespace quilla {

StopReport StopDeviceExport(std::wstring_view /*device*/) {
    return {};
}

bool CopyDeviceAddress(std::wstring_view /*device*/, std::span<wchar_t> /*text*/) {
    return false;
}

bool CopyDeviceFilePath(std::wstring_view /*device*/, std::wstring_view /*extension*/, PathText& /*path*/) {
    return false;
}

unsigned CountDeviceClients(std::wstring_view /*device*/) {
    return 0;
}

void DescribeDeviceClients(std::wstring_view /*device*/, std::span<wchar_t> text) {
    text[0] = 0;
}

bool IsDeviceElsewhere(std::wstring_view /*device*/) {
    return false;
}

void DeviceExport::RemoveLeftovers() {}

void CompletePath(PathText& /*path*/) {}

void AllowComingToFront(HWND /*window*/) {}

} // namespace quilla
