// Mounting and dismounting again and again.

#include "tests/faults/exported_volume.h"

#include <fstream>
#include <iterator>

#if defined(__SANITIZE_ADDRESS__)
/// Of the sanitizer's run-time library; GCC brings no header for it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(); // NOLINT(bugprone-reserved-identifier)
#endif

namespace quilla::test {
namespace {

/// What this process holds of the system.
struct Holdings {
    std::size_t files = CountEntries("/proc/self/fd");
    std::size_t threads = CountEntries("/proc/self/task");
    std::size_t kibibytes = MemoryInUse();

    static std::size_t CountEntries(const char* folder) {
        const std::filesystem::directory_iterator entries(folder);
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

    /// What is allocated where AddressSanitizer knows it, as it keeps freed memory back.
    static std::size_t MemoryInUse() {
#if defined(__SANITIZE_ADDRESS__)
        return __sanitizer_get_current_allocated_bytes() / 1024;
#elif defined(__SANITIZE_THREAD__)
        return 0;
#else
        std::ifstream file("/proc/self/statm");
        std::size_t pages = 0;
        file >> pages >> pages;
        return pages * 4;
#endif
    }
};

TEST(MountCyclesTest, LeaveNothingBehind) {
    ExportedVolume volume(1U << 20);
    Holdings before;
    const int rounds = Rounds(200, 20'000);
    for (int i = 0; i < rounds; ++i) {
        ASSERT_TRUE(volume.Mount());
        ASSERT_EQ(volume.Connect().Write(512U * static_cast<unsigned>(i % 2048), Bytes(512)), kOk);
        ASSERT_TRUE(volume.Dismount());
        if (i == rounds / 10)
            before = Holdings();
    }
    const Holdings after;
    EXPECT_LE(after.files, before.files);
    EXPECT_LE(after.threads, before.threads);
    EXPECT_LE(after.kibibytes, before.kibibytes + 256);
}

} // namespace
} // namespace quilla::test
