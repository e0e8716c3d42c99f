// The NBD handshake and transmission against arbitrary bytes in arbitrary fragments.
//
// An input is two control bytes and what the peer sends. The first control byte chooses the phase that the
// bytes go to (bit 0) and how they are cut up; the second chooses a sector of the device that fails. The
// device checks that it is only asked for what its rules allow. In the transmission phase every reply, every
// byte read and all bytes of the device at the end are compared with a slow and obvious model of the
// protocol.

#include "export/byte_device.h"
#include "export/nbd/handshake.h"
#include "export/nbd/transmission.h"
#include "fuzz/fragment_stream.h"
#include "platform/byte_order.h"
#include "tests/export/nbd/memory_device.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace quilla {
namespace {

using fuzz::Bytes;
using fuzz::FragmentStream;
using fuzz::Require;

constexpr std::size_t kDeviceSize = (32U << 10) + 3 * 512;
constexpr std::size_t kReceiveBuffer = 256U << 10;
constexpr std::size_t kReplyBuffer = 8U << 10;
constexpr std::size_t kLongestOutput = 256U << 10;

/// What a correct server answers, worked out request by request on plain arrays.
class Model {
  public:
    explicit Model(std::uint64_t badSector)
        : badSector_(badSector), bytes_(test::MemoryDevice(kDeviceSize).bytes), isKnown_(kDeviceSize, 1) {}

    /// Compares what a server has sent, and has left on its device, for a peer's bytes.
    void Check(std::span<const std::byte> input, std::span<const std::byte> output, const Bytes& device) {
        output_ = output;
        while (input.size() >= 28 && LoadBig<std::uint32_t>(input.data()) == 0x25609513) {
            const std::size_t used = CheckRequest(input);
            if (used == 0)
                break;
            input = input.subspan(used);
        }
        Require(output_.empty(), "a reply for each request");
        Require(IsSame(0, device), "bytes on the device");
    }

  private:
    /// Returns the bytes that the request takes, 0 when it is the last one.
    std::size_t CheckRequest(std::span<const std::byte> input) {
        const auto flags = LoadBig<std::uint16_t>(input.data() + 4);
        const auto command = LoadBig<std::uint16_t>(input.data() + 6);
        const auto cookie = LoadBig<std::uint64_t>(input.data() + 8);
        const auto offset = LoadBig<std::uint64_t>(input.data() + 16);
        const auto length = LoadBig<std::uint32_t>(input.data() + 24);
        if (command == 2)
            return 0;
        const std::uint32_t error = ExpectedError(command, flags, offset, length);
        const std::size_t payload = command == 1 ? length : 0;
        if (input.size() - 28 < payload) { // breaks off; what was written of it is not known
            if (error == 0 || error == 5)
                Forget(offset, length);
            return 0;
        }
        if (error == 5)
            Forget(offset, command == 0 ? 0 : length);
        if (error == 5 && command == 0 && badSector_ > (offset + kReplyBuffer - 16 - 1) / 512) {
            output_ = {}; // the fault comes after a part was sent: the server can only close
            return 0;
        }
        CheckReply(error, cookie);
        if (error == 0)
            Perform(command, offset, length, input.data() + 28);
        return 28 + payload;
    }

    [[nodiscard]] std::uint32_t ExpectedError(unsigned command, unsigned flags, std::uint64_t offset,
                                              std::uint64_t length) const {
        const bool isKnown = command == 0 || command == 1 || command == 3 || command == 6;
        const unsigned allowed = command == 6 ? 3 : 1;
        if (!isKnown || (flags & ~allowed) != 0 || (command < 2 && length > (32U << 20)) ||
            (command == 3 && length > 0))
            return 22;
        if (offset > kDeviceSize || length > kDeviceSize - offset)
            return command == 1 || command == 6 ? 28 : 22;
        const bool meets =
            length > 0 && badSector_ >= offset / 512 && badSector_ <= (offset + length - 1) / 512;
        return meets ? 5 : 0;
    }

    void CheckReply(std::uint32_t error, std::uint64_t cookie) {
        Require(output_.size() >= 16, "a reply");
        Require(LoadBig<std::uint32_t>(output_.data()) == 0x67446698, "mark of a reply");
        Require(LoadBig<std::uint32_t>(output_.data() + 4) == error, "error of a reply");
        Require(LoadBig<std::uint64_t>(output_.data() + 8) == cookie, "cookie of a reply");
        output_ = output_.subspan(16);
    }

    void Perform(unsigned command, std::uint64_t offset, std::size_t length, const std::byte* payload) {
        if (command == 3)
            return;
        if (command == 0) {
            Require(output_.size() >= length, "length read");
            Require(IsSame(offset, output_.first(length)), "bytes read");
            output_ = output_.subspan(length);
            return;
        }
        for (std::size_t i = 0; i < length; ++i) {
            bytes_[offset + i] = command == 1 ? payload[i] : std::byte{0};
            isKnown_[offset + i] = 1;
        }
    }

    [[nodiscard]] bool IsSame(std::uint64_t offset, std::span<const std::byte> bytes) const {
        if (std::memcmp(bytes_.data() + offset, bytes.data(), bytes.size()) == 0)
            return true;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (isKnown_[offset + i] != 0 && bytes[i] != bytes_[offset + i])
                return false;
        return true;
    }

    void Forget(std::uint64_t offset, std::size_t length) {
        std::fill_n(isKnown_.begin() + static_cast<std::ptrdiff_t>(offset), length, std::uint8_t{0});
    }

    std::uint64_t badSector_;
    Bytes bytes_;
    std::vector<std::uint8_t> isKnown_;
    std::span<const std::byte> output_;
};

void FuzzTransmission(std::span<const std::byte> input, unsigned cut, std::uint64_t badSector) {
    static Bytes received(kReceiveBuffer);
    static Bytes gathered(kReplyBuffer);
    test::MemoryDevice device(kDeviceSize);
    device.badSector = badSector;
    RangeLock ranges;
    FragmentStream stream(input, cut, kLongestOutput);
    {
        StreamReader reader(stream, received);
        ReplyWriter replies(stream, gathered);
        ByteDevice bytes(device, ranges);
        const std::atomic<ServerPhase> phase = ServerPhase::Serving;
        static_cast<void>(nbd::Transmission(reader, replies, bytes, phase).Run());
    }
    Require(device.rulesBroken == 0, "requests within the device's rules");
    if (stream.output.size() < kLongestOutput) // otherwise the peer was taken for gone
        Model(badSector).Check(input, stream.output, device.bytes);
}

void FuzzHandshake(std::span<const std::byte> input, unsigned cut) {
    static Bytes received(kReceiveBuffer);
    static Bytes gathered(kReplyBuffer);
    FragmentStream stream(input, cut, kLongestOutput);
    StreamReader reader(stream, received);
    ReplyWriter replies(stream, gathered);
    nbd::Handshake handshake(stream, reader, replies, {.name = "x", .size = kDeviceSize});
    static_cast<void>(handshake.Run(60'000));
    static_cast<void>(replies.Send());
    Require(stream.output.size() >= 18, "greeting");
    // At most the greeting, and for each option two informations and an acknowledgement.
    Require(stream.output.size() <= 18 + nbd::Handshake::kMaxOptions * (32 + 34 + 20) + 134,
            "limit of what is said");
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
        quilla::FuzzTransmission(input, cut, badSector);
    else
        quilla::FuzzHandshake(input, cut);
    return 0;
}
