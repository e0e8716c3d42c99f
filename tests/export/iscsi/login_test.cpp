// Who gets in, and how the Windows initiator does.

#include "tests/export/iscsi/initiator.h"

#include <chrono>
#include <thread>

namespace quilla::test {
namespace {

class IscsiLoginTest : public TargetTest {};

TEST_F(IscsiLoginTest, OnlyWhoKnowsNameAndSecretGetsIn) {
    EXPECT_EQ(Connect().Login(keys, "0123456789abcdef"), 0x0201U);
    iscsi::TargetKeys other = keys;
    other.name[40] ^= 1;
    EXPECT_EQ(Connect().Login(other, keys.secret.data()), 0x0203U);
    EXPECT_EQ(Connect().Login(keys, "0123456789abcdef", true), 0x0201U) << "nothing is discovered without it";
    const std::string name = std::string("TargetName=") + keys.name.data();
    const std::string me = "InitiatorName=iqn.2026-11.test:me";
    EXPECT_EQ(Connect().SendLogin(0x81, {me, name, "AuthMethod=None"}).At(36, 2), 0x0201U);
    EXPECT_EQ(Connect().SendLogin(0x83, {me, name}).At(36, 2), 0x0201U) << "security left out";
    EXPECT_EQ(Connect().SendLogin(0x87, {me, name}).At(36, 2), 0x0201U) << "operational stage first";
    EXPECT_EQ(Connect().SendLogin(0x01, {name, "AuthMethod=CHAP"}).At(36, 2), 0x0207U);
    Initiator wrongUser = Connect();
    ASSERT_EQ(wrongUser.SendLogin(0x01, {me, name, "AuthMethod=CHAP"}).At(36, 2), 0U);
    EXPECT_EQ(wrongUser.SendLogin(0x81, wrongUser.Proof(keys.secret.data())).At(36, 2), 0x0201U)
        << "a proof before the challenge";
    Initiator nobody = Connect();
    ASSERT_EQ(nobody.SendLogin(0x01, {me, name, "AuthMethod=CHAP", "CHAP_A=5"}).At(36, 2), 0U);
    EXPECT_EQ(nobody.SendLogin(0x81, nobody.Proof(keys.secret.data(), "somebody")).At(36, 2), 0x0201U);
    Initiator finder = Connect();
    EXPECT_EQ(finder.Login(keys, keys.secret.data(), true, {"SessionType=Normal"}), 0U);
    ASSERT_TRUE(finder.Send(finder.Header(0x01, 0xC0, 36, {0x12, 0, 0, 0, 36})));
    EXPECT_EQ(finder.Receive().Code(), 0x3FU) << "a session that named no target cannot become one with it";
    EXPECT_EQ(target->ConnectedClients(), 0U);
    EXPECT_EQ(Connect().Login(keys, keys.secret.data()), 0U);
}

TEST_F(IscsiLoginTest, TwoSessionsAndOneTakesItsOwnPlaceAgain) {
    std::vector<Initiator> in;
    in.push_back(Enter());
    in.push_back(Connect());
    in.back().session[3] = 0x38;
    EXPECT_EQ(in.back().Login(keys, keys.secret.data()), 0U);
    Initiator third = Connect();
    third.session[3] = 0x39;
    EXPECT_EQ(third.Login(keys, keys.secret.data()), 0x0302U);
    Initiator again = Enter();
    EXPECT_TRUE(in.front().IsClosed());
    EXPECT_EQ(again.Do({0}).Status(), 0U);
    EXPECT_EQ(in.back().Do({0}).Status(), 0U);
    ASSERT_TRUE(again.Send(again.Header(0x46, 0x80, 0)));
    EXPECT_EQ(again.Receive().Code(), 0x26U);
    EXPECT_EQ(third.IsClosed(), true);
    Initiator fourth = Connect();
    fourth.session[3] = 0x3A;
    EXPECT_EQ(fourth.Login(keys, keys.secret.data()), 0U)
        << "the place is free before the answer to a logout";
}

/// Half logins, silence and many at once: whoever knows the secret still gets in.
TEST_F(IscsiLoginTest, StrangersCostOnlyThemselves) {
    Initiator busy = Enter();
    std::vector<Initiator> strangers;
    for (int i = 0; i < 200; ++i) {
        strangers.push_back(Connect());
        if (i % 2 != 0)
            static_cast<void>(strangers.back().Send(Bytes(48, static_cast<std::uint8_t>(i))));
        if (i % 3 == 0)
            static_cast<void>(
                strangers.back().Send(strangers.back().Header(0x43, 0x41, 0), Bytes(8000, 'x')));
    }
    EXPECT_EQ(busy.Do({0}).Status(), 0U);
    Initiator late = Connect();
    late.session[3] = 9;
    EXPECT_EQ(late.Login(keys, keys.secret.data()), 0U);
    Initiator slow = Connect();
    ASSERT_TRUE(slow.Send(slow.Header(0x43, 0x01, 0))); // and never anything more
    EXPECT_EQ(slow.Receive().At(36, 2), 0x0207U);
}

/// A command, the room for its answer, the answer's size and how it begins, or its sense.
struct Asked {
    Bytes block;
    std::uint32_t room = 0;
    std::size_t size = 0;
    Bytes begin = {};
    std::uint64_t sense = 0;
};

constexpr std::uint64_t kUnknown = 0x52000, kBadField = 0x52400;
constexpr std::uint8_t kLast2 = 16383 >> 8, kLast3 = 16383 & 0xFF,
                       kBlocks2 = 16384 >> 8; // kBlocks of the target

/// What port driver, disk class driver, partition manager, volume manager and the recognisers of file systems
/// ask of a disk that appears (SPC-4 and SBC-3 name the fields).
const Asked kFirstCommands[] = {
    {{0xA0, 0, 0, 0, 0, 0, 0, 0, 0, 16}, 16, 16, {0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {{0x12, 0, 0, 0, 36}, 36, 36, {0, 0, 6, 0x12, 91, 0, 0, 2, 'Q', 'U', 'I', 'L', 'L', 'A', ' ', ' '}},
    {{0x12, 0, 0, 0, 255}, 255, 96, {0, 0, 6, 0x12, 91}},
    {{0x12, 1, 0x00, 0, 255}, 255, 10, {0, 0, 0, 6, 0, 0x80, 0x83, 0xB0, 0xB1, 0xB2}},
    {{0x12, 1, 0x80, 0, 255}, 255, 20, {0, 0x80, 0, 16}},
    {{0x12, 1, 0x83, 0, 255}, 255, 44, {0, 0x83, 0, 40, 1, 3, 0, 8}},
    {{0x00}},
    {{0x25}, 8, 8, {0, 0, kLast2, kLast3, 0, 0, 2, 0}},
    {{0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32},
     32,
     32,
     {0, 0, 0, 0, 0, 0, kLast2, kLast3, 0, 0, 2, 0, 0, 3}},
    {{0x1A, 0, 0x3F, 0, 192}, 192, 44, {43, 0, 0x10, 8, 0, 0, kBlocks2, 0, 0, 0, 2, 0, 0x08, 0x12, 0x04}},
    {{0x1A, 0, 0x08, 0, 192}, 192, 32, {31, 0, 0x10, 8}},
    {{0x1A, 8, 0x08, 0, 192}, 192, 24, {23, 0, 0x10, 0, 0x08, 0x12, 0x04}},
    {{0x1A, 8, 0x0A, 0, 192}, 192, 16, {15, 0, 0x10, 0, 0x0A, 0x0A, 0, 0x10}},
    {{0x1A, 8, 0x48, 0, 192}, 192, 24, {23, 0, 0x10, 0, 0x08, 0x12, 0x04}}, // what can be changed
    {{0x1A, 8, 0x1C, 0, 192}, 192, 0, {}, kBadField},                       // failure prediction
    {{0x1A, 8, 0xC8, 0, 192}, 192, 0, {}, 0x53900},                         // saved values
    {{0x5A, 8, 0x3F, 0, 0, 0, 0, 0, 255}, 255, 40, {0, 38, 0, 0x10, 0, 0, 0, 0, 0x08, 0x12}},
    {{0x4D, 0, 0x2F, 0, 0, 0, 0, 0, 4}, 4, 0, {}, kUnknown}, // log pages
    {{0x12, 1, 0xB0, 0, 64}, 64, 64, {0, 0xB0, 0, 60, 0, 0, 0, 8, 0, 1, 0, 0, 0, 0, 8, 0}},
    {{0x12, 1, 0xB1, 0, 64}, 64, 64, {0, 0xB1, 0, 60, 0, 1}},
    {{0x12, 1, 0xB2, 0, 64}, 64, 8, {0, 0xB2, 0, 4, 0, 0, 0, 0}},
    {{0x12, 1, 0xC9, 0, 64}, 64, 0, {}, kBadField},
    {{0x12, 1, 0x86, 0, 64}, 64, 0, {}, kBadField},
    {{0x5E, 0, 0, 0, 0, 0, 0, 0, 8}, 8, 0, {}, kUnknown},   // reservations of clusters
    {{0x85, 8, 0x0E, 0, 0xD0, 0, 1}, 512, 0, {}, kUnknown}, // ATA pass-through
    {{0xA1, 8, 0x0E, 0xD0, 1}, 512, 0, {}, kUnknown},
    {{0xA3, 0x0C, 1, 0x42, 0, 0, 0, 0, 0, 32}, 32, 4, {0, 1, 0, 0}}, // UNMAP: not supported
    {{0xA3, 0x0C, 1, 0x2A, 0, 0, 0, 0, 0, 32}, 32, 14, {0, 3, 0, 10, 0x2A, 0x18}},
    {{0x42, 0, 0, 0, 0, 0, 0, 0, 24}, 0, 0, {}, kUnknown},
    {{0x9E, 0x12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 24}, 24, 0, {}, kBadField}, // what is allocated
    {{0x03, 0, 0, 0, 18}, 18, 18, {0x70, 0, 0, 0, 0, 0, 0, 10}},
    {{0x1E, 0, 0, 0, 1}},
    {{0x1E, 0, 0, 0, 0}},
    {{0x1B, 0, 0, 0, 1}},
    {{0x28, 0, 0, 0, 0, 0, 0, 0, 1}, 512, 512},           // partition table
    {{0x28, 0, 0, 0, 0, 1, 0, 0, 1}, 512, 512},           // its newer kind
    {{0x28, 0, 0, 0, kLast2, kLast3, 0, 0, 1}, 512, 512}, // its copy
    {{0x28, 0, 0, 0, 0, 2, 0, 0, 32}, 16384, 16384},
    {{0x28, 0, 0, 0, 0, 6, 0, 0, 1}, 512, 512},
    {{0x28, 0, 0, 0, 0, 16, 0, 0, 8}, 4096, 4096},
    {{0x28, 0, 0, 0, 0, 64, 0, 0, 4}, 2048, 2048}, // recognisers of optical disks
    {{0x28, 0, 0, 0, 1, 0, 0, 0, 4}, 2048, 2048},
    {{0x28, 8, 0, 0, 0, 0, 0, 0, 128}, 65536, 65536},
    {{0x88, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8}, 4096, 4096},
    {{0x28, 0, 0, 0, kLast2, kLast3, 0, 0, 2}, 1024, 0, {}, 0x52100}, // beyond the end
    {{0x2F, 0, 0, 0, 0, 0, 0, 1, 0}},
    {{0x35}},
    {{0x91}},
};

/// As documented for Microsoft's initiator: discovery first, CHAP one way, its terms, then what the disk
/// class driver asks of a new disk.
TEST_F(IscsiLoginTest, ConversationOfTheWindowsInitiator) {
    const std::vector<std::string> terms = {"HeaderDigest=None,CRC32C",
                                            "DataDigest=None,CRC32C",
                                            "ErrorRecoveryLevel=2",
                                            "InitialR2T=Yes",
                                            "ImmediateData=Yes",
                                            "MaxConnections=1",
                                            "MaxOutstandingR2T=16",
                                            "MaxBurstLength=262144",
                                            "FirstBurstLength=65536",
                                            "DefaultTime2Wait=0",
                                            "DefaultTime2Retain=60",
                                            "DataPDUInOrder=Yes",
                                            "MaxRecvDataSegmentLength=65536",
                                            "DataSequenceInOrder=Yes"};
    Initiator finder = Connect();
    ASSERT_EQ(finder.Login(keys, keys.secret.data(), true, {"MaxRecvDataSegmentLength=65536"}), 0U);
    const std::string all = std::string("SendTargets=All") + '\0';
    ASSERT_TRUE(finder.Send(finder.Header(0x04, 0x00, 0xFFFFFFFF), Bytes(all.begin(), all.end())));
    EXPECT_EQ(finder.Receive().Code(), 0x3FU) << "a request that goes on";
    ASSERT_TRUE(finder.Send(finder.Header(0x04, 0x80, 0xFFFFFFFF), Bytes(all.begin(), all.end())));
    const Unit found = finder.Receive();
    const std::string names(found.data.begin(), found.data.end());
    EXPECT_EQ(names, std::string("TargetName=") + keys.name.data() + '\0' +
                         "TargetAddress=127.0.0.1:" + std::to_string(target->Port()) + ",1" + '\0');
    ASSERT_TRUE(finder.Send(finder.Header(0x01, 0xC0, 36, {0x12, 0, 0, 0, 36})));
    EXPECT_EQ(finder.Receive().Code(), 0x3FU) << "no commands in a discovery session";
    ASSERT_TRUE(finder.Send(finder.Header(0x46, 0x80, 0)));
    EXPECT_EQ(finder.Receive().Code(), 0x26U);

    Initiator desk = Enter(terms);
    const Keys agreed = {{"HeaderDigest", "None"},       {"DataDigest", "None"},
                         {"ErrorRecoveryLevel", "0"},    {"InitialR2T", "Yes"},
                         {"ImmediateData", "Yes"},       {"MaxConnections", "1"},
                         {"MaxOutstandingR2T", "1"},     {"MaxBurstLength", "262144"},
                         {"FirstBurstLength", "65536"},  {"DefaultTime2Wait", "0"},
                         {"DefaultTime2Retain", "0"},    {"DataPDUInOrder", "Yes"},
                         {"DataSequenceInOrder", "Yes"}, {"MaxRecvDataSegmentLength", "262144"}};
    EXPECT_EQ(desk.answered, agreed);
    for (const Asked& asked : kFirstCommands) {
        SCOPED_TRACE(testing::PrintToString(asked.block));
        const Unit unit = desk.Do(asked.block, asked.room);
        EXPECT_EQ(unit.Status() == 0 ? 0 : unit.Sense(), asked.sense);
        if (asked.sense == 0) {
            EXPECT_EQ(unit.data.size(), asked.size);
            ASSERT_GE(unit.data.size(), asked.begin.size());
            EXPECT_EQ(
                Bytes(unit.data.begin(), unit.data.begin() + static_cast<std::ptrdiff_t>(asked.begin.size())),
                asked.begin);
        }
    }
    // A new disk is initialised, and written to.
    const Bytes sector(512, 0x55);
    EXPECT_EQ(desk.Do({0x2A, 0, 0, 0, 0, 5, 0, 0, 1}, 512, sector).Status(), 0U);
    EXPECT_EQ(Stored(5 * 512, 512), sector);
    EXPECT_EQ(desk.Do({0x55, 0x10, 0, 0, 0, 0, 0, 0, 28}, 28,
                      Message().Put64(0).Put16(0x0812).Put64(0).Put64(0).Put16(0).Get())
                  .Status(),
              0U)
        << "the user switches the write cache off";
    const int flushes = device.flushes;
    EXPECT_EQ(desk.Do({0x2A, 0, 0, 0, 0, 5, 0, 0, 1}, 512, sector).Status(), 0U);
    EXPECT_GT(device.flushes, flushes);
}

} // namespace
} // namespace quilla::test
