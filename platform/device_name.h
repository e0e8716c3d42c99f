#pragma once

namespace quilla {

/// Devices are called "SEC0:" to "SEC9:", the driver's entry points "SEC_Init" and so on.
inline constexpr char kDevicePrefix[] = "SEC";
inline constexpr wchar_t kWideDevicePrefix[] = L"SEC";
inline constexpr unsigned kMaxDevices = 10;

} // namespace quilla
