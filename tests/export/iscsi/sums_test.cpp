// MD5 and CRC-32C against published values.

#include "tests/export/iscsi/initiator.h"

#include <numeric>

namespace quilla::test {
namespace {

TEST(Md5Test, PublishedValues) { // RFC 1321, A.5
    const std::map<std::string, std::string> values = {
        {"", "0xd41d8cd98f00b204e9800998ecf8427e"},
        {"message digest", "0xf96b697d7cb7938d525a2f31aaf161d0"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "0xd174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "0x57edf4a22be3c955ac49da2e2107b67a"}};
    for (const auto& [text, digest] : values) {
        iscsi::Md5 sum;
        sum.Add(std::as_bytes(std::span(text)));
        EXPECT_EQ(Hex(sum.Finish()), digest);
    }
}

TEST(Crc32cTest, PublishedValuesByInstructionAndByTable) { // RFC 7143, A.4
    Bytes bytes(32);
    EXPECT_EQ(iscsi::Crc32c(std::as_bytes(std::span(bytes))), 0x8A9136AAU);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    EXPECT_EQ(iscsi::Crc32c(std::as_bytes(std::span(bytes))), 0x46DD794EU);
    bytes.resize(1003, 0x5A);
    for (const std::size_t cut : {0U, 1U, 17U, 1003U}) {
        const auto all = std::as_bytes(std::span(bytes));
        EXPECT_EQ(iscsi::Crc32c(all.subspan(cut), iscsi::Crc32c(all.first(cut))), iscsi::Crc32cByTable(all));
    }
}

} // namespace
} // namespace quilla::test
