// Requests inside the export: data, bounds, faults of the device and of the peer.

#include "tests/nbd/server_fixture.h"

namespace quilla::test {
namespace {

constexpr std::uint32_t kSize = 8U << 20;

Bytes Pattern(std::size_t length, unsigned seed) {
    Random random(seed);
    Bytes bytes(length);
    for (std::uint8_t& byte : bytes)
        byte = random.Byte();
    return bytes;
}

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
        const unsigned spread = i % 20 == 0 ? 3'000'000 : i % 3 == 0 ? 2000 : 600;
        const std::uint32_t length = random.Below(spread);
        const std::uint32_t offset = random.Below(kSize - length);
        const auto at = model.begin() + offset;
        switch (random.Below(3)) {
        case 0: {
            const Bytes payload = Pattern(length, i);
            ASSERT_EQ(client.Write(offset, payload, i % 2), kOk);
            std::ranges::copy(payload, at);
            break;
        }
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

TEST_F(TransmissionTest, ServesABatchInOrder) {
    Message batch;
    for (std::uint64_t i = 0; i < 64; ++i)
        batch.Put(RequestBytes(kCmdWrite, i * 4096, 4096, 0, i))
            .Put(Bytes(4096, static_cast<std::uint8_t>(i)))
            .Put(RequestBytes(kCmdRead, i * 4096 + 100, 200, 0, ~i));
    ASSERT_TRUE(client.Send(batch.Get()));
    for (std::uint64_t i = 0; i < 64; ++i) {
        ASSERT_EQ(client.ReceiveReply(i), kOk);
        ASSERT_EQ(client.ReceiveReply(~i), kOk);
        ASSERT_EQ(client.Receive(200), Bytes(200, static_cast<std::uint8_t>(i)));
    }
}

TEST_F(TransmissionTest, ServesHandshakeAndRequestsThatArriveByteByByte) {
    const Bytes info = InfoData(kName);
    const Bytes payload = Pattern(700, 3);
    const Bytes script = Message()
                             .Put32(3)
                             .Put("IHAVEOPT")
                             .Put32(kOptGo)
                             .Put32(info.size())
                             .Put(info)
                             .Put(RequestBytes(kCmdWrite, 300, 700, kFua, 5))
                             .Put(payload)
                             .Put(RequestBytes(kCmdRead, 300, 700, 0, 6))
                             .Get();
    NbdClient slow = Connect();
    ASSERT_TRUE(slow.Receive(18));
    for (const std::uint8_t byte : script)
        ASSERT_TRUE(slow.Send({byte}));
    EXPECT_EQ(slow.ReceiveAnswer()->result, kRepInfo);
    EXPECT_EQ(slow.ReceiveAnswer()->result, kRepAck);
    EXPECT_EQ(slow.ReceiveReply(5), kOk);
    EXPECT_EQ(slow.ReceiveReply(6), kOk);
    EXPECT_EQ(slow.Receive(700), payload);
}

TEST_F(TransmissionTest, ChecksBoundsFlagsAndLengths) {
    struct Case {
        std::uint16_t command;
        std::uint16_t flags;
        std::uint64_t offset;
        std::uint32_t length;
        std::uint32_t error;
    };
    constexpr std::uint64_t kFar = ~std::uint64_t{0};
    const Case cases[] = {
        {kCmdRead, 0, kSize, 0, kOk},
        {kCmdRead, 0, kSize, 1, kEinval},
        {kCmdRead, 0, kSize - 1, 2, kEinval},
        {kCmdRead, 0, kFar - 511, 512, kEinval},
        {kCmdRead, 0, 0, 0xFFFFFFFF, kEinval},
        {kCmdRead, 0, 0, (32U << 20) + 1, kEinval},
        {kCmdRead, kDontFragment, 0, 512, kEinval},
        {kCmdWrite, 0, kSize, 512, kEnospc},
        {kCmdWrite, 0, kSize - 511, 512, kEnospc},
        {kCmdWrite, 0, 0, (32U << 20) + 512, kEinval},
        {kCmdWrite, 0x8000, 0, 4096, kEinval},
        {kCmdWriteZeroes, 0, 1, kSize, kEnospc},
        {kCmdWriteZeroes, 0, 0, 0xFFFFFFFF, kEnospc},
        {kCmdWriteZeroes, 0, kFar, 0xFFFFFFFF, kEnospc},
        {kCmdWriteZeroes, 16, 0, 512, kEinval},
        {kCmdTrim, 0, 0, 512, kEinval},
        {5, 0, 0, 512, kEinval},
        {0xFFFF, 0xFFFF, kFar, 0xFFFFFFFF, kEinval},
        {kCmdFlush, 0, 0, 0, kOk},
    };
    const Bytes before = Stored(0, kSize);
    for (const Case& one : cases) {
        const Bytes payload(one.command == kCmdWrite ? one.length : 0, 0x55);
        EXPECT_EQ(client.Do(one.command, one.offset, one.length, payload, one.flags), one.error)
            << one.command << " " << one.flags << " " << one.offset << " " << one.length;
    }
    EXPECT_TRUE(Stored(0, kSize) == before) << "a refused request changed something";
    EXPECT_EQ(client.Read(0, 512), Stored(0, 512));
}

TEST_F(TransmissionTest, ReportsFaultsOfTheDeviceAndGoesOn) {
    device.badSector = 1000; // in the second piece of the long writes
    const Bytes before = Stored(0, kSize);
    EXPECT_EQ(client.Do(kCmdRead, 1000 * 512, 512), kEio);
    EXPECT_EQ(client.Do(kCmdRead, 0, 1 << 20), kEio);
    EXPECT_EQ(client.Write(1000 * 512 + 1, Bytes(10)), kEio);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, 999 * 512, 1024), kEio);
    EXPECT_TRUE(Stored(0, kSize) == before);
    const Bytes payload = Pattern(4 << 20, 9);
    EXPECT_EQ(client.Write(100 * 512, payload), kEio);
    EXPECT_EQ(Stored(1000 * 512, 512), Bytes(before.begin() + 1000 * 512, before.begin() + 1001 * 512));
    EXPECT_EQ(client.Read(1001 * 512, 512), Stored(1001 * 512, 512));
    device.badSector = ~std::uint64_t{0};
    EXPECT_EQ(client.Write(100 * 512, payload), kOk);
    EXPECT_EQ(client.Read(100 * 512, 4 << 20), payload);
}

TEST_F(TransmissionTest, ALongReadThatFailsLateNeverDeliversInventedData) {
    device.badSector = 10'000;
    NbdClient other = Connect();
    ASSERT_TRUE(other.Enter(kName));
    ASSERT_TRUE(client.SendRequest(kCmdRead, 0, 6 << 20));
    EXPECT_EQ(client.ReceiveReply(), kOk);
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

TEST_F(TransmissionTest, GoodbyesAndNonsenseEndTheConnectionBehindTheLastReply) {
    for (const Bytes& last : {RequestBytes(kCmdDisconnect, 0, 0), Bytes(28, 0x25)}) {
        NbdClient other = Connect();
        ASSERT_TRUE(other.Enter(kName));
        ASSERT_TRUE(other.Send(Message().Put(RequestBytes(kCmdFlush, 0, 0)).Put(last).Get()));
        EXPECT_EQ(other.ReceiveReply(), kOk);
        EXPECT_TRUE(other.IsClosed());
    }
}

TEST_F(TransmissionTest, APeerThatGoesAwayAmidAWriteChangesNothingElse) {
    const Bytes before = Stored(0, kSize);
    ASSERT_TRUE(client.SendRequest(kCmdWrite, 4096 + 10, 300'000, Bytes(200'000, 0xEE)));
    client.FinishSending();
    EXPECT_TRUE(client.IsClosed());
    server.Stop();
    const Bytes after = Stored(0, kSize);
    EXPECT_TRUE(std::equal(after.begin(), after.begin() + 4106, before.begin()));
    EXPECT_TRUE(std::equal(after.begin() + 304'106, after.end(), before.begin() + 304'106));
}

} // namespace
} // namespace quilla::test
