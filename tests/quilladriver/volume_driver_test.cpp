// The control codes, with good and with broken records.

#include "quilladriver/volume_driver.h"

#include "tests/quilladriver/volume_fixture.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <future>
#include <thread>

namespace quilla {
namespace {

using test::RandomSectors;
using test::SectorBytes;

constexpr std::size_t kSectors = 2000;

class VolumeDriverTest : public test::VolumeTest {
  protected:
    VolumeDriverTest() {
        CreateVolume(kSectors * kSectorSize + 77);
        CopyText(record_.Path, QUILLA_TEXT("\\Storage\\My.Data.raw"));
        record_.Cipher = CipherId::Twofish;
        record_.Key = RandomSectors(9).MakeKey();
        EXPECT_TRUE(driver_.Attach(OpenVolume(), record_));
    }

    DriverStatus Control(std::uint32_t code, std::span<std::byte> in = {}, std::span<std::byte> out = {}) {
        return driver_.Control(code, in, out, returned_);
    }

    template <typename Record>
    static std::span<std::byte> BytesOf(Record& record) {
        return std::as_writable_bytes(std::span(&record, 1));
    }

    DriverStatus Transfer(TransferDirection direction, std::uint64_t offset, SectorBytes& bytes) {
        VolumeTransfer transfer{.offset = offset,
                                .length = bytes.size(),
                                .address = reinterpret_cast<std::uint8_t*>(bytes.data()),
                                .direction = direction};
        return Control(IOCTL_VOLUME_TRANSFER, BytesOf(transfer));
    }

    /// A request for sectors over consecutive pieces of a buffer.
    static ScatterRequest Scatter(std::uint32_t start, SectorBytes& bytes,
                                  std::initializer_list<std::uint32_t> lengths) {
        ScatterRequest request{};
        request.start = start;
        request.sectorCount = static_cast<std::uint32_t>(bytes.size() / kSectorSize);
        request.status = 0xFFFF;
        auto* address = reinterpret_cast<std::uint8_t*>(bytes.data());
        for (const std::uint32_t length : lengths) {
            request.buffers[request.bufferCount++] = {.address = address, .length = length};
            address += length;
        }
        return request;
    }

