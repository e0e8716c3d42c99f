#include "desktop/ce_services.h"

#include "desktop/device_manager.h"

#include <bit>

namespace ce {

using quilla::DeviceManager;
using quilla::GetDeviceManager;

HANDLE RegisterDevice(const wchar_t* prefix, DWORD index, const wchar_t* library, DWORD_PTR context) {
    return std::bit_cast<HANDLE>(
        std::uintptr_t{GetDeviceManager().Register(prefix, index, library, context)});
}

BOOL DeregisterDevice(HANDLE device) {
    return GetDeviceManager().Deregister(static_cast<std::uint32_t>(std::bit_cast<std::uintptr_t>(device)));
}

HANDLE CreateFileW(const wchar_t* name, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                   DWORD creation, DWORD attributes, HANDLE pattern) {
    if (!DeviceManager::IsDeviceName(name))
        return ::CreateFileW(name, access, sharing, security, creation, attributes, pattern);
    const std::uintptr_t file = GetDeviceManager().OpenDevice(name, access, sharing);
    return file != 0 ? std::bit_cast<HANDLE>(file) : INVALID_HANDLE_VALUE;
}

BOOL DeviceIoControl(HANDLE file, DWORD code, void* input, DWORD inputSize, void* output, DWORD outputSize,
                     DWORD* returned, OVERLAPPED* overlapped) {
    const auto opened = std::bit_cast<std::uintptr_t>(file);
    if (!DeviceManager::IsOpenDevice(opened))
        return ::DeviceIoControl(file, code, input, inputSize, output, outputSize, returned, overlapped);
    return GetDeviceManager().Control(opened, code, input, inputSize, output, outputSize, returned);
}

BOOL CloseHandle(HANDLE file) {
    const auto opened = std::bit_cast<std::uintptr_t>(file);
    return DeviceManager::IsOpenDevice(opened) ? GetDeviceManager().CloseDevice(opened) : ::CloseHandle(file);
}

BOOL EventModify(HANDLE event, DWORD action) {
    switch (action) {
    case EVENT_SET:
        return SetEvent(event);
    case EVENT_RESET:
        return ResetEvent(event);
    default:
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
}

} // namespace ce
