// Requests of many pieces, and what a client may rely on when the device fails. Data, bounds and errors of
// short requests are compared with a model in fuzz/nbd_fuzz.cpp.

#include "tests/export/nbd/server_fixture.h"

namespace quilla::test {
namespace {

class TransmissionTest : public ServerTest {};

TEST_F(TransmissionTest, LongRequestsArriveWhole) {
    constexpr std::uint32_t kOffset = 777;
    constexpr std::uint32_t kLength = 3'000'001;
    NbdClient client = Enter();
    const Bytes payload = Stored(12345, kLength);
    EXPECT_EQ(client.Write(kOffset, payload), kOk);
    EXPECT_TRUE(Stored(kOffset, kLength) == payload);
    EXPECT_TRUE(client.Read(kOffset, kLength) == payload);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, kOffset, kLength), kOk);
    EXPECT_TRUE(Stored(kOffset, kLength) == Bytes(kLength));
}

TEST_F(TransmissionTest, AWriteThatFailsInPartFails) {
    NbdClient client = Enter();
    device.badSector = 1000; // in a piece that others follow
    const Bytes before = Stored(1000 * 512, 512);
    EXPECT_EQ(client.Write(100 * 512, Bytes(4 << 20, 9)), kEio);
    device.onlyReadsFail = true;
    EXPECT_EQ(client.Write(1000 * 512 + 1, Bytes(10)), kEio) << "the rest of the sector is not known";
    EXPECT_EQ(Stored(1000 * 512, 512), before);
    EXPECT_EQ(client.Write(1000 * 512, Bytes(512)), kOk);
}

/// The header of so long a reply has gone out before the fault is met; ending the connection is the only
/// truth left.
TEST_F(TransmissionTest, ALongReadThatFailsLateNeverDeliversInventedData) {
    device.badSector = 10'000;
    NbdClient client = Enter();
    NbdClient other = Enter();
    EXPECT_EQ(client.Do(kCmdRead, 0, 6 << 20), kOk);
    EXPECT_FALSE(client.Receive(6 << 20)) << "the connection ends before the data is complete";
    EXPECT_EQ(other.Read(512, 512), Stored(512, 512));
}

TEST_F(TransmissionTest, FlushesWhenToldAndSaysWhenItFails) {
    NbdClient client = Enter();
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

TEST_F(TransmissionTest, AReadOnlyExportTakesNoWrites) {
    constexpr std::uint32_t kNotPermitted = 1;
    nbd::Server readOnly(device, ranges, kName, {}, true);
    ASSERT_TRUE(readOnly.Start());
    NbdClient client(readOnly.Port());
    ASSERT_TRUE(client.Enter(kName));
    const Bytes before = Stored(0, 512);
    EXPECT_EQ(client.Write(0, Bytes(512)), kNotPermitted);
    EXPECT_EQ(client.Do(kCmdWriteZeroes, 0, 512), kNotPermitted);
    EXPECT_EQ(client.Read(0, 512), before);
    EXPECT_EQ(device.flushes, 0);
}

} // namespace
} // namespace quilla::test
