#pragma once

#include "desktop/device_export.h"
#include "desktop/driver_block_device.h"
#include "desktop/stream_driver.h"
#include "platform/thread.h"
#include "platform/win32/handle.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace quilla {

/// The devices of this process, which stand in for the device manager and the storage manager of Windows CE:
/// drivers are loaded into this process, and each device is exported to block device clients while it exists.
/// The rest of the program reaches it through ce_services.h. Devices come and go on one thread, the one that
/// owns the main window; a device that stays meanwhile can be opened, controlled and closed on others.
class DeviceManager {
  public:
    DeviceManager() = default;
    DeviceManager(const DeviceManager&) = delete;
    DeviceManager& operator=(const DeviceManager&) = delete;

    /// Loads a driver from the program's folder as device number index and exports it. Returns a small
    /// non-zero handle, or 0 with the reason as the thread's last error.
    [[nodiscard]] std::uint32_t Register(std::wstring_view prefix, unsigned index, const wchar_t* library,
                                         std::uintptr_t context);

    /// Ends a device; false if there is none of this handle.
    bool Deregister(std::uint32_t handle);

    /// Whether a name has the form of a device name, registered or not.
    [[nodiscard]] static bool IsDeviceName(std::wstring_view name);

    /// Whether a handle can be one that OpenDevice returned (those of the system's own objects never are).
    [[nodiscard]] static bool IsOpenDevice(std::uintptr_t file) { return (file & 3) == 2; }

    /// Opens a device by name; 0 if there is none.
    [[nodiscard]] std::uintptr_t OpenDevice(std::wstring_view name, DWORD access, DWORD sharing);
    bool CloseDevice(std::uintptr_t file);

    /// Passes a control code to the driver. A volume that is about to be detached loses its export first, so
    /// that what clients have in flight is completed and flushed while the driver still has its file.
    bool Control(std::uintptr_t file, DWORD code, void* input, DWORD inputSize, void* output,
                 DWORD outputSize, DWORD* returned);

    /// Copies the URI under which clients reach a device; false if there is no such device.
    [[nodiscard]] bool CopyUri(std::wstring_view name, std::span<wchar_t> text) const;

    /// Clients attached to a device at present.
    [[nodiscard]] unsigned CountClients(std::wstring_view name) const;

    /// Writes a line for each client (see DescribeConnections).
    void DescribeClients(std::wstring_view name, std::span<wchar_t> text) const;

    /// Whether the user's other sessions have a device of this name.
    [[nodiscard]] static bool IsElsewhere(std::wstring_view name);

    /// Ends a device's export before the device itself, for those who want to know what that has met.
    StopReport StopExport(std::wstring_view name);

  private:
    struct Device {
        StreamDriver driver;
        DriverBlockDevice disk{driver};
        DeviceExport exported;
        std::uint32_t handle = 0;
    };

    /// An opened device; a slot is free while its device is null.
    struct Opened {
        Device* device = nullptr;
        std::uintptr_t open = 0;
    };

    [[nodiscard]] Device* Find(std::wstring_view name) const;
    [[nodiscard]] Opened FindOpened(std::uintptr_t file);
    [[nodiscard]] Opened* SlotOf(std::uintptr_t file);

    /// Keeps the driver's library loaded between two mounts: loading it again costs time, and the language's
    /// run-time library in it leaves memory behind at each unloading.
    UniqueLibrary library_;
    std::array<std::unique_ptr<Device>, kMaxDevices> devices_;
    Lock lock_; ///< of opened_; never held while a driver or an export works
    std::array<Opened, 16> opened_;
    std::uint32_t lastHandle_ = 0;
};

/// The device manager of this process.
[[nodiscard]] DeviceManager& GetDeviceManager();

} // namespace quilla
