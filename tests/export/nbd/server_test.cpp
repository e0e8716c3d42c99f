// The limits of the server, and how it stops.

#include "tests/export/nbd/server_fixture.h"

#ifndef _WIN32
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

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
    NbdServerTest() : ServerTest(ServerLimits{.handshakeMilliseconds = 10'000, .stopMilliseconds = 700}) {}
};

TEST_F(NbdServerTest, StrangersMakeRoomForClientsAndClientsForNobody) {
    std::vector<NbdClient> strangers;
    std::vector<NbdClient> clients;
    for (std::size_t i = 0; i < nbd::Server::kMaxConnections; ++i) {
        strangers.push_back(Connect());
        strangers.push_back(Connect());
        clients.push_back(Enter());
    }
    EXPECT_TRUE(Connect().IsClosed());
    clients.front().Close();
    ASSERT_TRUE(Await([this] { return server.ConnectedClients() < nbd::Server::kMaxConnections; }));
    EXPECT_EQ(Enter().Read(0, 512), Stored(0, 512));
    EXPECT_EQ(clients.back().Read(0, 512), Stored(0, 512));
}

#ifndef _WIN32 // the sockets of both systems differ by more than this is worth
TEST_F(NbdServerTest, AFloodFromOneAddressDrivesOutNobodyFromAnother) {
    NbdClient slow = Connect();
    ASSERT_TRUE(slow.Greet());
    std::vector<int> strangers;
    for (std::size_t i = 0; i < 3 * nbd::Server::kMaxConnections; ++i) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
        strangers.push_back(socket(AF_INET, SOCK_STREAM, 0));
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        ASSERT_EQ(bind(strangers.back(), generic, sizeof(address)), 0);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(server.Port());
        ASSERT_EQ(connect(strangers.back(), generic, sizeof(address)), 0);
        char greeting = 0;
        ASSERT_EQ(recv(strangers.back(), &greeting, 1, 0), 1) << "not admitted";
    }
    EXPECT_EQ(slow.Ask(kOptGo, InfoData(kName)), kRepAck);
    for (const int stranger : strangers)
        close(stranger);
}
#endif

TEST_F(NbdServerTest, StopCompletesWhatIsInFlight) {
    NbdClient idle = Enter();
    NbdClient reader = Enter();
    NbdClient writer = Enter();
    device.SetGate(true);
    Message reads;
    for (std::uint64_t i = 0; i < 8; ++i)
        reads.Put(RequestBytes(kCmdRead, i * 512, 512, 0, i));
    ASSERT_TRUE(reader.Send(reads.Get()));
    ASSERT_TRUE(writer.SendRequest(kCmdWrite, 1 << 20, 4096, Bytes(4096, 0x42)));
    ASSERT_TRUE(Await([this] { return device.requests == 2; }));
    StopReport report;
    std::thread stopper([&] { report = server.Stop(); });
    EXPECT_TRUE(idle.IsClosed()) << "nothing of this one is in flight";
    device.SetGate(false);
    for (std::uint64_t i = 0; i < 8; ++i) {
        EXPECT_EQ(reader.ReceiveReply(i), kOk);
        EXPECT_EQ(reader.Receive(512), Stored(i * 512, 512));
    }
    EXPECT_EQ(writer.ReceiveReply(), kOk);
    EXPECT_TRUE(reader.IsClosed());
    stopper.join();
    EXPECT_EQ(report.clientsCutOff, 3U);
    EXPECT_TRUE(report.flushed);
    EXPECT_EQ(Stored(1 << 20, 4096), Bytes(4096, 0x42));
}

TEST_F(NbdServerTest, StopDoesNotWaitForPeersThatStall) {
    NbdClient deaf = Enter(); // never takes its replies
    NbdClient mute = Enter(); // never ends its write
    for (int i = 0; i < 64; ++i)
        ASSERT_TRUE(deaf.SendRequest(kCmdRead, 0, kSize));
    ASSERT_TRUE(mute.SendRequest(kCmdWrite, 0, 65536, Bytes(100)));
    std::this_thread::sleep_for(100ms);
    const auto start = Clock::now();
    EXPECT_EQ(server.Stop().clientsCutOff, 2U);
    EXPECT_LT(Clock::now() - start, 4s);
}

} // namespace
} // namespace quilla::test
