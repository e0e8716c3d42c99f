#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <vector>
#include <windows.h>

namespace quilla::test {

/// While it lives, this process gets no more memory than a margin above what it has: the system's own
/// refusal. Windows has job objects for that; Wine has not, so there the limit of its host is set.
class MemoryLimit {
  public:
    explicit MemoryLimit(std::size_t margin) {
        if (IsWine()) {
            TakeReservedRanges(margin);
            LimitHost(HostMemory() + margin);
        } else {
            LimitJob(margin);
        }
    }
    ~MemoryLimit() {
        if (IsWine())
            LimitHost(~std::uint64_t{0});
        else
            LimitJob(0);
        for (void* const range : ranges_)
            VirtualFree(range, 0, MEM_RELEASE);
    }
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

  private:
    static bool IsWine() {
        return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    }

    /// A call of the Linux kernel, which Wine passes through.
    static std::int64_t CallHost(std::int64_t number, std::int64_t first, const void* second,
                                 const void* third, std::int64_t fourth) {
        std::int64_t result = 0;
        register std::int64_t r10 asm("r10") = fourth;
        asm volatile("syscall"
                     : "=a"(result)
                     : "a"(number), "D"(first), "S"(second), "d"(third), "r"(r10)
                     : "rcx", "r11", "memory");
        return result;
    }

    /// Wine has reserved addresses below 4 GiB, and what is mapped there is not held against the limit.
    void TakeReservedRanges(std::size_t margin) {
        for (std::size_t size = std::size_t{1} << 30; size >= margin / 2; size /= 2)
            for (bool isLow = true; isLow;) {
                void* const range = VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS);
                isLow = range && reinterpret_cast<std::uintptr_t>(range) < std::uint64_t{1} << 32;
                if (isLow)
                    ranges_.push_back(range);
                else if (range)
                    VirtualFree(range, 0, MEM_RELEASE);
            }
    }

    static void LimitHost(std::uint64_t size) {
        constexpr std::int64_t kPrlimit64 = 302;
        constexpr std::int64_t kDataLimit = 2; // RLIMIT_DATA: private memory that can be written
        const std::uint64_t limits[] = {size, ~std::uint64_t{0}};
        EXPECT_EQ(CallHost(kPrlimit64, 0, reinterpret_cast<const void*>(kDataLimit), limits, 0), 0);
    }

    /// What counts for the limit, as /proc/self/statm tells it.
    static std::uint64_t HostMemory() {
        constexpr std::int64_t kOpen = 2, kRead = 0, kClose = 3;
        char text[256] = {};
        const std::int64_t file =
            CallHost(kOpen, reinterpret_cast<std::int64_t>("/proc/self/statm"), nullptr, nullptr, 0);
        CallHost(kRead, file, text, reinterpret_cast<const void*>(sizeof(text) - 1), 0);
        CallHost(kClose, file, nullptr, nullptr, 0);
        char* next = text;
        for (int i = 0; i < 5; ++i) // the sixth number is the data's
            std::strtoull(next, &next, 10);
        const std::uint64_t pages = std::strtoull(next, nullptr, 10);
        EXPECT_GT(pages, 0U) << text;
        return pages * 4096;
    }

    /// 0 lifts the limit again; the process stays in its job.
    static void LimitJob(std::size_t size) {
        static const HANDLE job = [] {
            const HANDLE created = CreateJobObjectW(nullptr, nullptr);
            EXPECT_TRUE(AssignProcessToJobObject(created, GetCurrentProcess()));
            return created;
        }();
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION information{};
        QueryInformationJobObject(job, JobObjectExtendedLimitInformation, &information, sizeof(information),
                                  nullptr);
        information.BasicLimitInformation.LimitFlags = size > 0 ? JOB_OBJECT_LIMIT_PROCESS_MEMORY : 0;
        information.ProcessMemoryLimit = information.PeakProcessMemoryUsed + size;
        EXPECT_TRUE(SetInformationJobObject(job, JobObjectExtendedLimitInformation, &information,
                                            sizeof(information)));
    }

    std::vector<void*> ranges_;
};

} // namespace quilla::test
