#pragma once

#include "export/nbd/server.h"

#include "platform/text.h"

#include <span>
#include <string_view>

/// Who uses a device, as far as this program is told: on Windows CE it is the system that exports devices.
namespace quilla {

/// Completes what clients have in flight and disconnects them.
StopReport StopDeviceExport(std::wstring_view device);

/// The address at which clients find a device; false if there is none.
[[nodiscard]] bool CopyDeviceAddress(std::wstring_view device, std::span<wchar_t> text);

/// Full path of the file "SECn.extension" that goes with device "SECn:" (see DeviceExport); false if there is
/// no such place.
[[nodiscard]] bool CopyDeviceFilePath(std::wstring_view device, std::wstring_view extension, PathText& path);

[[nodiscard]] unsigned CountDeviceClients(std::wstring_view device);

/// Writes a line for each client, with a line break before it: its address, and its program where the system
/// tells.
void DescribeDeviceClients(std::wstring_view device, std::span<wchar_t> text);

/// Whether the user's other sessions have a device of this name; their programs find it by that.
[[nodiscard]] bool IsDeviceElsewhere(std::wstring_view device);

} // namespace quilla
