// A mounted volume whose system fails: a full disk, a file that was cut or removed from outside, no
// descriptors left; and a request that takes longer than a dismount may. The client is told with each request
// that fails, no other sector changes, and good requests go on.

#include "platform/disk_codes.h"
#include "quilladriver/volume_driver.h"
#include "tests/faults/exported_volume.h"
#include "tests/support/file_size_limit.h"

#include <algorithm>
#include <chrono>
#include <sys/resource.h>
#include <thread>

namespace quilla::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::uint64_t kVolumeSize = 4U << 20;

class FileFaultsTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(volume.Mount()); }

    ExportedVolume volume{kVolumeSize};
};

TEST_F(FileFaultsTest, AWriteThatTheDiskRefusesIsAnErrorAndTouchesNothingElse) {
    constexpr std::uint64_t kLimit = 1U << 20;
    constexpr std::uint64_t kFirst = kLimit - 96 * 1024;
    NbdClient client = volume.Connect();
    ASSERT_EQ(client.Write(0, Bytes(2 * kLimit, 0x11)), kOk);
    {
        const FileSizeLimit limit(kLimit);
        EXPECT_EQ(client.Write(kLimit, Bytes(4096, 0x22)), kEio);
        EXPECT_EQ(client.Do(kCmdWriteZeroes, kLimit + 4096, 4096), kEio);
        EXPECT_EQ(client.Write(kFirst, Bytes(128 * 1024, 0x22)), kEio) << "only three quarters of it fit";
        EXPECT_EQ(client.Write(kLimit + 10, Bytes(100, 0x22)), kEio) << "part of a sector";
        EXPECT_EQ(client.Write(0, Bytes(4096, 0x33)), kOk) << "where there is room";
        EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kOk);
    }
    EXPECT_EQ(client.Read(0, 4096), Bytes(4096, 0x33));
    EXPECT_EQ(client.Read(4096, kFirst - 4096), Bytes(kFirst - 4096, 0x11));
    const auto half = client.Read(kFirst, 128 * 1024);
    ASSERT_TRUE(half);
    for (std::size_t at = 0; at < half->size(); at += 512) { // sectors are wholly old or wholly new
        const auto sector = std::span(*half).subspan(at, 512);
        EXPECT_TRUE(sector[0] == 0x11 || sector[0] == 0x22) << at;
        EXPECT_EQ(std::ranges::count(sector, sector[0]), 512) << at;
    }
    EXPECT_EQ(client.Read(kFirst + 128 * 1024, 65536), Bytes(65536, 0x11));
    EXPECT_EQ(client.Write(kFirst, Bytes(128 * 1024, 0x44)), kOk) << "there is room again";
    EXPECT_TRUE(volume.Dismount());
}

TEST_F(FileFaultsTest, AFileThatWasCutTakesNothingMore) {
    constexpr std::uint64_t kEnd = (1U << 20) + 100;
    NbdClient client = volume.Connect();
    ASSERT_EQ(client.Write(0, Bytes(kVolumeSize, 0x11)), kOk);
    fs::resize_file(volume.Path(), kEnd);
    EXPECT_EQ(client.Do(kCmdRead, kEnd - 100, 512), kEio) << "less than a sector is left";
    EXPECT_EQ(client.Do(kCmdRead, kEnd - 4096, 8192), kEio);
    EXPECT_EQ(client.Write(2U << 20, Bytes(4096, 0x22)), kEio);
    EXPECT_EQ(client.Write((2U << 20) + 7, Bytes(1, 0x22)), kEio);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, 2U << 20, 4096), kEio);
    EXPECT_EQ(fs::file_size(volume.Path()), kEnd) << "a write extended the file over lost sectors";
    EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kEio) << "what was acknowledged before is gone";
    fs::resize_file(volume.Path(), kVolumeSize);
    EXPECT_EQ(client.Write(4096, Bytes(4096, 0x33)), kEio) << "the size is back, the content is not";
    EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kEio);
    EXPECT_EQ(client.Read(4096, 4096), Bytes(4096, 0x11));
    EXPECT_FALSE(volume.Dismount());
}

TEST_F(FileFaultsTest, WritesToAFileThatIsGoneFail) {
    NbdClient client = volume.Connect();
    ASSERT_EQ(client.Write(0, Bytes(4096, 0x11)), kOk);
    fs::remove(volume.Path());
    EXPECT_EQ(client.Write(0, Bytes(4096, 0x22)), kEio) << "nobody would ever find it again";
    EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kEio);
    EXPECT_EQ(client.Read(0, 4096), Bytes(4096, 0x11)) << "what is there can be rescued";
    EXPECT_FALSE(volume.Dismount());
}

TEST_F(FileFaultsTest, AClientThatCannotBeAcceptedIsServedLater) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const int next = dup(STDIN_FILENO);
    close(next);
    const rlimit oneLeft{static_cast<rlim_t>(next) + 1, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &oneLeft);
    NbdClient client(volume.Port()); // the server has no descriptor left for its end
    std::this_thread::sleep_for(150ms);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(client.Enter(kExport));
    EXPECT_EQ(client.Write(0, Bytes(512, 0x11)), kOk);
}

TEST(RefusalsTest, ADismountDoesNotWaitForAnEndlessRequest) {
    ExportedVolume volume(std::uint64_t{1} << 33);
    ASSERT_TRUE(volume.Mount({.stopMilliseconds = 100}));
    NbdClient client = volume.Connect();
    ASSERT_TRUE(client.SendRequest(kCmdWriteZeroes, 0, 0xFFFF'FE00));
    std::this_thread::sleep_for(20ms);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(volume.Dismount());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
    EXPECT_NE(client.ReceiveReply(), kOk);
}

TEST(RefusalsTest, TheDriverTellsWhatTheFileRefuses) {
    const ExportedVolume volume(64 * 512); // for its file
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    VolumeDriver driver([] { return std::uint64_t{1}; });
    ASSERT_TRUE(driver.Attach(volume.OpenFile(), record));
    fs::resize_file(volume.Path(), 512);
    const auto control = [&driver](std::uint32_t code, auto in) {
        std::uint32_t returned = 0;
        return driver.Control(code, std::as_writable_bytes(std::span(&in, 1)), {}, returned);
    };
    Bytes bytes(1024);
    const VolumeTransfer read{
        .offset = 1024, .length = 1024, .address = bytes.data(), .direction = TransferDirection::Read};
    VolumeTransfer write = read;
    write.direction = TransferDirection::Write;
    ScatterRequest scatter{};
    scatter.start = 2;
    scatter.sectorCount = 2;
    scatter.bufferCount = 2; // with a sector over both
    scatter.buffers[0] = {.address = bytes.data(), .length = 100};
    scatter.buffers[1] = {.address = bytes.data() + 100, .length = 924};
    EXPECT_EQ(control(IOCTL_VOLUME_TRANSFER, read), DriverStatus::ReadFault);
    EXPECT_EQ(control(IOCTL_VOLUME_TRANSFER, write), DriverStatus::WriteFault);
    EXPECT_EQ(control(IOCTL_DISK_READ, scatter), DriverStatus::ReadFault);
    EXPECT_EQ(control(IOCTL_DISK_WRITE, scatter), DriverStatus::WriteFault);
    EXPECT_EQ(control(IOCTL_DISK_FLUSH_CACHE, std::uint8_t{}), DriverStatus::WriteFault);
    EXPECT_EQ(fs::file_size(volume.Path()), 512U);
}

} // namespace
} // namespace quilla::test
