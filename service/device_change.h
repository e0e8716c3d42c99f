#pragma once

namespace quilla {

/// Tells every top-level window (WM_DEVICECHANGE with the event and a port record of the device's name) that
/// a device came or went, or that one was to come and could not. Then starts the programs that asked to be
/// started on device changes, with a command line of the verb and the device's name; none for null.
void BroadcastDeviceChange(const wchar_t* deviceName, unsigned event, const wchar_t* verb);

} // namespace quilla
