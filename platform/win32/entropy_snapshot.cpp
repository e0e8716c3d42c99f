// The state of a 64-bit system in the records of a 32-bit one.

#include "platform/entropy_snapshot.h"

#include "platform/random.h"
#include "platform/win32/pointer_history.h"

#include <cstring>
#include <span>
#include <windows.h>

namespace quilla {

namespace {

/// MEMORYSTATUS of a 32-bit system.
struct MemoryStatus32 {
    std::uint32_t length;
    std::uint32_t memoryLoad;
    std::uint32_t totalPhysical;
    std::uint32_t availablePhysical;
    std::uint32_t totalPageFile;
    std::uint32_t availablePageFile;
    std::uint32_t totalVirtual;
    std::uint32_t availableVirtual;
};

/// SYSTEM_INFO of a 32-bit system.
struct SystemInfo32 {
    std::uint16_t processorArchitecture;
    std::uint16_t reserved;
    std::uint32_t pageSize;
    std::uint32_t minimumApplicationAddress;
    std::uint32_t maximumApplicationAddress;
    std::uint32_t activeProcessorMask;
    std::uint32_t numberOfProcessors;
    std::uint32_t processorType;
    std::uint32_t allocationGranularity;
    std::uint16_t processorLevel;
    std::uint16_t processorRevision;
};

struct Point32 {
    std::int32_t x;
    std::int32_t y;
};

constexpr std::size_t kPointerHistoryPoints = 64;

template <typename Handle>
std::uint32_t Low32(Handle handle) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
}
std::uint32_t Low32(SIZE_T value) {
    return static_cast<std::uint32_t>(value);
}

template <std::size_t N, typename T>
void CopyBytes(std::array<std::byte, N>& field, const T& record) {
    static_assert(sizeof(T) == N);
    std::memcpy(field.data(), &record, N);
}

MemoryStatus32 ReadMemoryStatus() {
    MEMORYSTATUS status{};
    status.dwLength = sizeof(status);
    GlobalMemoryStatus(&status);
    return {.length = sizeof(MemoryStatus32),
            .memoryLoad = status.dwMemoryLoad,
            .totalPhysical = Low32(status.dwTotalPhys),
            .availablePhysical = Low32(status.dwAvailPhys),
            .totalPageFile = Low32(status.dwTotalPageFile),
            .availablePageFile = Low32(status.dwAvailPageFile),
            .totalVirtual = Low32(status.dwTotalVirtual),
            .availableVirtual = Low32(status.dwAvailVirtual)};
}

SystemInfo32 ReadSystemInfo() {
    SYSTEM_INFO info{};
    GetSystemInfo(&info);
    return {.processorArchitecture = info.wProcessorArchitecture,
            .reserved = info.wReserved,
            .pageSize = info.dwPageSize,
            .minimumApplicationAddress = Low32(info.lpMinimumApplicationAddress),
            .maximumApplicationAddress = Low32(info.lpMaximumApplicationAddress),
            .activeProcessorMask = Low32(static_cast<SIZE_T>(info.dwActiveProcessorMask)),
            .numberOfProcessors = info.dwNumberOfProcessors,
            .processorType = info.dwProcessorType,
            .allocationGranularity = info.dwAllocationGranularity,
            .processorLevel = info.wProcessorLevel,
            .processorRevision = info.wProcessorRevision};
}

void ReadCounter(EntropySnapshot& snapshot) {
    LARGE_INTEGER value{};
    snapshot.hasFrequency = QueryPerformanceFrequency(&value) != FALSE;
    CopyBytes(snapshot.counterFrequency, value.QuadPart);
    snapshot.hasCounter = QueryPerformanceCounter(&value) != FALSE;
    CopyBytes(snapshot.counter, value.QuadPart);
}

/// The latest positions of the pointer; entries the system does not have keep their random content.
void CopyPointerHistory(std::array<std::byte, 512>& field) {
    static_assert(sizeof(Point32) * kPointerHistoryPoints == 512);
    POINT history[kPointerHistoryPoints]{};
    const std::size_t count = ReadPointerHistory(history);
    for (std::size_t i = 0; i < count; ++i) {
        const Point32 point{.x = history[i].x, .y = history[i].y};
        std::memcpy(field.data() + sizeof(point) * i, &point, sizeof(point));
    }
}

} // namespace

void TakeEntropySnapshot(EntropySnapshot& snapshot) {
    snapshot.handles = {Low32(GetActiveWindow()), Low32(GetForegroundWindow()), Low32(GetFocus()),
                        Low32(GetCapture()), Low32(GetProcessHeap())};
    snapshot.processId = GetCurrentProcessId();
    snapshot.threadId = GetCurrentThreadId();
    snapshot.messagePosition = GetMessagePos();
    snapshot.tickCount = GetTickCount();
    CopyBytes(snapshot.memoryStatus, ReadMemoryStatus());
    CopyBytes(snapshot.systemInfo, ReadSystemInfo());
    ReadCounter(snapshot);
    SYSTEMTIME time{};
    GetSystemTime(&time);
    CopyBytes(snapshot.systemTime, time);
    static_cast<void>(FillFromSystemRandom(snapshot.pointerHistory));
    CopyPointerHistory(snapshot.pointerHistory);
}

} // namespace quilla
