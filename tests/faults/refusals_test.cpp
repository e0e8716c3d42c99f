// A system that refuses what the server and the driver ask of it: a port, descriptors, parts of a file; and a
// client whose request takes longer than a dismount may.

#include "platform/disk_codes.h"
#include "quilladriver/volume_driver.h"
#include "tests/faults/exported_volume.h"

#include <chrono>
#include <sys/resource.h>
#include <thread>

namespace quilla::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr std::uint64_t kVolumeSize = 4U << 20;

/// While it lives, the process gets one more descriptor and no further one.
class OneDescriptorLeft {
  public:
    OneDescriptorLeft() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int next = dup(STDIN_FILENO);
        close(next);
        const rlimit now{static_cast<rlim_t>(next) + 1, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &now);
    }
    ~OneDescriptorLeft() { setrlimit(RLIMIT_NOFILE, &before_); }
    OneDescriptorLeft(const OneDescriptorLeft&) = delete;
    OneDescriptorLeft& operator=(const OneDescriptorLeft&) = delete;

  private:
    rlimit before_{};
};

TEST(RefusalsTest, AClientThatCannotBeAcceptedIsServedLater) {
    ExportedVolume volume(fs::temp_directory_path(), kVolumeSize);
    ASSERT_TRUE(volume.Mount());
    NbdClient client;
    {
        const OneDescriptorLeft limit;
        client = NbdClient(volume.Port()); // the server has none left for its end
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    }
    EXPECT_TRUE(client.Enter(kExport));
    EXPECT_EQ(client.Write(0, Bytes(512, 0x11)), kOk);
}

TEST(RefusalsTest, APortInUseStaysWithItsServer) {
    ExportedVolume volume(fs::temp_directory_path(), kVolumeSize);
    ASSERT_TRUE(volume.Mount());
    NbdServer second(volume.Device(), kExport);
    EXPECT_FALSE(second.Start(volume.Port()));
    EXPECT_EQ(volume.Connect().Write(0, Bytes(512, 0x11)), kOk);
}

TEST(RefusalsTest, ADismountDoesNotWaitForAnEndlessRequest) {
    constexpr std::uint32_t kAlmostAll = 0xFFFF'FE00;
    ExportedVolume volume(fs::temp_directory_path(), std::uint64_t{1} << 33);
    ASSERT_TRUE(volume.Mount());
    NbdServer server(volume.Device(), kExport, {.stopMilliseconds = 100});
    ASSERT_TRUE(server.Start());
    NbdClient client(server.Port());
    ASSERT_TRUE(client.Enter(kExport));
    ASSERT_TRUE(client.SendRequest(kCmdWriteZeroes, 0, kAlmostAll));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto begin = steady_clock::now();
    EXPECT_EQ(server.Stop().clientsCutOff, 1U);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_NE(client.ReceiveReply(), kOk);
}

TEST(RefusalsTest, TheDriverTellsWhatTheFileRefuses) {
    constexpr std::uint32_t kSectors = 64;
    ExportedVolume volume(fs::temp_directory_path(), std::uint64_t{kSectors} * 512); // for its file
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    VolumeDriver driver([] { return std::uint64_t{1}; });
    ASSERT_TRUE(driver.Attach(File::Open(volume.Path().c_str(), FileAccess::ReadWrite, FileSharing::None,
                                         FileCreation::OpenExisting),
                              record));
    fs::resize_file(volume.Path(), 512);
    Bytes bytes(1024);
    std::uint32_t returned = 0;
    const auto control = [&](std::uint32_t code, auto& in) {
        return driver.Control(code, std::as_writable_bytes(std::span(&in, 1)), {}, returned);
    };
    const auto transfer = [&](TransferDirection direction) {
        VolumeTransfer in{.offset = 1024, .length = 1024, .address = bytes.data(), .direction = direction};
        return control(kIoctlVolumeTransfer, in);
    };
    EXPECT_EQ(transfer(TransferDirection::Read), DriverStatus::ReadFault);
    EXPECT_EQ(transfer(TransferDirection::Write), DriverStatus::WriteFault);
    EXPECT_EQ(transfer(TransferDirection::WriteZeroes), DriverStatus::WriteFault);
    for (const std::uint32_t firstLength : {1024U, 100U}) { // one buffer, or a sector over two of them
        ScatterRequest request{};
        request.start = 2;
        request.sectorCount = 2;
        request.bufferCount = 2;
        request.buffers[0] = {.address = bytes.data(), .length = firstLength};
        request.buffers[1] = {.address = bytes.data() + firstLength, .length = 1024 - firstLength};
        EXPECT_EQ(control(kIoctlDiskRead, request), DriverStatus::ReadFault);
        EXPECT_EQ(control(kIoctlDiskWrite, request), DriverStatus::WriteFault);
    }
    EXPECT_EQ(driver.Control(kIoctlDiskFlushCache, {}, {}, returned), DriverStatus::WriteFault);
    EXPECT_EQ(fs::file_size(volume.Path()), 512U);
}

} // namespace
} // namespace quilla::test
