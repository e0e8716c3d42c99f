// Mounting and dismounting again and again, and volumes of a size that few disks have.

#include "quilladriver/volume_driver.h"
#include "tests/faults/exported_volume.h"

#include "platform/disk_codes.h"

#include <chrono>
#include <fstream>
#include <sys/stat.h>

#if defined(__SANITIZE_ADDRESS__)
/// Of the sanitizer's run-time library; GCC brings no header for it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(); // NOLINT(bugprone-reserved-identifier)
#endif

namespace quilla::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

std::size_t CountEntries(const char* folder) {
    const fs::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// KiB of memory in use: what is allocated where AddressSanitizer knows it, as it keeps freed memory back.
std::size_t MemoryInUse() {
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

TEST(MountCyclesTest, LeaveNothingBehind) {
    ExportedVolume volume(fs::temp_directory_path(), 1U << 20);
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    std::size_t files = 0;
    std::size_t memory = 0;
    const int rounds = Rounds(1000, 100'000);
    for (int i = 0; i < rounds; ++i) {
        record.Key.fill(static_cast<std::byte>(i));
        VolumeDriver driver([] { return std::uint64_t{1}; });
        ASSERT_TRUE(driver.Attach(File::Open(volume.Path().c_str(), FileAccess::ReadWrite, FileSharing::None,
                                             FileCreation::OpenExisting),
                                  record));
        std::byte sector[kSectorSize]{};
        VolumeTransfer transfer{.offset = 512U * static_cast<unsigned>(i % 2048),
                                .length = sizeof(sector),
                                .address = reinterpret_cast<std::uint8_t*>(sector),
                                .direction = TransferDirection::Write};
        std::uint32_t returned = 0;
        ASSERT_EQ(driver.Control(kIoctlVolumeTransfer, std::as_writable_bytes(std::span(&transfer, 1)), {},
                                 returned),
                  DriverStatus::Success);
        if (i == rounds / 10) {
            files = CountEntries("/proc/self/fd");
            memory = MemoryInUse();
        }
    }
    EXPECT_LE(CountEntries("/proc/self/fd"), files);
    EXPECT_LE(MemoryInUse(), memory + 256);
}

TEST(MountCyclesTest, ServersLeaveNothingBehind) {
    ExportedVolume volume(fs::temp_directory_path(), 1U << 20);
    std::size_t files = 0;
    std::size_t threads = 0;
    std::size_t memory = 0;
    const int rounds = Rounds(200, 20'000);
    for (int i = 0; i < rounds; ++i) {
        ASSERT_TRUE(volume.Mount());
        {
            NbdClient client = volume.Connect();
            ASSERT_EQ(client.Write(512U * static_cast<unsigned>(i % 2048), Bytes(512)), kOk);
        }
        ASSERT_TRUE(volume.Dismount());
        if (i == rounds / 10) {
            files = CountEntries("/proc/self/fd");
            threads = CountEntries("/proc/self/task");
            memory = MemoryInUse();
        }
    }
    EXPECT_LE(CountEntries("/proc/self/fd"), files);
    EXPECT_LE(CountEntries("/proc/self/task"), threads);
    EXPECT_LE(MemoryInUse(), memory + 256);
}

TEST(LargeVolumeTest, FourTebibytesMountAtOnceAndWorkToTheLastSector) {
    constexpr std::uint64_t kSize = std::uint64_t{4} << 40;
    const fs::path folder = fs::temp_directory_path();
    const fs::path probe = folder / ("quilla-large-" + std::to_string(getpid()));
    std::error_code error;
    std::ofstream(probe).close();
    fs::resize_file(probe, kSize, error);
    fs::remove(probe);
    if (error)
        GTEST_SKIP() << "this file system has no files of 4 TiB: " << error.message();
    ExportedVolume volume(folder, kSize);
    const auto start = Clock::now();
    ASSERT_TRUE(volume.Mount());
    NbdClient client = volume.Connect();
    const auto elapsed = Clock::now() - start;
    EXPECT_LT(elapsed, std::chrono::seconds(1));
    for (const std::uint64_t offset : {std::uint64_t{0}, kSize / 2 - 1024, kSize / 2 + 5, kSize - 4096}) {
        const Bytes payload(4096 - offset % 512, static_cast<std::uint8_t>(offset >> 9 | 1));
        ASSERT_EQ(client.Write(offset, payload), kOk) << offset;
        EXPECT_EQ(client.Read(offset, static_cast<std::uint32_t>(payload.size())), payload) << offset;
    }
    EXPECT_EQ(client.Write(kSize - 512, Bytes(1024)), kEnospc);
    EXPECT_TRUE(volume.Dismount());
    struct stat status {};
    ASSERT_EQ(stat(volume.Path().c_str(), &status), 0);
    EXPECT_LT(status.st_blocks, 2048) << "the file is no longer sparse";
}

} // namespace
} // namespace quilla::test
