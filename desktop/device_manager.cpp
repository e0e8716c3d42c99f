#include "desktop/device_manager.h"

#include "desktop/client_processes.h"
#include "platform/disk_codes.h"
#include "platform/text.h"
#include "platform/win32/program_folder.h"

#include <algorithm>
#include <new>
#include <utility>

namespace quilla {

namespace {

constexpr std::wstring_view kPrefix = kWideDevicePrefix;

/// Whether a library lies in the folder of the running program and is named by its full path.
bool IsBesideProgram(std::wstring_view library) {
    const std::wstring_view name = library.substr(library.find_last_of(L"\\/") + 1);
    PathText path;
    return !name.empty() && PathBesideProgram(name, path) &&
           CompareStringOrdinal(library.data(), static_cast<int>(library.size()), path, -1, TRUE) ==
               CSTR_EQUAL;
}

/// What stands for an opened device: no handle of the system has these lowest bits.
std::uintptr_t FileOf(std::size_t slot) {
    return std::uintptr_t{slot} << 2 | 2;
}

/// The number in a device name.
unsigned DeviceIndex(std::wstring_view name) {
    return static_cast<unsigned>(name[kPrefix.size()] - L'0');
}

} // namespace

std::uint32_t DeviceManager::Register(std::wstring_view prefix, unsigned index, const wchar_t* library,
                                      std::uintptr_t context) {
    if (prefix != kPrefix || index >= kMaxDevices || !IsBesideProgram(library)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (devices_[index]) {
        SetLastError(ERROR_DEVICE_IN_USE);
        return 0;
    }
    std::unique_ptr<Device> device(new (std::nothrow) Device);
    if (!device || !device->driver.Load(library, kPrefix.data(), context) || !device->disk.Open() ||
        !device->exported.Start(device->disk, index))
        return 0;
    if (!library_)
        library_ = StreamDriver::LoadFile(library);
    device->handle = ++lastHandle_;
    devices_[index] = std::move(device);
    return lastHandle_;
}

bool DeviceManager::Deregister(std::uint32_t handle) {
    const auto found = std::ranges::find_if(
        devices_, [&](const auto& device) { return device && device->handle == handle; });
    if (handle == 0 || found == devices_.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    Device& device = **found;
    device.exported.Stop();
    for (std::size_t slot = 0; slot < opened_.size(); ++slot)
        if (opened_[slot].device == &device)
            CloseDevice(FileOf(slot));
    found->reset();
    return true;
}

StopReport DeviceManager::StopExport(std::wstring_view name) {
    Device* const device = Find(name);
    return device != nullptr ? device->exported.Stop() : StopReport{};
}

bool DeviceManager::IsDeviceName(std::wstring_view name) {
    const std::size_t digit = kPrefix.size();
    return name.size() == digit + 2 && name[digit] >= L'0' && name[digit] <= L'9' &&
           name[digit + 1] == L':' &&
           CompareStringOrdinal(name.data(), static_cast<int>(digit), kPrefix.data(), static_cast<int>(digit),
                                TRUE) == CSTR_EQUAL;
}

DeviceManager::Device* DeviceManager::Find(std::wstring_view name) const {
    return IsDeviceName(name) ? devices_[DeviceIndex(name)].get() : nullptr;
}

DeviceManager::Opened* DeviceManager::SlotOf(std::uintptr_t file) {
    const std::uintptr_t slot = file >> 2;
    return IsOpenDevice(file) && slot < opened_.size() && opened_[slot].device != nullptr ? &opened_[slot]
                                                                                          : nullptr;
}

/// An opened device, with the device null and the last error set if there is none of this handle.
DeviceManager::Opened DeviceManager::FindOpened(std::uintptr_t file) {
    const LockGuard guard(lock_);
    const Opened* const slot = SlotOf(file);
    if (slot == nullptr)
        SetLastError(ERROR_INVALID_HANDLE);
    return slot != nullptr ? *slot : Opened{};
}

std::uintptr_t DeviceManager::OpenDevice(std::wstring_view name, DWORD access, DWORD sharing) {
    Device* const device = Find(name);
    if (device == nullptr) {
        SetLastError(ERROR_DEV_NOT_EXIST);
        return 0;
    }
    const LockGuard guard(lock_);
    const auto slot = std::ranges::find(opened_, nullptr, &Opened::device);
    if (slot == opened_.end()) {
        SetLastError(ERROR_TOO_MANY_OPEN_FILES);
        return 0;
    }
    const std::uintptr_t open = device->driver.Open(access, sharing); // only counts
    if (open == 0)
        return 0;
    *slot = {.device = device, .open = open};
    return FileOf(static_cast<std::size_t>(slot - opened_.begin()));
}

bool DeviceManager::CloseDevice(std::uintptr_t file) {
    const Opened opened = FindOpened(file);
    if (opened.device == nullptr)
        return false;
    opened.device->driver.Close(opened.open);
    const LockGuard guard(lock_);
    *SlotOf(file) = {};
    return true;
}

bool DeviceManager::Control(std::uintptr_t file, DWORD code, void* input, DWORD inputSize, void* output,
                            DWORD outputSize, DWORD* returned) {
    const Opened opened = FindOpened(file);
    if (opened.device == nullptr)
        return false;
    if (code == IOCTL_VOLUME_DETACH)
        opened.device->exported.Stop();
    return opened.device->driver.Control(opened.open, code, input, inputSize, output, outputSize, returned);
}

bool DeviceManager::CopyUri(std::wstring_view name, std::span<wchar_t> text) const {
    const Device* const device = Find(name);
    if (device == nullptr || text.empty())
        return false;
    const std::string_view uri = device->exported.Uri();
    const std::size_t length = std::min(uri.size(), text.size() - 1);
    std::copy_n(uri.data(), length, text.data());
    text[length] = 0;
    return !uri.empty() && length == uri.size();
}

unsigned DeviceManager::CountClients(std::wstring_view name) const {
    const Device* const device = Find(name);
    return device != nullptr ? device->exported.ConnectedClients() : 0;
}

void DeviceManager::DescribeClients(std::wstring_view name, std::span<wchar_t> text) const {
    text[0] = 0;
    const Device* const device = Find(name);
    if (device != nullptr && device->exported.ConnectedClients() > 0)
        DescribeConnections(device->exported.Ports(), text);
}

bool DeviceManager::IsElsewhere(std::wstring_view name) {
    return IsDeviceName(name) && DeviceExport::IsElsewhere(DeviceIndex(name));
}

DeviceManager& GetDeviceManager() {
    static DeviceManager manager;
    return manager;
}

} // namespace quilla
