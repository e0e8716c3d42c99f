#pragma once

#include "export/stop_report.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace quilla {

/// Loads, queries, updates and unloads the volume driver, one device per mounted volume. Keeps no state: all
/// of it is in the record. A record given to LoadDriver must stay at its address until UnloadDriver returns,
/// for the driver holds that address. Used on the main window's thread only, but for DetachDriver.
class DriverControl {
  public:
    /// Units that hold every address.
    static constexpr std::size_t kAddressUnits = 128;

    DriverControl() = default;
    DriverControl(const DriverControl&) = delete;
    DriverControl& operator=(const DriverControl&) = delete;

    /// Registers the driver under the first free name of "SEC0:" to "SEC9:" with the record, Key included, as
    /// its start-up context, and announces the device. Sets DeviceName and DeviceHandle; on failure shows
    /// "RegisterDevice() failed" and leaves DeviceHandle 0. The caller wipes Key in either case.
    void LoadDriver(VolumeRecord& record);

    /// Ends the device's export and lets the driver flush and release its file. Takes as long as the disk
    /// does; may be called on any thread while the record stays mounted. Returns what became of the device's
    /// clients.
    static StopReport DetachDriver(const VolumeRecord& record);

    /// Removes a device, whose driver has been detached, and announces that; DeviceHandle becomes 0.
    void UnloadDriver(VolumeRecord& record);

    /// Has the driver bring the record's ActivityTime up to date.
    void QueryDriver(VolumeRecord& record);

    /// Hands the record's changed settings to the driver.
    void UpdateDriver(VolumeRecord& record);

    /// Copies the address at which block device clients reach a mounted volume (an NBD URI). False if it is
    /// not mounted, or if the system shows its block devices by itself.
    [[nodiscard]] static bool CopyAddress(const VolumeRecord& record, std::span<wchar_t, kAddressUnits> text);

    /// Full path of a file that goes with a mounted volume's device, "SECn." and an extension (see
    /// DeviceExport); false if there is no such place.
    [[nodiscard]] static bool FindDeviceFile(const VolumeRecord& record, std::wstring_view extension,
                                             PathText& path);

    /// Clients attached to a mounted volume at present.
    [[nodiscard]] static unsigned CountClients(const VolumeRecord& record);

    /// Writes a line for each of them, with a line break before it, as far as they fit: its address, and its
    /// program where the system tells.
    static void DescribeClients(const VolumeRecord& record, std::span<wchar_t> text);

    /// Writes a line for each cipher that names the kernel which the driver uses on this processor, or that
    /// there is no driver.
    static void DescribeKernels(std::span<wchar_t> text);
};

} // namespace quilla
