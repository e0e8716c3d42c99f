#include "service/driver_control.h"

#include "desktop/ce_services.h"
#include "desktop/device_manager.h"
#include "platform/disk_codes.h"
#include "platform/error_box.h"
#include "platform/win32/handle.h"
#include "service/device_change.h"

#include <bit>

namespace quilla {

namespace {

constexpr wchar_t kDevicePrefix[] = L"SEC";
constexpr wchar_t kDeviceNameTemplate[] = L"SEC0:";
constexpr std::size_t kDigitPosition = 3;
constexpr unsigned kDeviceCount = 10;
constexpr wchar_t kDriverFile[] = L"QuillaDriver.dll";

/// Device events and the verbs that go with them (dbt.h).
constexpr unsigned kDeviceArrival = 0x8000;
constexpr unsigned kDeviceRemoveComplete = 0x8004;

struct DeviceTraits {
    using Type = HANDLE;
    static Type Empty() { return INVALID_HANDLE_VALUE; }
    static void Close(Type handle) { ce::CloseHandle(handle); }
};
using UniqueDevice = UniqueHandle<DeviceTraits>;

UniqueDevice OpenDevice(const VolumeRecord& record) {
    return UniqueDevice(
        ce::CreateFileW(record.DeviceName, 0, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

/// Sends a control code to a record's device; nobody looks at the outcome.
void SendControl(const VolumeRecord& record, DWORD code, void* input = nullptr, std::size_t size = 0) {
    const UniqueDevice device = OpenDevice(record);
    DWORD returned = 0;
    static_cast<void>(ce::DeviceIoControl(device.Get(), code, input, static_cast<DWORD>(size), nullptr, 0,
                                          &returned, nullptr));
}

/// Names the first device that does not exist and returns its number; kDeviceCount (and the last name) when
/// all exist.
DWORD ChooseDeviceName(VolumeRecord& record) {
    CopyText(record.DeviceName, kDeviceNameTemplate);
    for (DWORD index = 0; index < kDeviceCount; ++index) {
        record.DeviceName[kDigitPosition] = static_cast<wchar_t>(L'0' + index);
        if (!OpenDevice(record))
            return index;
    }
    return kDeviceCount;
}

/// The driver lies beside the program. A path that would not fit stays empty, which no system loads.
void FindDriver(PathText& path) {
    const DWORD length = GetModuleFileNameW(nullptr, path, kPathUnits);
    const std::size_t folder = TextView(path, length).rfind(L'\\') + 1;
    const TextView file = kDriverFile;
    path[0] = folder + file.size() < kPathUnits ? path[0] : 0;
    if (path[0] != 0)
        path[folder + file.copy(path + folder, file.size())] = 0;
}

} // namespace

void DriverControl::LoadDriver(VolumeRecord& record) {
    const DWORD index = ChooseDeviceName(record);
    PathText driver;
    FindDriver(driver);
    void* const context = ce::MapPtrToProcess(&record, GetCurrentProcess());
    const HANDLE device =
        ce::RegisterDevice(kDevicePrefix, index, driver, std::bit_cast<std::uintptr_t>(context));
    record.DeviceHandle = static_cast<std::uint32_t>(std::bit_cast<std::uintptr_t>(device));
    static_cast<void>(CheckResult(record.DeviceHandle != 0, L"RegisterDevice() failed"));

    decltype(record.DeviceName) name;
    CopyText(name, FieldText(record.DeviceName));
    SendControl(record, kIoctlDiskInitialized, name, sizeof(name));
    BroadcastDeviceChange(record.DeviceName, kDeviceArrival, L"/ADD");
}

StopReport DriverControl::UnloadDriver(VolumeRecord& record) {
    static_cast<void>(GetDeviceManager().TakeStopReport());
    SendControl(record, kIoctlVolumeDetach);
    static_cast<void>(ce::DeregisterDevice(std::bit_cast<HANDLE>(std::uintptr_t{record.DeviceHandle})));
    record.DeviceHandle = 0;
    const StopReport report = GetDeviceManager().TakeStopReport();
    BroadcastDeviceChange(record.DeviceName, kDeviceRemoveComplete, L"/REMOVE");
    return report;
}

void DriverControl::QueryDriver(VolumeRecord& record) {
    SendControl(record, kIoctlVolumeQuery, &record, sizeof(record));
}

void DriverControl::UpdateDriver(VolumeRecord& record) {
    SendControl(record, kIoctlVolumeUpdate, &record, sizeof(record));
}

} // namespace quilla
