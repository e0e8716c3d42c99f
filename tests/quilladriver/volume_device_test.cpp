// The block device over real files: bounds, activity and parallel requests. Its format is compared with other
// libraries in fuzz/ and tests/endtoend/volume_data_test.py.

#include "tests/quilladriver/volume_fixture.h"

#include <algorithm>
#include <array>
#include <future>
#include <limits>

namespace quilla {
namespace {

using test::RandomSectors;
using test::SectorBytes;
using VolumeDeviceTest = test::VolumeTest;

TEST_F(VolumeDeviceTest, RefusesWhatIsNotInsideTheDevice) {
    CreateVolume(64 * kSectorSize + 100);
    VolumeDevice device(test::Ticks);
    ASSERT_TRUE(device.Open(OpenVolume(), CipherId::Twofish, DataKey{}));
    constexpr std::uint64_t kEnd = 64 * kSectorSize;
    constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max() - (kSectorSize - 1);
    SectorBytes buffer(2 * kSectorSize, std::byte{0xA5});
    const SectorBytes before = buffer;
    const std::uint64_t activity = device.LastActivity();
    for (const std::uint64_t offset : {kEnd, kEnd - kSectorSize, kHuge, kHuge - kSectorSize, std::uint64_t{1},
                                       std::uint64_t{100}, std::uint64_t{1} << 63}) {
        EXPECT_FALSE(device.Read(offset, buffer)) << offset;
        EXPECT_FALSE(device.Write(offset, buffer)) << offset;
        EXPECT_FALSE(device.WriteZeroes(offset, 2 * kSectorSize)) << offset;
    }
    EXPECT_FALSE(device.Read(0, std::span(buffer).first(100)));
    EXPECT_FALSE(device.WriteZeroes(kSectorSize, kHuge));
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(device.LastActivity(), activity);
    EXPECT_TRUE(device.Read(kEnd, {}));
    device.Close();
    EXPECT_FALSE(device.Read(0, buffer));
    EXPECT_FALSE(device.Flush());
    EXPECT_EQ(RawBytes(0, kEnd + 100), SectorBytes(kEnd + 100));
}

TEST_F(VolumeDeviceTest, RefusesVolumesItCannotServe) {
    VolumeDevice device(test::Ticks);
    EXPECT_FALSE(device.Open(File(), CipherId::Twofish, DataKey{}));
    CreateVolume(kSectorSize - 1);
    EXPECT_FALSE(device.Open(OpenVolume(), CipherId::Twofish, DataKey{}));
    CreateVolume(kSectorSize);
    EXPECT_FALSE(device.Open(OpenVolume(), CipherId{3}, DataKey{}));
    EXPECT_TRUE(OpenVolume().IsOpen()); // the refused device holds nothing
    EXPECT_TRUE(device.Open(OpenVolume(), CipherId::Twofish, DataKey{}));
    EXPECT_EQ(device.SectorCount(), 1U);
}

TEST_F(VolumeDeviceTest, NotesReadsAndWritesAsActivity) {
    CreateVolume(16 * kSectorSize);
    VolumeDevice device(test::Ticks);
    ASSERT_TRUE(device.Open(OpenVolume(), CipherId::None, DataKey{}));
    SectorBytes buffer(kSectorSize);
    std::uint64_t last = device.LastActivity();
    EXPECT_GT(last, 1000U);
    const auto moved = [&] { return std::exchange(last, device.LastActivity()) != device.LastActivity(); };
    EXPECT_TRUE(device.Read(0, buffer));
    EXPECT_TRUE(moved());
    EXPECT_TRUE(device.Write(0, buffer));
    EXPECT_TRUE(moved());
    EXPECT_TRUE(device.WriteZeroes(0, kSectorSize));
    EXPECT_TRUE(moved());
    EXPECT_TRUE(device.Flush()); // writes nothing new
    EXPECT_FALSE(moved());
}

/// Works on a part of a volume that belongs to nobody else and knows what must be in it; returns the number
/// of requests that failed or brought something else.
int WorkOnPart(VolumeDevice& device, std::uint64_t first, std::size_t sectors) {
    RandomSectors random(static_cast<std::uint32_t>(first));
    SectorBytes model(sectors * kSectorSize);
    int faults = !device.WriteZeroes(first * kSectorSize, model.size());
    for (int i = 0; i < 200; ++i) {
        const std::size_t count = 1 + random.Below(80);
        const std::size_t start = random.Below(static_cast<std::uint32_t>(sectors - count));
        const std::span mine = std::span(model).subspan(start * kSectorSize, count * kSectorSize);
        SectorBytes bytes = random.MakeSectors(count);
        if (i % 2 == 0) {
            std::ranges::copy(bytes, mine.begin());
            faults += !device.Write((first + start) * kSectorSize, bytes);
        } else {
            faults += !device.Read((first + start) * kSectorSize, bytes) || !std::ranges::equal(bytes, mine);
        }
    }
    return faults;
}

TEST_F(VolumeDeviceTest, ParallelRequestsKeepToTheModel) {
    constexpr std::size_t kSectors = 300;
    for (const CipherId cipherId : {CipherId::Cast128, CipherId::Twofish}) {
        std::array<std::future<int>, 6> workers;
        CreateVolume(workers.size() * kSectors * kSectorSize);
        VolumeDevice device(test::Ticks);
        ASSERT_TRUE(device.Open(OpenVolume(), cipherId, RandomSectors(8).MakeKey()));
        for (std::size_t i = 0; i < workers.size(); ++i)
            workers[i] = std::async(std::launch::async, WorkOnPart, std::ref(device), i * kSectors, kSectors);
        for (std::future<int>& worker : workers)
            EXPECT_EQ(worker.get(), 0);
    }
}

} // namespace
} // namespace quilla
