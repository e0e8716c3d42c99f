// Programs that the user wants started when a device comes or goes.

#include "desktop/ce_services.h"
#include "platform/win32/handle.h"

#include <array>
#include <cwchar>
#include <iterator>

namespace ce {

namespace {

constexpr wchar_t kHooksKey[] = L"Software\\Orvane\\Quilla\\DeviceChange";
constexpr std::size_t kNameUnits = 260;
constexpr std::size_t kCommandUnits = 1024;

using Command = std::array<wchar_t, kCommandUnits>;

/// Starts a command line with the tail appended; one that does not fit is left out.
void StartHook(const Command& command, const wchar_t* tail) {
    Command line;
    const int length = std::swprintf(line.data(), line.size(), L"%ls %ls", command.data(), tail);
    if (length < 0 || static_cast<std::size_t>(length) >= line.size())
        return;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &started))
        return;
    ::CloseHandle(started.hThread);
    ::CloseHandle(started.hProcess);
}

} // namespace

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
