#pragma once

#include "export/iscsi/crc32c.h"
#include "export/iscsi/md5.h"
#include "export/iscsi/target.h"
#include "tests/export/nbd/memory_device.h"
#include "tests/export/nbd/nbd_client.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

/// An initiator that can say anything, right or wrong. Its offsets are written out here once more, on
/// purpose: the target's own structures would hide the target's own mistakes.
namespace quilla::test {

/// Digests that were agreed on; bytes of each.
struct Digests {
    bool ofHeaders = false;
    bool ofData = false;
};

struct Unit {
    Bytes header; // empty: the connection has ended
    Bytes data;

    [[nodiscard]] unsigned Code() const { return header.empty() ? 0xFF : header[0] & 0x3FU; }
    [[nodiscard]] std::uint64_t At(std::size_t at, std::size_t size) const {
        return Number(header, at, size);
    }
    [[nodiscard]] std::uint64_t Status() const { return At(3, 1); }
    /// Key and code of sense data, as 0x52400; its length prefix must be right.
    [[nodiscard]] std::uint64_t Sense() const {
        if (data.size() != 20 || Number(data, 0, 2) != 18)
            return 0xBAD;
        return Number(data, 4, 1) << 16 | Number(data, 14, 2);
    }
};

using Keys = std::map<std::string, std::string>;

inline std::string Hex(std::span<const std::byte> bytes) {
    std::string text = "0x";
    for (const std::byte value : bytes)
        for (const int shift : {4, 0})
            text += "0123456789abcdef"[std::to_integer<unsigned>(value) >> shift & 15];
    return text;
}

inline Bytes FromHex(std::string_view text) {
    Bytes bytes;
    for (std::size_t at = text.starts_with("0x") ? 2 : 0; at + 1 < text.size(); at += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(std::string(text.substr(at, 2)), nullptr, 16)));
    return bytes;
}

class Initiator {
  public:
    explicit Initiator(std::uint16_t port) : client_(port) {}

    /// A header: code, flags, task tag, the word at 20, and whatever stands from 32 on.
    [[nodiscard]] Bytes Header(unsigned code, unsigned flags, std::uint32_t word20, const Bytes& tail = {}) {
        Message message;
        message.Put16(code << 8 | flags).Put16(0).Put64(0).Put64(0);
        Bytes header = message.Get();
        header.resize(16);
        const bool isImmediate = (code & 0x40) != 0;
        Message rest;
        rest.Put32(tag).Put32(word20).Put32(command).Put32(statusExpected).Put(tail);
        header.insert(header.end(), rest.Get().begin(), rest.Get().end());
        header.resize(48);
        command += isImmediate || (code & 0x3F) == 5 ? 0 : 1;
        return header;
    }

    [[nodiscard]] bool Send(Bytes header, const Bytes& data = {}) {
        header[5] = static_cast<std::uint8_t>(data.size() >> 16);
        header[6] = static_cast<std::uint8_t>(data.size() >> 8);
        header[7] = static_cast<std::uint8_t>(data.size());
        AddDigest(header, digests.ofHeaders, 0, spoilsHeader);
        Bytes padded = data;
        padded.resize((data.size() + 3) / 4 * 4);
        AddDigest(padded, digests.ofData && !data.empty(), 0, spoilsData);
        header.insert(header.end(), padded.begin(), padded.end());
        return client_.Send(header);
    }

    [[nodiscard]] Unit Receive() {
        Unit unit;
        const auto header = client_.Receive(48);
        if (!header || (digests.ofHeaders && !IsDigestRight(*header)))
            return unit;
        const auto length = static_cast<std::size_t>(Number(*header, 5, 3));
        const auto data = client_.Receive((length + 3) / 4 * 4);
        if (!data || (digests.ofData && length > 0 && !IsDigestRight(*data)))
            return unit;
        unit.header = *header;
        unit.data = *data;
        unit.data.resize(length);
        statusExpected = static_cast<std::uint32_t>(unit.At(24, 4)) + 1;
        return unit;
    }

    /// One login request and its answer; the answer's keys are put into `answered`.
    [[nodiscard]] Unit SendLogin(unsigned flags, const std::vector<std::string>& keys) {
        std::string text;
        for (const std::string& key : keys)
            text += key + '\0';
        Bytes header = Header(0x43, flags, 0);
        std::ranges::copy(session, header.begin() + 8);
        if (!Send(header, Bytes(text.begin(), text.end())))
            return {};
        Unit answer = Receive();
        answered.clear();
        std::string_view rest(reinterpret_cast<const char*>(answer.data.data()), answer.data.size());
        while (!rest.empty()) {
            const std::string_view line = rest.substr(0, rest.find('\0'));
            answered[std::string(line.substr(0, line.find('=')))] = line.substr(line.find('=') + 1);
            rest.remove_prefix(line.size() + 1);
        }
        return answer;
    }

