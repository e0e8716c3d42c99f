// The services of Windows CE as a desktop has them: devices through the device manager of this process,
// notices through messages with a time limit, events through programs named in the registry.

#include "desktop/ce_services.h"

#include "desktop/device_manager.h"
#include "platform/win32/format_text.h"
#include "platform/win32/handle.h"
#include "platform/win32/start_program.h"

#include <array>
#include <bit>
#include <iterator>

namespace ce {

using quilla::DeviceManager;
using quilla::GetDeviceManager;

namespace {

constexpr UINT kLimitPerWindow = 200;     // milliseconds
constexpr ULONGLONG kLimitInTotal = 2000; // milliseconds

struct Broadcast {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    ULONGLONG end;
};

BOOL CALLBACK SendToOne(HWND window, LPARAM parameter) {
    const auto& broadcast = *reinterpret_cast<const Broadcast*>(parameter);
    DWORD_PTR ignored = 0;
    SendMessageTimeoutW(window, broadcast.message, broadcast.wParam, broadcast.lParam, SMTO_ABORTIFHUNG,
                        kLimitPerWindow, &ignored);
    return GetTickCount64() < broadcast.end;
}

constexpr wchar_t kHooksKey[] = L"Software\\Orvane\\Quilla\\DeviceChange";
constexpr std::size_t kNameUnits = 260;
constexpr std::size_t kCommandUnits = 1024;

using Command = std::array<wchar_t, kCommandUnits>;

/// Starts a command line with the tail appended; one that does not fit is left out.
void StartHook(const Command& command, const wchar_t* tail) {
    Command line;
    if (quilla::FormatText(line, L"%ls %ls", command.data(), tail))
        quilla::StartProgram(nullptr, line.data());
}

} // namespace

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

/// Desktop Windows refuses to carry a pointer in an asynchronous system message (ERROR_MESSAGE_SYNC_ONLY), so
/// each window gets a synchronous message with a time limit instead.
BOOL SendNotifyMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    const Broadcast broadcast{
        .message = message, .wParam = wParam, .lParam = lParam, .end = GetTickCount64() + kLimitInTotal};
    if (window == HWND_BROADCAST)
        return EnumWindows(SendToOne, reinterpret_cast<LPARAM>(&broadcast));
    return SendToOne(window, reinterpret_cast<LPARAM>(&broadcast));
}

BOOL CeEventHasOccurred(LONG event, const wchar_t* tail) {
    if (event != NOTIFICATION_EVENT_DEVICE_CHANGE)
        return FALSE;
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kHooksKey, 0, KEY_READ, &opened) != ERROR_SUCCESS)
        return TRUE; // nobody asked
    const quilla::UniqueRegistryKey key(opened);
    for (DWORD index = 0;; ++index) {
        wchar_t name[kNameUnits];
        DWORD nameUnits = std::size(name);
        Command command{};
        DWORD size = (kCommandUnits - 1) * sizeof(wchar_t); // the text need not be terminated
        DWORD type = REG_NONE;
        const LSTATUS status = RegEnumValueW(key.Get(), index, name, &nameUnits, nullptr, &type,
                                             reinterpret_cast<BYTE*>(command.data()), &size);
        if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA)
            return TRUE;
        if (status == ERROR_SUCCESS && type == REG_SZ && command[0] != 0)
            StartHook(command, tail);
    }
}

} // namespace ce

namespace quilla {

void AllowComingToFront(HWND window) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    AllowSetForegroundWindow(process);
}

void RestrictLibrarySearch() {
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    SetDllDirectoryW(L"");
}

} // namespace quilla
