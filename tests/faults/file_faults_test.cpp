// A mounted volume whose file fails: a full disk, a file that was cut or removed from outside, errors of the
// disk. The client is told with each request that fails, no other sector changes, and good requests go on.

#include "tests/faults/exported_volume.h"
#include "tests/support/file_size_limit.h"

#include <cerrno>
#include <cstring>
#include <sys/mount.h>

namespace quilla::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kVolumeSize = 4U << 20;

class FileFaultsTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(volume.Mount()); }

    ExportedVolume volume{fs::temp_directory_path(), kVolumeSize};
};

/// Every sector is either wholly the old or wholly the new one.
void ExpectOldOrNew(const Bytes& found, std::uint8_t oldByte, std::uint8_t newByte) {
    for (std::size_t at = 0; at < found.size(); at += 512) {
        const std::uint8_t first = found[at];
        EXPECT_TRUE(first == oldByte || first == newByte) << "sector " << at / 512;
        EXPECT_EQ(Bytes(found.begin() + static_cast<long>(at), found.begin() + static_cast<long>(at) + 512),
                  Bytes(512, first));
    }
}

TEST_F(FileFaultsTest, AWriteThatTheDiskRefusesIsAnErrorAndTouchesNothingElse) {
    constexpr std::uint64_t kLimit = 1U << 20;
    constexpr std::uint64_t kFirst = kLimit - 64 * 1024;
    NbdClient client = volume.Connect();
    ASSERT_EQ(client.Write(0, Bytes(2 * kLimit, 0x11)), kOk);
    {
        const FileSizeLimit limit(kLimit);
        EXPECT_EQ(client.Write(kLimit, Bytes(4096, 0x22)), kEio);
        EXPECT_EQ(client.Do(kCmdWriteZeroes, kLimit + 4096, 4096), kEio);
        EXPECT_EQ(client.Write(kFirst, Bytes(128 * 1024, 0x22)), kEio) << "only half of it fits";
        EXPECT_EQ(client.Write(kLimit + 10, Bytes(100, 0x22)), kEio) << "part of a sector";
        EXPECT_EQ(client.Write(0, Bytes(4096, 0x33)), kOk) << "where there is room";
        EXPECT_EQ(client.Read(kLimit, 65536), Bytes(65536, 0x11)) << "reads go on";
        EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kOk);
    }
    EXPECT_EQ(client.Read(0, 4096), Bytes(4096, 0x33));
    EXPECT_EQ(client.Read(4096, kFirst - 4096), Bytes(kFirst - 4096, 0x11));
    const auto half = client.Read(kFirst, 128 * 1024);
    ASSERT_TRUE(half);
    ExpectOldOrNew(*half, 0x11, 0x22);
    EXPECT_EQ(client.Read(kFirst + 128 * 1024, 65536), Bytes(65536, 0x11));
    EXPECT_EQ(client.Write(kFirst, Bytes(128 * 1024, 0x44)), kOk) << "there is room again";
    EXPECT_EQ(client.Read(kFirst, 128 * 1024), Bytes(128 * 1024, 0x44));
    EXPECT_TRUE(volume.Dismount());
}

TEST_F(FileFaultsTest, BehindTheEndOfAFileThatWasCutEveryRequestFails) {
    constexpr std::uint64_t kEnd = (1U << 20) + 100;
    NbdClient client = volume.Connect();
    ASSERT_EQ(client.Write(0, Bytes(kVolumeSize, 0x11)), kOk);
    fs::resize_file(volume.Path(), kEnd);
    EXPECT_EQ(client.Do(kCmdRead, kEnd - 100, 512), kEio) << "less than a sector is left";
    EXPECT_EQ(client.Do(kCmdRead, kEnd - 4096, 8192), kEio);
    EXPECT_EQ(client.Do(kCmdRead, kVolumeSize - 512, 512), kEio);
    EXPECT_EQ(client.Write(2U << 20, Bytes(4096, 0x22)), kEio);
    EXPECT_EQ(client.Write((2U << 20) + 7, Bytes(1, 0x22)), kEio);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, 2U << 20, 4096), kEio);
    EXPECT_EQ(fs::file_size(volume.Path()), kEnd) << "a write extended the file over lost sectors";
    EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kEio) << "what was acknowledged before is gone";
    EXPECT_EQ(client.Read(0, 1U << 20), Bytes(1U << 20, 0x11));
    EXPECT_EQ(client.Write(4096, Bytes(4096, 0x33)), kOk);
    EXPECT_EQ(client.Read(4096, 4096), Bytes(4096, 0x33));
    EXPECT_FALSE(volume.Dismount());
}

/// The header of so long a reply has gone out before the fault is met; ending the connection is the only
/// truth left.
TEST_F(FileFaultsTest, ALongReadThatFailsLateEndsTheConnection) {
    fs::resize_file(volume.Path(), 3U << 20);
    NbdClient client = volume.Connect();
    ASSERT_EQ(client.Do(kCmdRead, 0, kVolumeSize), kOk);
    EXPECT_FALSE(client.Receive(kVolumeSize));
    NbdClient next = volume.Connect();
    EXPECT_TRUE(next.Read(0, 3U << 20));
}

TEST_F(FileFaultsTest, WritesToAFileThatIsGoneFail) {
    NbdClient client = volume.Connect();
    ASSERT_EQ(client.Write(0, Bytes(4096, 0x11)), kOk);
    fs::remove(volume.Path());
    EXPECT_EQ(client.Write(0, Bytes(4096, 0x22)), kEio) << "nobody would ever find it again";
    EXPECT_EQ(client.Write(4096, Bytes(512, 0x22), kFua), kEio);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, 0, 512), kEio);
    EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kEio);
    EXPECT_EQ(client.Read(0, 4096), Bytes(4096, 0x11)) << "what is there can be rescued";
    EXPECT_FALSE(volume.Dismount());
}

TEST(FullDiskTest, AFullFileSystemIsAnErrorUntilThereIsRoomAgain) {
    const fs::path folder = fs::temp_directory_path() / ("quilla-full-" + std::to_string(getpid()));
    fs::create_directory(folder);
    if (mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=1m") != 0) {
        fs::remove(folder);
        GTEST_SKIP() << "cannot mount a small file system here: " << std::strerror(errno);
    }
    {
        const fs::path ballast = folder / "ballast";
        ExportedVolume volume(folder, kVolumeSize); // sparse: larger than the disk
        ASSERT_TRUE(volume.Mount());
        NbdClient client = volume.Connect();
        ASSERT_EQ(client.Write(0, Bytes(256 * 1024, 0x11)), kOk);
        {
            const File file =
                File::Open(ballast.c_str(), FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
            const Bytes filling(1U << 20);
            EXPECT_FALSE(file.WriteAt(0, std::as_bytes(std::span(filling))).succeeded);
        }
        EXPECT_EQ(client.Write(1U << 20, Bytes(128 * 1024, 0x22)), kEio);
        EXPECT_EQ(client.Write(0, Bytes(256 * 1024, 0x33)), kOk) << "these sectors have their room";
        EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kOk);
        fs::remove(ballast);
        EXPECT_EQ(client.Write(1U << 20, Bytes(128 * 1024, 0x22)), kOk);
        EXPECT_EQ(client.Read(1U << 20, 128 * 1024), Bytes(128 * 1024, 0x22));
        EXPECT_EQ(client.Read(0, 256 * 1024), Bytes(256 * 1024, 0x33));
        EXPECT_TRUE(volume.Dismount());
    }
    EXPECT_EQ(umount(folder.c_str()), 0);
    fs::remove(folder);
}

} // namespace
} // namespace quilla::test