    VolumeRecord record_{};
    VolumeDriver driver_{test::Ticks};
    std::uint32_t returned_ = 0;
};

TEST_F(VolumeDriverTest, TellsGeometryLengthAndName) {
    for (const std::uint32_t code : {IOCTL_DISK_GETINFO, DISK_IOCTL_GETINFO}) {
        DiskInfo info{};
        ASSERT_EQ(Control(code, {}, BytesOf(info)), DriverStatus::Success);
        EXPECT_EQ(returned_, sizeof(info));
        EXPECT_EQ(info.totalSectors, kSectors);
        EXPECT_EQ(info.bytesPerSector, kSectorSize);
        DiskInfo asInput{};
        EXPECT_EQ(Control(code, BytesOf(asInput)), DriverStatus::Success);
        EXPECT_EQ(asInput.totalSectors, kSectors);
        EXPECT_EQ(Control(code, {}, BytesOf(info).first(23)), DriverStatus::InsufficientBuffer);
        EXPECT_EQ(Control(code), DriverStatus::InsufficientBuffer);
    }
    std::uint64_t length = 0;
    EXPECT_EQ(Control(IOCTL_DISK_GET_LENGTH_INFO, {}, BytesOf(length)), DriverStatus::Success);
    EXPECT_EQ(length, kSectors * kSectorSize);
    PathText name{};
    EXPECT_EQ(Control(DISK_IOCTL_GETNAME, {}, BytesOf(name)), DriverStatus::Success);
    EXPECT_EQ(FieldText(name), TextView(QUILLA_TEXT("My.Data")));
    EXPECT_EQ(returned_, 16U);
    EXPECT_EQ(Control(DISK_IOCTL_GETNAME, {}, BytesOf(name).first(14)), DriverStatus::InsufficientBuffer);
    EXPECT_EQ(Control(0x12345678), DriverStatus::NotSupported);
}

TEST_F(VolumeDriverTest, ScatterRequestsAndTransfersSeeTheSameSectors) {
    RandomSectors random(10);
    constexpr std::size_t kCount = 300; // more than one piece
    const SectorBytes plain = random.MakeSectors(kCount);
    const auto whole = static_cast<std::uint32_t>(plain.size());
    for (const std::uint32_t cut : {512U, 1U, 511U, 70'001U, whole - 513}) {
        SectorBytes payload = plain;
        const std::uint32_t rest = whole - cut;
        ScatterRequest write = Scatter(17, payload, {cut, 0, rest / 2, rest - rest / 2});
        ASSERT_EQ(Control(cut % 2 != 0 ? IOCTL_DISK_WRITE : DISK_IOCTL_WRITE, BytesOf(write)),
                  DriverStatus::Success);
        EXPECT_EQ(write.status, 0U);
        EXPECT_EQ(payload, plain) << "the caller's buffers were changed";

        SectorBytes direct(whole);
        ASSERT_EQ(Transfer(TransferDirection::Read, 17 * kSectorSize, direct), DriverStatus::Success);
        EXPECT_EQ(direct, plain);
        SectorBytes read(whole);
        ScatterRequest request = Scatter(17, read, {rest, cut});
        ASSERT_EQ(Control(cut % 2 != 0 ? IOCTL_DISK_READ : DISK_IOCTL_READ, BytesOf(request)),
                  DriverStatus::Success);
        EXPECT_EQ(read, plain);
    }
    SectorBytes part(kSectorSize);
    VolumeTransfer zeroes{.offset = 18 * kSectorSize,
                          .length = kSectorSize,
                          .address = nullptr,
                          .direction = TransferDirection::WriteZeroes};
    EXPECT_EQ(Control(IOCTL_VOLUME_TRANSFER, BytesOf(zeroes)), DriverStatus::Success);
    EXPECT_EQ(Transfer(TransferDirection::Read, 18 * kSectorSize, part), DriverStatus::Success);
    EXPECT_EQ(part, SectorBytes(kSectorSize));
    EXPECT_EQ(Control(IOCTL_DISK_FLUSH_CACHE), DriverStatus::Success);
}

/// What else can be wrong with a scatter request is left to the fuzz target.
TEST_F(VolumeDriverTest, RefusesBrokenRequests) {
    static ScatterRequest* completed;
    completed = nullptr;
    SectorBytes bytes(2 * kSectorSize, std::byte{1});
    ScatterRequest request = Scatter(kSectors - 1, bytes, {1024}); // reaches beyond the end
    request.completion = [](ScatterRequest* done) {
        completed = done;
        return std::uint32_t{0};
    };
    EXPECT_EQ(Control(IOCTL_DISK_READ, BytesOf(request)), DriverStatus::InvalidParameter);
    EXPECT_EQ(request.status, static_cast<std::uint32_t>(DriverStatus::InvalidParameter));
    EXPECT_EQ(completed, &request);
    request = Scatter(0, bytes, {1024});
    request.buffers[0].address = nullptr;
    EXPECT_EQ(Control(IOCTL_DISK_WRITE, BytesOf(request)), DriverStatus::InvalidParameter);

    VolumeTransfer nowhere{
        .offset = 0, .length = 512, .address = nullptr, .direction = TransferDirection::Read};
    EXPECT_EQ(Control(IOCTL_VOLUME_TRANSFER, BytesOf(nowhere)), DriverStatus::InvalidParameter);
    EXPECT_EQ(Control(IOCTL_VOLUME_QUERY, BytesOf(record_).first(1127)), DriverStatus::InvalidParameter);
    EXPECT_EQ(Control(IOCTL_VOLUME_UPDATE), DriverStatus::InvalidParameter);
    EXPECT_EQ(Control(IOCTL_DISK_INITIALIZED), DriverStatus::InvalidParameter);
    EXPECT_EQ(bytes, SectorBytes(2 * kSectorSize, std::byte{1}));
}

TEST_F(VolumeDriverTest, TellsTheActivityTimeAndNothingElse) {
    VolumeRecord expected = record_;
    record_.ActivityTime = 0;
    EXPECT_EQ(Control(IOCTL_VOLUME_QUERY, BytesOf(record_)), DriverStatus::Success);
    EXPECT_EQ(std::memcmp(&expected, &record_, sizeof(expected)), 0);
    EXPECT_EQ(Control(IOCTL_VOLUME_UPDATE, BytesOf(record_)), DriverStatus::Success);
}

TEST_F(VolumeDriverTest, DetachLetsRunningRequestsFinishAndReleasesTheFile) {
    EXPECT_FALSE(OpenVolume().IsOpen());
    const auto writeUntilRefused = [this] {
        SectorBytes bytes(kSectors * kSectorSize); // long enough to be under way at any moment
        VolumeTransfer transfer{.offset = 0,
                                .length = bytes.size(),
                                .address = reinterpret_cast<std::uint8_t*>(bytes.data()),
                                .direction = TransferDirection::Write};
        DriverStatus status = DriverStatus::Success;
        for (std::uint32_t returned = 0; status == DriverStatus::Success;)
            status = driver_.Control(IOCTL_VOLUME_TRANSFER, BytesOf(transfer), {}, returned);
        return status;
    };
    std::array<std::future<DriverStatus>, 4> loads;
    for (auto& load : loads)
        load = std::async(std::launch::async, writeUntilRefused);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(Control(IOCTL_VOLUME_DETACH), DriverStatus::Success);
    EXPECT_TRUE(OpenVolume().IsOpen());
    for (auto& load : loads)
        EXPECT_EQ(load.get(), DriverStatus::NotReady);
    EXPECT_EQ(Control(IOCTL_DISK_FLUSH_CACHE), DriverStatus::NotReady);
    EXPECT_EQ(Control(IOCTL_VOLUME_DETACH), DriverStatus::Success);
}

} // namespace
} // namespace quilla
