// The iSCSI login and full-feature phase against arbitrary bytes in arbitrary fragments.
//
// An input is two control bytes and what the peer sends. The first control byte chooses the phase (bit 0) and
// how the bytes are cut up; the second a sector of the device that fails. The device checks that it is only
// asked for what its rules allow. What is sent back must be whole units whose numbers, lengths and tags keep
// to the protocol's bounds; bytes behind the written ranges of the device must not change.

#include "export/iscsi/device_server.h"
#include "export/iscsi/login.h"
#include "export/iscsi/session.h"
#include "fuzz/fragment_stream.h"
#include "platform/byte_order.h"
#include "tests/export/nbd/memory_device.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace quilla {
namespace {

using fuzz::Bytes;
using fuzz::FragmentStream;
using fuzz::Require;

constexpr std::size_t kDeviceSize = 64U << 10;
constexpr std::size_t kBuffer = 512U << 10;
constexpr std::size_t kLongestOutput = 4U << 20;

/// What holds for everything that a target sends, whatever it was sent.
void CheckUnits(std::span<const std::byte> output, bool isLogin, std::uint32_t segment,
                std::uint32_t firstStatus) {
    std::uint32_t nextStatus = firstStatus;
    std::uint32_t lastWindow = 0;
    while (!output.empty()) {
        Require(output.size() >= 48, "part of a header");
        const auto code = std::to_integer<unsigned>(output[0]);
        const auto flags = std::to_integer<unsigned>(output[1]);
        const std::size_t length = LoadBig<std::uint32_t>(output.data() + 4) & 0xFFFFFF;
        const std::size_t padded = (length + 3) / 4 * 4;
        Require(output[4] == std::byte{}, "additional header segments");
        Require(output.size() >= 48 + padded, "part of the data");
        Require(length <= segment, "more data than the initiator takes");
        Require(isLogin == (code == 0x23), "an answer of another phase");
        const auto status = LoadBig<std::uint32_t>(output.data() + 24);
        const bool counts = code != 0x31 && (code != 0x25 || (flags & 1) != 0);
        Require(status == nextStatus, "a status number out of turn");
        nextStatus += counts ? 1 : 0;
        const std::uint32_t expected = LoadBig<std::uint32_t>(output.data() + 28);
        const std::uint32_t window = LoadBig<std::uint32_t>(output.data() + 32);
        Require(window + 1 - expected <= iscsi::kCommandWindow, "a window beyond its size");
        Require(lastWindow == 0 || static_cast<std::int32_t>(window - lastWindow) >= 0, "the window shrank");
        lastWindow = window;
        if (code == 0x21 && length > 0)
            Require(length == 20 && LoadBig<std::uint16_t>(output.data() + 48) == 18,
                    "sense data of another size");
        if (code == 0x25 && (flags & 1) == 0)
            Require(LoadBig<std::uint32_t>(output.data() + 20) == 0xFFFFFFFF,
                    "data-in that asks for an answer");
        output = output.subspan(48 + padded);
    }
}

constexpr char kName[] = "iqn.x";
constexpr std::uint32_t kFirstCommand = 0x01000000;

void FuzzSession(std::span<const std::byte> input, unsigned cut, std::uint64_t badSector) {
    static Bytes received(kBuffer);
    static Bytes gathered(kBuffer);
    static Bytes scratch(iscsi::DeviceServer::kScratchSize);
    test::MemoryDevice device(kDeviceSize);
    device.badSector = badSector;
    RangeLock ranges;
    FragmentStream stream(input, cut, kLongestOutput);
    iscsi::Parameters terms;
    terms.initialReady = false;
    terms.initiatorSegment = 4096;
    terms.maxBurst = 8192;
    terms.firstBurst = 8192;
    {
        StreamReader reader(stream, received);
        ReplyWriter replies(stream, gathered);
        ByteDevice bytes(device, ranges);
        const std::atomic<ServerPhase> phase = ServerPhase::Serving;
        iscsi::UnitState unit;
        iscsi::PduChannel channel(stream, reader, replies, phase);
        channel.SetSegmentLimit(iscsi::kMaxSegment);
        channel.numbers.commandExpected = kFirstCommand;
        iscsi::DeviceServer server(bytes, unit, scratch, phase);
        const auto session = std::make_unique<iscsi::Session>(
            channel, terms, iscsi::SessionContext{kName, "127.0.0.1:1,1", 0}, &server);
        session->Run([](void*) {}, nullptr);
    }
    Require(device.rulesBroken == 0, "a request outside the device's rules");
    // A text request may agree on larger units.
    if (stream.output.size() < kLongestOutput)
        CheckUnits(stream.output, false, iscsi::kMaxSegment, 0);
}

void FuzzLogin(std::span<const std::byte> input, unsigned cut) {
    static Bytes received(kBuffer);
    static Bytes gathered(kBuffer);
    FragmentStream stream(input, cut, kLongestOutput);
    StreamReader reader(stream, received);
    ReplyWriter replies(stream, gathered);
    const std::atomic<ServerPhase> phase = ServerPhase::Serving;
    iscsi::PduChannel channel(stream, reader, replies, phase);
    const iscsi::TargetIdentity identity{kName, "u", "0123456789abcdef"};
    const auto login = std::make_unique<iscsi::Login>(channel, identity);
    Require(!login->Run(60'000), "in without the secret"); // the challenge is not to be foreseen
    static_cast<void>(replies.Send());
    const std::uint32_t first =
        stream.output.size() >= 48 ? LoadBig<std::uint32_t>(stream.output.data() + 24) : 0;
    CheckUnits(stream.output, true, 8192, first);
    Require(stream.output.size() <= iscsi::Login::kMaxUnits * (48 + 4096), "too much said");
}

} // namespace
} // namespace quilla

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const auto input = std::as_bytes(std::span(data, size)).subspan(2);
    const unsigned cut = data[0] >> 1;
    const std::uint64_t badSector = data[1] < 128 ? ~std::uint64_t{0} : data[1] - 128U;
    if ((data[0] & 1) != 0)
        quilla::FuzzSession(input, cut, badSector);
    else
        quilla::FuzzLogin(input, cut);
    return 0;
}
