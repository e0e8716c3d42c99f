#include "service/driver_control.h"

#include "desktop/ce_services.h"
#include "desktop/device_clients.h"
#include "platform/device_name.h"
#include "platform/disk_codes.h"
#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "platform/win32/handle.h"
#include "platform/win32/program_folder.h"
#include "service/device_change.h"

#include <bit>

namespace quilla {

namespace {

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

/// Names the first device that does not exist and returns its number; kMaxDevices (and the last name) when
/// all exist.
DWORD ChooseDeviceName(VolumeRecord& record) {
    for (DWORD index = 0; index < kMaxDevices; ++index) {
        FormatText(record.DeviceName, L"%ls%u:", kWideDevicePrefix, static_cast<unsigned>(index));
        if (!OpenDevice(record) && !IsDeviceElsewhere(record.DeviceName))
            return index;
    }
    return kMaxDevices;
}

/// Exported by the driver: the ASCII name of the kernel that serves a cipher, empty without one.
using KernelNameFunction = const char* (*)(DWORD cipher);

UniqueLibrary LoadDriverLibrary() {
    PathText path;
    if (!PathBesideProgram(kDriverFile, path))
        return UniqueLibrary();
    return UniqueLibrary(
        LoadLibraryExW(path, nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32));
}

} // namespace

void DriverControl::LoadDriver(VolumeRecord& record) {
    const DWORD index = ChooseDeviceName(record);
    PathText driver;
    if (!PathBesideProgram(kDriverFile, driver))
        driver[0] = 0; // which no system loads
    void* const context = ce::MapPtrToProcess(&record, GetCurrentProcess());
    const HANDLE device =
        ce::RegisterDevice(kWideDevicePrefix, index, driver, std::bit_cast<std::uintptr_t>(context));
    record.DeviceHandle = static_cast<std::uint32_t>(std::bit_cast<std::uintptr_t>(device));
    static_cast<void>(CheckResult(record.DeviceHandle != 0, L"RegisterDevice() failed"));

    decltype(record.DeviceName) name;
    CopyText(name, FieldText(record.DeviceName));
    SendControl(record, IOCTL_DISK_INITIALIZED, name, sizeof(name));
    const bool isTold = record.IsMounted() || ce::kTellsProgramsOfFailures;
    BroadcastDeviceChange(record.DeviceName, kDeviceArrival, isTold ? L"/ADD" : nullptr);
}

StopReport DriverControl::DetachDriver(const VolumeRecord& record) {
    const StopReport report = StopDeviceExport(record.DeviceName);
    SendControl(record, IOCTL_VOLUME_DETACH);
    return report;
}

void DriverControl::UnloadDriver(VolumeRecord& record) {
    static_cast<void>(ce::DeregisterDevice(std::bit_cast<HANDLE>(std::uintptr_t{record.DeviceHandle})));
    record.DeviceHandle = 0;
    decltype(record.DeviceName) name; // the notice lets requests in, which may mount the volume again
    CopyText(name, FieldText(record.DeviceName));
    BroadcastDeviceChange(name, kDeviceRemoveComplete, L"/REMOVE");
}

void DriverControl::QueryDriver(VolumeRecord& record) {
    SendControl(record, IOCTL_VOLUME_QUERY, &record, sizeof(record));
}

void DriverControl::UpdateDriver(VolumeRecord& record) {
    SendControl(record, IOCTL_VOLUME_UPDATE, &record, sizeof(record));
}

bool DriverControl::CopyAddress(const VolumeRecord& record, std::span<wchar_t, kAddressUnits> text) {
    return record.IsMounted() && CopyDeviceAddress(record.DeviceName, text);
}

bool DriverControl::FindDeviceFile(const VolumeRecord& record, std::wstring_view extension, PathText& path) {
    return CopyDeviceFilePath(record.DeviceName, extension, path);
}

unsigned DriverControl::CountClients(const VolumeRecord& record) {
    return record.IsMounted() ? CountDeviceClients(record.DeviceName) : 0;
}

void DriverControl::DescribeClients(const VolumeRecord& record, std::span<wchar_t> text) {
    DescribeDeviceClients(record.DeviceName, text);
}

void DriverControl::DescribeKernels(std::span<wchar_t> text) {
    const UniqueLibrary driver = LoadDriverLibrary();
    const auto kernelName = reinterpret_cast<KernelNameFunction>(
        reinterpret_cast<void*>(driver ? GetProcAddress(driver.Get(), "QuillaKernelName") : nullptr));
    if (kernelName)
        FormatText(text, L"Twofish kernel: %hs\nCAST kernel: %hs",
                   kernelName(static_cast<DWORD>(CipherId::Twofish)),
                   kernelName(static_cast<DWORD>(CipherId::Cast128)));
    else
        FormatText(text, L"The driver %ls is missing", kDriverFile);
}

} // namespace quilla
