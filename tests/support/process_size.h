#pragma once

#include "tests/support/window_text.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <vector>
#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace quilla::test {

/// What a process holds of the system, to see whether repeated work lets it grow.
struct ProcessSize {
    DWORD handles = 0;
    DWORD threads = 0;
    DWORD windows = 0;
    DWORD drawingObjects = 0;
    std::size_t committedBytes = 0;
};

/// Counts the handles of a process in the system's list of all handles.
inline DWORD CountHandles(DWORD process) {
    struct Entry {
        ULONG owner;
        BYTE type, flags;
        USHORT value;
        void* object;
        ULONG access;
    };
    constexpr int kHandleInformation = 16;
    using Query = LONG(WINAPI*)(int, void*, ULONG, ULONG*);
    const auto query =
        std::bit_cast<Query>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation"));
    std::vector<std::byte> list(4 << 20);
    ULONG used = 0;
    if (query(kHandleInformation, list.data(), static_cast<ULONG>(list.size()), &used) < 0)
        return 0;
    ULONG total = 0;
    std::memcpy(&total, list.data(), sizeof(total));
    const auto* const entries = reinterpret_cast<const Entry*>(list.data() + sizeof(void*));
    return static_cast<DWORD>(
        std::count_if(entries, entries + total, [&](const Entry& e) { return e.owner == process; }));
}

/// Counts the windows of a process, children included; without a parent, all that are on the desktop.
inline DWORD CountWindows(DWORD process, HWND parent = nullptr) {
    DWORD count = 0;
    HWND window = nullptr;
    while ((window = FindWindowExW(parent, window, nullptr, nullptr)) != nullptr)
        count += (ProcessOf(window) == process) + CountWindows(process, window);
    return count;
}

/// Counts a 64-bit process's drawing objects in its own table, where Wine keeps them: its GetGuiResources
/// knows of nothing.
inline DWORD CountDrawingObjects(HANDLE process) {
    struct Entry {
        ULONG64 object;
        ULONG owner;
        USHORT unique;
        BYTE type, flags;
        ULONG64 data;
    };
    struct Basic {
        LONG_PTR status;
        const std::byte* environment;
        ULONG_PTR rest[4];
    };
    constexpr std::size_t kTableInEnvironment = 0xF8;
    using Query = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    const auto query =
        std::bit_cast<Query>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationProcess"));
    Basic basic{};
    const std::byte* table = nullptr;
    std::vector<Entry> entries(16384);
    SIZE_T got = 0;
    if (query(process, 0, &basic, sizeof(basic), nullptr) >= 0 &&
        ReadProcessMemory(process, basic.environment + kTableInEnvironment, &table, sizeof(table), &got))
        ReadProcessMemory(process, table, entries.data(), entries.size() * sizeof(Entry), &got);
    return static_cast<DWORD>(
        std::count_if(entries.begin(), entries.end(), [](const Entry& entry) { return entry.type != 0; }));
}

/// Measures a process (by default this one).
inline ProcessSize MeasureProcess(HANDLE process = GetCurrentProcess()) {
    ProcessSize size;
    size.handles = CountHandles(GetProcessId(process));
    size.windows = CountWindows(GetProcessId(process));
    size.drawingObjects = CountDrawingObjects(process);
    PROCESS_MEMORY_COUNTERS memory{};
    GetProcessMemoryInfo(process, &memory, sizeof(memory));
    size.committedBytes = memory.PagefileUsage;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof(thread);
    for (BOOL more = Thread32First(snapshot, &thread); more; more = Thread32Next(snapshot, &thread))
        size.threads += thread.th32OwnerProcessID == GetProcessId(process);
    CloseHandle(snapshot);
    return size;
}

inline std::ostream& operator<<(std::ostream& out, const ProcessSize& size) {
    return out << size.handles << " handles, " << size.threads << " threads, " << size.windows << " windows, "
               << size.drawingObjects << " drawing objects, " << size.committedBytes / 1024
               << " KiB committed";
}

} // namespace quilla::test
