// The handshake: every way in, every refusal, and what a peer can do wrong before it is inside.

#include "tests/nbd/server_fixture.h"

#include <chrono>
#include <thread>

namespace quilla::test {
namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t kExpectedFlags =
    1 | 4 | 8 | 64 | 256; // flush, FUA, write zeroes, several connections

class HandshakeTest : public ServerTest {};

TEST_F(HandshakeTest, TellsSizeAndFlagsAlwaysAndBlockSizesWhenAsked) {
    NbdClient client = Connect();
    ASSERT_TRUE(client.Greet());
    for (const std::uint32_t option : {kOptInfo, kOptGo}) {
        const bool isAsked = option == kOptInfo;
        EXPECT_EQ(server.ConnectedClients(), 0U);
        ASSERT_TRUE(client.SendOption(option, isAsked ? InfoData(kName, {3, 1, 99}) : InfoData(kName)));
        const auto info = client.ReceiveAnswer();
        ASSERT_TRUE(info);
        EXPECT_EQ(info->result, kRepInfo);
        EXPECT_EQ(info->data, Message().Put16(0).Put64(8U << 20).Put16(kExpectedFlags).Get());
        if (isAsked) {
            const auto sizes = client.ReceiveAnswer();
            ASSERT_TRUE(sizes);
            EXPECT_EQ(sizes->data, Message().Put16(3).Put32(512).Put32(4096).Put32(32U << 20).Get());
        }
        const auto end = client.ReceiveAnswer();
        ASSERT_TRUE(end);
        EXPECT_EQ(end->result, kRepAck);
    }
    EXPECT_EQ(client.Read(1024, 512), Stored(1024, 512));
    EXPECT_EQ(server.ConnectedClients(), 1U);
}

TEST_F(HandshakeTest, ExportNameEntersWithAndWithoutZeroes) {
    for (const std::uint32_t flags : {0U, 1U, 2U, 3U}) {
        NbdClient client = Connect();
        ASSERT_TRUE(client.Greet(flags));
        ASSERT_TRUE(client.SendOption(kOptExportName, Message().Put(kName).Get()));
        Message expected;
        expected.Put64(8U << 20).Put16(kExpectedFlags);
        if ((flags & 2) == 0)
            expected.Put(Bytes(124));
        EXPECT_EQ(client.Receive(expected.Get().size()), expected.Get()) << flags;
        EXPECT_EQ(client.Read(0, 512), Stored(0, 512)) << flags;
    }
}

TEST_F(HandshakeTest, ServesNoOtherName) {
    std::string sameLength(kName);
    sameLength.back() = '0';
    NbdClient client = Connect();
    ASSERT_TRUE(client.Greet());
    for (const std::string& name :
         {std::string(), sameLength, std::string(kName) + '\0', std::string(4096, 'a')}) {
        EXPECT_EQ(client.Ask(kOptInfo, InfoData(name)), kRepUnknown) << name;
        EXPECT_EQ(client.Ask(kOptGo, InfoData(name)), kRepUnknown) << name;
        NbdClient old = Connect();
        ASSERT_TRUE(old.Greet());
        ASSERT_TRUE(old.SendOption(kOptExportName, Message().Put(name).Get()));
        EXPECT_TRUE(old.IsClosed()) << name;
    }
    EXPECT_EQ(client.Ask(kOptGo, InfoData(kName)), kRepAck);
}

TEST_F(HandshakeTest, RefusesWhatItDoesNotOfferUntilItHasHeardEnough) {
    NbdClient client = Connect();
    ASSERT_TRUE(client.Greet());
    EXPECT_EQ(client.Ask(kOptList, Bytes(100)), kRepPolicy);
    EXPECT_EQ(client.Ask(kOptStructuredReply, {}), kRepUnsupported);
    EXPECT_EQ(client.Ask(kOptStartTls, {}), kRepUnsupported);
    EXPECT_EQ(client.Ask(0xFFFFFFFF, Bytes(60'000, 0xAB)), kRepUnsupported);
    for (int i = 4; i < 32; ++i)
        ASSERT_EQ(client.Ask(kOptList, {}), kRepPolicy) << i;
    EXPECT_EQ(client.Ask(kOptGo, InfoData(kName)), 0U);

    NbdClient leaving = Connect();
    ASSERT_TRUE(leaving.Greet());
    EXPECT_EQ(leaving.Ask(kOptAbort, {}), kRepAck);
    EXPECT_TRUE(leaving.IsClosed());
}

TEST_F(HandshakeTest, MalformedInformationRequestsAreInvalid) {
    const Bytes malformed[] = {
        {},
        Bytes(5),
        Message().Put32(0xFFFFFFFF).Put16(0).Get(),
        Message().Put32(1).Put16(0).Get(),
        Message().Put32(0).Put16(1).Get(),
        Message().Put32(0).Put16(0xFFFF).Put16(3).Get(),
        Message().Put32(kName.size()).Put(kName).Put16(0).Put16(0).Get(),
        Message().Put32(kName.size()).Put(kName).Put16(1).Put("x").Get(),
    };
    NbdClient client = Connect();
    ASSERT_TRUE(client.Greet());
    for (const Bytes& data : malformed) {
        EXPECT_EQ(client.Ask(kOptInfo, data), kRepInvalid) << data.size();
        EXPECT_EQ(client.Ask(kOptGo, data), kRepInvalid) << data.size();
    }
    EXPECT_EQ(client.Ask(kOptGo, InfoData(std::string(4097, 'a'))), kRepTooBig);
    EXPECT_EQ(client.Ask(kOptGo, Bytes(30'000)), kRepTooBig);
    EXPECT_EQ(client.Ask(kOptGo, InfoData(kName, std::vector<std::uint16_t>(60, 3))), kRepAck);
}

TEST_F(HandshakeTest, NonsenseEndsTheConnection) {
    std::vector<Bytes> openings = {
        Message().Put32(4).Get(),                                         // a flag nobody offered
        Message().Put32(3).Put("IHAVEOPS").Put32(kOptGo).Put32(0).Get(),  // not the magic
        Message().Put32(0).Put("IHAVEOPT").Put32(kOptGo).Put32(0).Get(),  // not fixed newstyle
        Message().Put("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n").Get(), //
        Message().Put32(3).Put(RequestBytes(kCmdRead, 0, 512)).Get(),     // a request, but not inside yet
        Bytes(1 << 20, 0xFF),
    };
    for (const std::uint32_t option : {kOptExportName, kOptAbort, kOptGo, 77U}) // options too long to skip
        for (const std::uint32_t length : {70'000U, 0xFFFFFFFFU})
            openings.push_back(Message().Put32(3).Put("IHAVEOPT").Put32(option).Put32(length).Get());
    for (const Bytes& opening : openings) {
        NbdClient client = Connect();
        ASSERT_TRUE(client.Receive(18));
        static_cast<void>(client.Send(opening)); // the server may be gone before all of it is sent
        EXPECT_TRUE(client.IsClosed()) << ::testing::PrintToString(opening).substr(0, 200);
    }
    EXPECT_TRUE(Connect().Enter(kName));
}

class HandshakeTimeoutTest : public ServerTest {
  protected:
    HandshakeTimeoutTest() : ServerTest(NbdLimits{.handshakeMilliseconds = 400}) {}
};

TEST_F(HandshakeTimeoutTest, EndsPeersThatAreSilentOrSlow) {
    NbdClient inside = Connect();
    ASSERT_TRUE(inside.Enter(kName));
    NbdClient silent = Connect();
    NbdClient slow = Connect();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(silent.Receive(18));
    ASSERT_TRUE(slow.Greet());
    bool isOpen = slow.Send(Message().Put("IHAVEOPT").Put32(77).Put32(60'000).Get());
    while (isOpen &&
           std::chrono::steady_clock::now() - start < 5s) { // each byte is in time, all together are not
        isOpen = slow.Send({0});
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_FALSE(isOpen);
    EXPECT_TRUE(silent.IsClosed());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(inside.Read(0, 512), Stored(0, 512)) << "the limit ends with the handshake";
}

} // namespace
} // namespace quilla::test
