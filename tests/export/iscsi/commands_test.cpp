// What the conformance suite does not look at: digests, unsolicited data, errors of the device, the end.

#include "tests/export/iscsi/initiator.h"

#include <thread>

namespace quilla::test {
namespace {

class IscsiCommandTest : public TargetTest {};

Bytes Pattern(std::size_t size, unsigned seed) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 31 + i / 256 + seed);
    return bytes;
}

TEST_F(IscsiCommandTest, WhatTheConformanceSuiteMisses) {
    Initiator desk = Enter();
    EXPECT_EQ(desk.Do({0x28, 0, 0xFF, 0, 0, 0, 0, 0, 1}, 512).Sense(), 0x52100U);
    EXPECT_EQ(desk.Do({0x08, 0, 0, 0, 0}, 256 * 512).data, Stored(0, 256 * 512)) << "no count means 256";
    EXPECT_EQ(desk.Do({0x5A, 8, 0x19, 0, 0, 0, 0, 0, 64}, 64).Sense(), 0x52400U) << "unknown mode page";
    EXPECT_EQ(desk.Do({0x28, 0, 0, 0, kBlocks >> 8, 0, 0, 0, 0}).Status(), 0U) << "nothing at the very end";
    EXPECT_EQ(desk.Do({0x28, 0, 0, 0, kBlocks >> 8, 1, 0, 0, 0}).Sense(), 0x52100U);
    EXPECT_EQ(desk.Do({0x12, 0, 0, 0, 5}, 96).data.size(), 5U) << "allocation length";
    EXPECT_EQ(desk.Do({0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12}, 32).data.size(), 12U);
    const Unit verify = desk.Do({0x2F, 0, 0, 0, 0, 0, 0, 0, 1}, 512, Bytes(512));
    EXPECT_EQ(verify.Status(), 0U);
    EXPECT_EQ(verify.At(1, 1) & 6, 2U) << "none of the data was wanted";
    EXPECT_EQ(verify.At(44, 4), 512U);
}

TEST_F(IscsiCommandTest, DigestsAreMadeAndChecked) {
    const std::vector<std::string> both = {"HeaderDigest=CRC32C,None", "DataDigest=CRC32C", "InitialR2T=No"};
    Initiator desk = Enter(both);
    ASSERT_TRUE(desk.digests.ofHeaders && desk.digests.ofData);
    EXPECT_EQ(desk.Do({0x28, 0, 0, 0, 0, 1, 0, 0, 100}, 51200).data, Stored(512, 51200));
    EXPECT_EQ(desk.Do({0x12, 0, 0, 0, 5}, 5).data.size(), 5U) << "padded";
    const Bytes before = Stored(0, 512);
    desk.spoilsData = true;
    // Data that came damaged: told at once, the command fails when all of it has come.
    ASSERT_TRUE(desk.Send(desk.Header(0x01, 0x20, 512, {0x2A, 0, 0, 0, 0, 0, 0, 0, 1})));
    ASSERT_TRUE(desk.Send(desk.Header(0x05, 0x80, 0xFFFFFFFF), Bytes(512, 1)));
    const Unit reject = desk.Receive();
    EXPECT_EQ(reject.Code(), 0x3FU);
    EXPECT_EQ(reject.At(2, 1), 2U);
    EXPECT_EQ(desk.Receive().Sense(), 0xB4705U);
    EXPECT_EQ(Stored(0, 512), before);
    ASSERT_TRUE(desk.Send(desk.Header(0x40, 0x80, 0xFFFFFFFF), Bytes(9, 1)));
    EXPECT_EQ(desk.Receive().Code(), 0x3FU);
    EXPECT_TRUE(desk.IsClosed());
    Initiator other = Enter(both);
    other.spoilsHeader = true;
    ASSERT_TRUE(other.Send(other.Header(0x40, 0x80, 0xFFFFFFFF)));
    EXPECT_TRUE(other.IsClosed());
}

