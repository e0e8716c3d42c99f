// Many clients at once, the limits of the server, and how it stops.

#include "tests/nbd/server_fixture.h"
#include "tests/nbd/shared_sectors.h"

#include <chrono>
#include <functional>
#include <thread>

namespace quilla::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

bool Await(const std::function<bool()>& condition) {
    for (const auto end = Clock::now() + 10s; Clock::now() < end; std::this_thread::sleep_for(1ms))
        if (condition())
            return true;
    return false;
}

class NbdServerTest : public ServerTest {
  protected:
    NbdServerTest() : ServerTest(NbdLimits{.handshakeMilliseconds = 10'000, .stopMilliseconds = 700}) {}
};

TEST_F(NbdServerTest, AHundredStrangersDoNotDisturbAClientInUse) {
    NbdClient client = Connect();
    ASSERT_TRUE(client.Enter(kName));
    std::vector<NbdClient> strangers;
    Random random(5);
    for (std::uint32_t i = 0; i < 100; ++i) {
        strangers.push_back(Connect());
        Bytes noise(random.Below(200));
        for (std::uint8_t& byte : noise)
            byte = random.Byte();
        if (i % 2 == 0)
            static_cast<void>(strangers.back().Send(noise));
        ASSERT_EQ(client.Write(i * 4096, Bytes(512, 1)), kOk);
        ASSERT_EQ(client.Read(i * 4096, 1024), Stored(i * 4096, 1024));
    }
    NbdClient second = Connect();
    EXPECT_TRUE(second.Enter(kName)) << "strangers make room";
    EXPECT_EQ(server.ConnectedClients(), 2U);
}

TEST_F(NbdServerTest, BoundsTheClientsInside) {
    std::vector<NbdClient> clients;
    for (std::size_t i = 0; i < NbdServer::kMaxConnections; ++i) {
        clients.push_back(Connect());
        ASSERT_TRUE(clients.back().Enter(kName)) << i;
    }
    NbdClient excess = Connect();
    EXPECT_TRUE(excess.IsClosed());
    clients.front().Close();
    ASSERT_TRUE(Await([this] { return server.ConnectedClients() < NbdServer::kMaxConnections; }));
    EXPECT_TRUE(Connect().Enter(kName));
    EXPECT_EQ(clients.back().Read(0, 512), Stored(0, 512));
}

TEST_F(NbdServerTest, StopsAtOnceWhenNobodyIsThere) {
    EXPECT_TRUE(Connect().Greet()); // one that will sit in its handshake, or be gone already
    const auto start = Clock::now();
    const NbdStopReport report = server.Stop();
    EXPECT_LT(Clock::now() - start, 500ms);
    EXPECT_EQ(report.clientsCutOff, 0U);
    EXPECT_TRUE(report.flushed);
    EXPECT_EQ(device.flushes, 1);
    EXPECT_EQ(server.Stop().clientsCutOff, 0U);
    EXPECT_EQ(device.flushes, 1) << "a second stop does nothing";
}

TEST_F(NbdServerTest, StopCompletesWhatIsInFlight) {
    NbdClient idle = Connect();
    NbdClient reader = Connect();
    NbdClient writer = Connect();
    ASSERT_TRUE(idle.Enter(kName) && reader.Enter(kName) && writer.Enter(kName));
    device.CloseGate();
    Message reads;
    for (std::uint64_t i = 0; i < 8; ++i)
        reads.Put(RequestBytes(kCmdRead, i * 512, 512, 0, i));
    ASSERT_TRUE(reader.Send(reads.Get()));
    ASSERT_TRUE(writer.SendRequest(kCmdWrite, 1 << 20, 4096, Bytes(4096, 0x42)));
    device.AwaitRequestAtGate();
    std::this_thread::sleep_for(100ms);
    NbdStopReport report;
    std::thread stopper([&] { report = server.Stop(); });
    EXPECT_TRUE(idle.IsClosed()) << "nothing of this one is in flight";
    device.OpenGate();
    for (std::uint64_t i = 0; i < 8; ++i) {
        EXPECT_EQ(reader.ReceiveReply(i), kOk);
        EXPECT_EQ(reader.Receive(512), Stored(i * 512, 512));
    }
    EXPECT_TRUE(reader.IsClosed());
    EXPECT_EQ(writer.ReceiveReply(), kOk);
    stopper.join();
    EXPECT_EQ(report.clientsCutOff, 3U);
    EXPECT_TRUE(report.flushed);
    EXPECT_EQ(Stored(1 << 20, 4096), Bytes(4096, 0x42));
    EXPECT_EQ(server.ConnectedClients(), 0U);
}

TEST_F(NbdServerTest, StopDoesNotWaitForPeersThatStall) {
    NbdClient deaf = Connect(); // never takes its replies
    NbdClient mute = Connect(); // never ends its write
    ASSERT_TRUE(deaf.Enter(kName) && mute.Enter(kName));
    for (int i = 0; i < 64; ++i)
        ASSERT_TRUE(deaf.SendRequest(kCmdRead, 0, 8U << 20));
    ASSERT_TRUE(mute.SendRequest(kCmdWrite, 0, 65536, Bytes(100)));
    std::this_thread::sleep_for(100ms);
    const auto start = Clock::now();
    EXPECT_EQ(server.Stop().clientsCutOff, 2U);
    EXPECT_LT(Clock::now() - start, 4s);
}

TEST_F(NbdServerTest, SectorsAreAtomicUnderEightClients) {
    std::fill_n(device.bytes.begin(), SharedSectors::kSectors * 512, std::byte{0});
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 8; ++i)
        threads.emplace_back([this, i] { SharedSectors(server.Port(), kName, i).Run(300); });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
} // namespace quilla::test
