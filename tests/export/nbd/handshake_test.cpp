// The handshake: the way in, every refusal, and what a peer can do wrong before it is inside. What nbdinfo is
// told, tests/endtoend/clients_test.py sees.

#include "tests/export/nbd/server_fixture.h"

#include <chrono>
#include <thread>

namespace quilla::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Size, and the abilities: flush, FUA, write zeroes, several connections.
const Bytes kExportInfo = Message().Put64(kSize).Put16(1 | 4 | 8 | 64 | 256).Get();

class HandshakeTest : public ServerTest {};

TEST_F(HandshakeTest, ExportNameEntersWithAndWithoutZeroes) {
    for (const std::uint32_t flags : {0U, 1U, 2U, 3U}) {
        NbdClient client = Connect();
        ASSERT_TRUE(client.Greet(flags));
        ASSERT_TRUE(client.SendOption(kOptExportName, Message().Put(kName).Get()));
        const Bytes expected = Message().Put(kExportInfo).Put(Bytes((flags & 2) != 0 ? 0 : 124)).Get();
        EXPECT_EQ(client.Receive(expected.size()), expected) << flags;
        EXPECT_EQ(client.Read(0, 512), Stored(0, 512)) << flags;
    }
}

TEST_F(HandshakeTest, RefusesWhatIsNotOfferedUnknownOrMalformed) {
    std::string sameLength(kName);
    sameLength.back() = '0';
    const struct {
        std::uint32_t option;
        Bytes data;
        std::uint32_t answer;
    } kCases[] = {
        {kOptList, Bytes(100), kRepPolicy},
        {kOptStructuredReply, {}, kRepUnsupported},
        {0xFFFFFFFF, Bytes(60'000, 0xAB), kRepUnsupported},
        {kOptGo, InfoData(sameLength), kRepUnknown},
        {kOptInfo, InfoData(std::string(kName) + '\0'), kRepUnknown},
        {kOptGo, InfoData(std::string(4096, 'a')), kRepUnknown},
        {kOptGo, InfoData(std::string(4097, 'a')), kRepTooBig},
        {kOptGo, Bytes(30'000), kRepTooBig},
        {kOptInfo, Bytes(5), kRepInvalid},
        {kOptGo, Message().Put32(0xFFFFFFFF).Put16(0).Get(), kRepInvalid},
        {kOptGo, Message().Put32(1).Put16(0).Get(), kRepInvalid},
        {kOptGo, Message().Put32(0).Put16(0xFFFF).Put16(3).Get(), kRepInvalid},
        {kOptGo, Message().Put(InfoData(kName)).Put16(0).Get(), kRepInvalid},
        {kOptInfo, InfoData(kName, {3, 1, 99}), kRepAck},
        {kOptGo, InfoData(kName, std::vector<std::uint16_t>(60, 3)), kRepAck},
    };
    NbdClient client = Connect();
    ASSERT_TRUE(client.Greet());
    for (const auto& one : kCases)
        EXPECT_EQ(client.Ask(one.option, one.data), one.answer) << one.option << ' ' << one.data.size();
}

TEST_F(HandshakeTest, EndsWhenItIsToldToOrHasHeardEnough) {
    NbdClient leaving = Connect();
    NbdClient asking = Connect();
    ASSERT_TRUE(leaving.Greet() && asking.Greet());
    EXPECT_EQ(leaving.Ask(kOptAbort, {}), kRepAck);
    EXPECT_TRUE(leaving.IsClosed());
    for (int i = 0; i < 32; ++i)
        ASSERT_EQ(asking.Ask(kOptList, {}), kRepPolicy) << i;
    EXPECT_EQ(asking.Ask(kOptGo, InfoData(kName)), 0U);
}

#ifndef _WIN32 // where a test cannot catch the system's debug output
TEST_F(HandshakeTest, ARefusalLeavesATraceWithoutTheSecret) {
    testing::internal::CaptureStderr();
    for (const std::string_view name : {std::string_view("SEC0"), kName}) {
        NbdClient client = Connect();
        EXPECT_EQ(client.Greet() && client.Ask(kOptGo, InfoData(name)) == kRepAck, name == kName);
        EXPECT_TRUE(name == kName || client.Ask(kOptAbort, {}) == kRepAck);
    }
    server.Stop();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Quilla Tarn: SEC0 refused a client: it does not know the export's name\n");
}
#endif

TEST_F(HandshakeTest, NonsenseEndsTheConnection) {
    std::vector<Bytes> openings = {
        Message().Put32(4).Get(),                                        // a flag nobody offered
        Message().Put32(3).Put("IHAVEOPS").Put32(kOptGo).Put32(0).Get(), // not the magic
        Message().Put32(0).Put("IHAVEOPT").Put32(kOptGo).Put32(0).Get(), // not fixed newstyle
        Message().Put32(3).Put("IHAVEOPT").Put32(kOptExportName).Put32(1).Put("x").Get(),
    };
    for (const std::uint32_t option : {kOptExportName, kOptAbort, kOptGo, 77U}) // options too long to skip
        openings.push_back(Message().Put32(3).Put("IHAVEOPT").Put32(option).Put32(70'000).Get());
    const auto start = Clock::now();
    for (const Bytes& opening : openings) {
        NbdClient client = Connect();
        ASSERT_TRUE(client.Receive(18));
        EXPECT_TRUE(client.Send(opening));
        EXPECT_TRUE(client.IsClosed()) << ::testing::PrintToString(opening);
    }
    EXPECT_LT(Clock::now() - start, 5s) << "the limit of the handshake is no answer";
}

class HandshakeTimeoutTest : public ServerTest {
  protected:
    HandshakeTimeoutTest() : ServerTest(ServerLimits{.handshakeMilliseconds = 400}) {}
};

TEST_F(HandshakeTimeoutTest, EndsPeersThatAreSilentOrSlow) {
    NbdClient inside = Enter();
    NbdClient silent = Connect();
    NbdClient slow = Connect();
    const auto start = Clock::now();
    ASSERT_TRUE(slow.Greet());
    bool isOpen = slow.Send(Message().Put("IHAVEOPT").Put32(77).Put32(60'000).Get());
    while (isOpen && Clock::now() - start < 5s) { // each byte is in time, all together are not
        isOpen = slow.Send({0});
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_TRUE(silent.Receive(18) && silent.IsClosed());
    EXPECT_LT(Clock::now() - start, 4s);
    EXPECT_EQ(inside.Read(0, 512), Stored(0, 512)) << "the limit ends with the handshake";
}

} // namespace
} // namespace quilla::test