TEST_F(IscsiCommandTest, DataComesImmediatelyUnsolicitedAndOnRequest) {
    Initiator desk = Enter({"InitialR2T=No", "FirstBurstLength=4096", "MaxBurstLength=8192"});
    const Bytes data = Pattern(20480, 3);
    const auto part = [&data](std::size_t at, std::size_t size) {
        return Bytes(data.begin() + static_cast<std::ptrdiff_t>(at),
                     data.begin() + static_cast<std::ptrdiff_t>(at + size));
    };
    const auto out = [&](unsigned flags, std::uint64_t transfer, std::uint32_t number, std::uint32_t offset,
                         std::size_t size) {
        return desk.Send(desk.Header(0x05, flags, static_cast<std::uint32_t>(transfer),
                                     Message().Put32(0).Put32(number).Put32(offset).Get()),
                         part(offset, size));
    };
    ASSERT_TRUE(desk.Send(desk.Header(0x01, 0x20, 20480, {0x2A, 0, 0, 0, 0, 9, 0, 0, 40}), part(0, 1000)));
    ASSERT_TRUE(out(0x00, 0xFFFFFFFF, 0, 1000, 96));
    ASSERT_TRUE(out(0x80, 0xFFFFFFFF, 1, 1096, 3000));
    for (std::uint32_t at = 4096, number = 0; at < data.size(); ++number) {
        const Unit ready = desk.Receive();
        ASSERT_EQ(ready.Code(), 0x31U);
        EXPECT_EQ(ready.At(36, 4), number);
        EXPECT_EQ(ready.At(40, 4), at);
        EXPECT_EQ(ready.At(44, 4), 8192U);
        ASSERT_TRUE(out(0x00, ready.At(20, 4), 0, at, 100));
        ASSERT_TRUE(out(0x80, ready.At(20, 4), 1, at + 100, 8092));
        at += 8192;
    }
    const Unit done = desk.Receive();
    EXPECT_EQ(done.Code(), 0x21U);
    EXPECT_EQ(done.Status(), 0U);
    EXPECT_EQ(Stored(9 * 512, data.size()), data);
    // Out of order: the write fails, and only when its sequence has ended.
    ASSERT_TRUE(desk.Send(desk.Header(0x01, 0x20, 4096, {0x2A, 0, 0, 0, 0, 9, 0, 0, 8}), part(0, 512)));
    ASSERT_TRUE(out(0x00, 0xFFFFFFFF, 0, 1024, 512));
    ASSERT_TRUE(out(0x80, 0xFFFFFFFF, 1, 1536, 512));
    EXPECT_EQ(desk.Receive().Sense() >> 16, 0xBU);
    // An aborted task is gone, and its data is ignored.
    ASSERT_TRUE(desk.Send(desk.Header(0x01, 0x20, 4096, {0x2A, 0, 0, 0, 0, 9, 0, 0, 8})));
    ASSERT_TRUE(desk.Send(desk.Header(0x42, 0x81, desk.tag)));
    EXPECT_EQ(desk.Receive().At(2, 1), 0U);
    ASSERT_TRUE(out(0x80, 0xFFFFFFFF, 0, 0, 512));
    EXPECT_EQ(desk.Do({0}).Status(), 0U);
    EXPECT_EQ(Stored(9 * 512, 512), part(0, 512));
}

TEST_F(IscsiCommandTest, ErrorsOfTheDeviceAreToldAsSense) {
    Initiator desk = Enter({"MaxRecvDataSegmentLength=512"});
    device.badSector = 8;
    const Unit broken = desk.Do({0x28, 0, 0, 0, 0, 0, 0, 0, 16}, 8192);
    EXPECT_EQ(broken.Sense(), 0x31100U);
    EXPECT_EQ(broken.At(36, 4), 8U) << "units of data that came before";
    EXPECT_EQ(broken.At(44, 4), 4096U) << "and what did not come";
    EXPECT_EQ(desk.Do({0x28, 0, 0, 0, 0, 8, 0, 0, 1}, 512).Sense(), 0x31100U);
    EXPECT_EQ(desk.Do({0x2A, 0, 0, 0, 0, 8, 0, 0, 1}, 512, Bytes(512)).Sense(), 0x30C00U);
    EXPECT_EQ(desk.Do({0x2F, 0, 0, 0, 0, 0, 0, 0, 100}).Sense(), 0x31100U);
    device.flushFails = true;
    EXPECT_EQ(desk.Do({0x35}).Sense(), 0x30C00U);
    EXPECT_EQ(desk.Do({0x2A, 8, 0, 0, 0, 9, 0, 0, 1}, 512, Bytes(512)).Sense(), 0x30C00U)
        << "force unit access";
    EXPECT_EQ(desk.Do({0x2A, 0, 0, 0, 0, 9, 0, 0, 1}, 512, Bytes(512)).Status(), 0U);
    device.flushFails = false;
}

TEST_F(IscsiCommandTest, StopCompletesWhatHasCome) {
    Initiator idle = Connect();
    idle.session[3] = 0x99;
    ASSERT_EQ(idle.Login(keys, keys.secret.data()), 0U);
    Initiator desk = Enter();
    device.SetGate(true);
    const int before = device.requests;
    ASSERT_TRUE(desk.Send(desk.Header(0x01, 0xA0, 4096, {0x2A, 0, 0, 0, 0, 9, 0, 0, 8}), Bytes(4096, 0x42)));
    while (device.requests == before)
        std::this_thread::yield();
    StopReport report;
    std::thread stopper([&] { report = target->Stop(); });
    const Unit last = idle.Receive();
    EXPECT_EQ(last.Code(), 0x32U);
    EXPECT_EQ(last.At(36, 1), 3U) << "the session is dropped";
    EXPECT_EQ(last.At(20, 4), 0U) << "reserved";
    device.SetGate(false);
    EXPECT_EQ(desk.Receive().Status(), 0U);
    stopper.join();
    EXPECT_EQ(report.clientsCutOff, 2U);
    EXPECT_TRUE(report.flushed);
    EXPECT_EQ(Stored(9 * 512, 4096), Bytes(4096, 0x42));
}

} // namespace
} // namespace quilla::test
