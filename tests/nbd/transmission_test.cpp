// Requests inside the export: data, bounds, faults of the device.

#include "tests/nbd/server_fixture.h"

namespace quilla::test {
namespace {

class TransmissionTest : public ServerTest {
  protected:
    void SetUp() override {
        ServerTest::SetUp();
        client = Connect();
        ASSERT_TRUE(client.Enter(kName));
    }
    NbdClient client;
};

TEST_F(TransmissionTest, ReadsAndWritesAnyRangeLikeAModel) {
    Bytes model = Stored(0, kSize);
    Random random(1);
    for (unsigned i = 0; i < 400; ++i) {
        const std::uint32_t length = random.Below(i % 20 == 0 ? 3'000'000 : 2000);
        const std::uint32_t offset = random.Below(kSize - length);
        const auto at = model.begin() + offset;
        switch (random.Below(3)) {
        case 0:
            std::generate_n(at, length, [&random] { return random.Byte(); });
            ASSERT_EQ(client.Write(offset, Bytes(at, at + length), i % 2), kOk);
            break;
        case 1:
            ASSERT_EQ(client.Do(kCmdWriteZeroes, offset, length, {}, i % 4), kOk);
            std::fill_n(at, length, std::uint8_t{0});
            break;
        default:
            ASSERT_EQ(client.Read(offset, length), Bytes(at, at + length)) << offset << " " << length;
        }
    }
    EXPECT_TRUE(Stored(0, kSize) == model);
}

TEST_F(TransmissionTest, ChecksBoundsFlagsAndLengths) {
    constexpr std::uint64_t kFar = ~std::uint64_t{0};
    const struct {
        std::uint16_t command;
        std::uint16_t flags;
        std::uint64_t offset;
        std::uint32_t length;
        std::uint32_t error;
    } kCases[] = {
        {kCmdRead, 0, kSize, 0, kOk},
        {kCmdRead, 0, kSize - 1, 2, kEinval},
        {kCmdRead, 0, kFar - 511, 512, kEinval},
        {kCmdRead, 0, 0, (32U << 20) + 1, kEinval},
        {kCmdRead, kDontFragment, 0, 512, kEinval},
        {kCmdWrite, 0, kSize - 511, 512, kEnospc},
        {kCmdWrite, 0, 0, (32U << 20) + 512, kEinval},
        {kCmdWrite, 0x8000, 0, 4096, kEinval},
        {kCmdWriteZeroes, 0, 1, kSize, kEnospc},
        {kCmdWriteZeroes, 0, kFar, 0xFFFFFFFF, kEnospc},
        {kCmdWriteZeroes, 16, 0, 512, kEinval},
        {kCmdTrim, 0, 0, 512, kEinval},
        {0xFFFF, 0xFFFF, kFar, 0xFFFFFFFF, kEinval},
    };
    const Bytes before = Stored(0, kSize);
    for (const auto& one : kCases) {
        const Bytes payload(one.command == kCmdWrite ? one.length : 0, 0x55);
        EXPECT_EQ(client.Do(one.command, one.offset, one.length, payload, one.flags), one.error)
            << one.command << " " << one.flags << " " << one.offset << " " << one.length;
    }
    EXPECT_TRUE(Stored(0, kSize) == before) << "a refused request changed something";
}

TEST_F(TransmissionTest, ReportsFaultsOfTheDeviceAndGoesOn) {
    device.badSector = 1000; // in the second piece of the long write
    const Bytes before = Stored(0, kSize);
    EXPECT_EQ(client.Do(kCmdRead, 0, 1 << 20), kEio);
    EXPECT_EQ(client.Write(1000 * 512 + 1, Bytes(10)), kEio);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, 999 * 512, 1024), kEio);
    EXPECT_TRUE(Stored(0, kSize) == before);
    EXPECT_EQ(client.Write(100 * 512, Bytes(4 << 20, 9)), kEio);
    EXPECT_EQ(Stored(1000 * 512, 512), Bytes(before.begin() + 1000 * 512, before.begin() + 1001 * 512));
    EXPECT_EQ(client.Read(1001 * 512, 512), Stored(1001 * 512, 512));
}

/// The header of so long a reply has gone out before the fault is met; ending the connection is the only
/// truth left.
TEST_F(TransmissionTest, ALongReadThatFailsLateNeverDeliversInventedData) {
    device.badSector = 10'000;
    NbdClient other = Connect();
    ASSERT_TRUE(other.Enter(kName));
    EXPECT_EQ(client.Do(kCmdRead, 0, 6 << 20), kOk);
    EXPECT_FALSE(client.Receive(6 << 20)) << "the connection ends before the data is complete";
    EXPECT_EQ(other.Read(512, 512), Stored(512, 512));
}

TEST_F(TransmissionTest, FlushesWhenToldAndSaysWhenItFails) {
    EXPECT_EQ(client.Write(0, Bytes(512)), kOk);
    EXPECT_EQ(device.flushes, 0);
    EXPECT_EQ(client.Write(0, Bytes(512), kFua), kOk);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, 0, 512, {}, kFua | kNoHole), kOk);
    EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kOk);
    EXPECT_EQ(device.flushes, 3);
    device.flushFails = true;
    EXPECT_EQ(client.Write(0, Bytes(512), kFua), kEio);
    EXPECT_EQ(client.Do(kCmdFlush, 0, 0), kEio);
    EXPECT_EQ(client.Read(0, 512), Bytes(512));
}

} // namespace
} // namespace quilla::test