    /// The keys that prove the secret, after a challenge has been answered.
    [[nodiscard]] std::vector<std::string> Proof(std::string_view secret,
                                                 const std::string& user = "quilla") {
        iscsi::Md5 sum;
        const Bytes id = {static_cast<std::uint8_t>(std::stoul("0" + answered["CHAP_I"]))};
        const Bytes challenge = FromHex(answered["CHAP_C"]);
        sum.Add(std::as_bytes(std::span(id)));
        sum.Add(std::as_bytes(std::span(secret)));
        sum.Add(std::as_bytes(std::span(challenge)));
        return {"CHAP_N=" + user, "CHAP_R=" + Hex(sum.Finish())};
    }

    /// The whole way in; the status of the last answer, 0 when it worked.
    [[nodiscard]] std::uint64_t Login(const iscsi::TargetKeys& keys, std::string_view secret,
                                      bool discovery = false, const std::vector<std::string>& terms = {}) {
        std::vector<std::string> first = {"InitiatorName=iqn.1991-05.com.microsoft:desk",
                                          "AuthMethod=CHAP,None"};
        first.push_back(discovery ? "SessionType=Discovery" : "SessionType=Normal");
        if (!discovery)
            first.push_back(std::string("TargetName=") + keys.name.data());
        if (const Unit unit = SendLogin(0x01, first); unit.At(36, 2) != 0)
            return unit.At(36, 2);
        if (const Unit unit = SendLogin(0x01, {"CHAP_A=5"}); unit.At(36, 2) != 0)
            return unit.At(36, 2);
        if (const Unit unit = SendLogin(0x81, Proof(secret)); unit.At(36, 2) != 0)
            return unit.At(36, 2);
        const Unit last = SendLogin(0x87, terms);
        digests = {.ofHeaders = answered["HeaderDigest"] == "CRC32C",
                   .ofData = answered["DataDigest"] == "CRC32C"};
        const bool hasHandle = last.At(14, 2) != 0;
        return last.header.empty() || (last.At(36, 2) == 0 && !hasHandle) ? 0xFFFF : last.At(36, 2);
    }

    /// A command with data in one direction at most; the unit with its status, whose data are all that came.
    [[nodiscard]] Unit Do(const Bytes& block, std::uint32_t expected = 0, const Bytes& out = {},
                          unsigned flags = 0) {
        const unsigned direction = expected == 0 ? 0x80 : out.empty() ? 0xC0 : 0xA0;
        if (!Send(Header(0x01, flags != 0 ? flags : direction, expected, block), out))
            return {};
        Bytes got;
        for (;;) {
            Unit unit = Receive();
            if (unit.Code() == 0x25)
                got.insert(got.end(), unit.data.begin(), unit.data.end());
            if (unit.Code() != 0x25 || (unit.header[1] & 1) != 0) {
                if (unit.Code() == 0x25)
                    unit.data = got;
                return unit;
            }
        }
    }

    [[nodiscard]] bool IsClosed() { return client_.IsClosed(); }

    std::uint32_t tag = 7;
    std::uint32_t command = 100;
    std::uint32_t statusExpected = 0;
    Digests digests;
    bool spoilsHeader = false;
    bool spoilsData = false;
    Bytes session = {0x40, 0, 1, 0x37, 0, 0};
    Keys answered;

  private:
    static void AddDigest(Bytes& bytes, bool isWanted, std::size_t /*from*/, bool isWrong) {
        if (!isWanted)
            return;
        const std::uint32_t sum = iscsi::Crc32cByTable(std::as_bytes(std::span(bytes))) ^ (isWrong ? 1U : 0U);
        for (const unsigned shift : {0U, 8U, 16U, 24U})
            bytes.push_back(static_cast<std::uint8_t>(sum >> shift));
    }
    [[nodiscard]] bool IsDigestRight(const Bytes& bytes) {
        const auto sum = client_.Receive(4);
        Bytes expected;
        AddDigest(expected = bytes, true, 0, false);
        return sum && std::equal(sum->begin(), sum->end(), expected.end() - 4);
    }

    NbdClient client_;
};

/// A target over a device in memory.
class TargetTest : public testing::Test {
  protected:
    static constexpr std::uint32_t kBlocks = 16384;

    void SetUp() override {
        ASSERT_TRUE(iscsi::MakeTargetKeys(3, keys));
        target.emplace(device, ranges, keys, "SEC3",
                       ServerLimits{.handshakeMilliseconds = 3000, .stopMilliseconds = 700});
        ASSERT_TRUE(target->Start());
    }
    void TearDown() override {
        target->Stop();
        EXPECT_EQ(device.rulesBroken, 0) << "the device was asked for something outside its rules";
    }

    [[nodiscard]] Initiator Connect() const { return Initiator(target->Port()); }
    [[nodiscard]] Initiator Enter(const std::vector<std::string>& terms = {}) const {
        Initiator initiator = Connect();
        EXPECT_EQ(initiator.Login(keys, keys.secret.data(), false, terms), 0U);
        return initiator;
    }
    [[nodiscard]] Bytes Stored(std::uint64_t offset, std::size_t length) const {
        const auto* const first = reinterpret_cast<const std::uint8_t*>(device.bytes.data()) + offset;
        return Bytes(first, first + length);
    }

    MemoryDevice device{kBlocks * 512};
    RangeLock ranges;
    iscsi::TargetKeys keys{};
    std::optional<iscsi::Target> target;
};

} // namespace quilla::test
