// CAST-128 and Twofish block by block, against the vectors their authors published.

#include "tests/support/hex.h"
#include "volume/cast128.h"
#include "volume/twofish.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;
using test::FromHex;
using test::ToHex;

CastSchedule CastKey(const Bytes& key) {
    CastSchedule schedule;
    BuildCastSchedule(schedule, std::span<const std::byte, kCastKeySize>(key));
    return schedule;
}

TEST(Cast128, SingleVector) {
    // RFC 2144, appendix B.1.
    const CastSchedule schedule = CastKey(FromHex("01 23 45 67 12 34 56 78 23 45 67 89 34 56 78 9A"));
    Bytes block = FromHex("01 23 45 67 89 AB CD EF");
    CastEncryptBlock(schedule, block.data(), block.data());
    EXPECT_EQ(ToHex(block), "238B4FE5847E44B2");
    CastDecryptBlock(schedule, block.data(), block.data());
    EXPECT_EQ(ToHex(block), "0123456789ABCDEF");
}

TEST(Cast128, MaintenanceTest) {
    // RFC 2144, appendix B.2: two keys encipher each other a million times, which visits every S-box entry.
    Bytes a = FromHex("01 23 45 67 12 34 56 78 23 45 67 89 34 56 78 9A");
    Bytes b = a;
    for (int i = 0; i < 1'000'000; ++i) {
        const CastSchedule underB = CastKey(b);
        CastEncryptBlock(underB, &a[0], &a[0]);
        CastEncryptBlock(underB, &a[8], &a[8]);
        const CastSchedule underA = CastKey(a);
        CastEncryptBlock(underA, &b[0], &b[0]);
        CastEncryptBlock(underA, &b[8], &b[8]);
    }
    EXPECT_EQ(ToHex(a), "EEA9D0A249FD3BA6B3436FB89D6DCA92");
    EXPECT_EQ(ToHex(b), "B2C95EB00C31AD7180AC05B8E83D696E");
}

TwofishSchedule TwofishKeyed(const Bytes& key) {
    TwofishSchedule schedule;
    EXPECT_TRUE(BuildTwofishSchedule(schedule, key));
    return schedule;
}

struct TwofishVector {
    const char* key;
    const char* plain;
    const char* cipher;
};

TEST(Twofish, PublishedVectors) {
    // Appendix A of the paper, and entries of the submission's ecb_ival.txt.
    constexpr TwofishVector kVectors[] = {
        {"00000000000000000000000000000000", "00000000000000000000000000000000",
         "9F589F5CF6122C32B6BFEC2F2AE8C35A"},
        {"0123456789ABCDEFFEDCBA98765432100011223344556677", "00000000000000000000000000000000",
         "CFD1D2E5A9BE9CDF501F13B892BD2248"},
        {"0123456789ABCDEFFEDCBA987654321000112233445566778899AABBCCDDEEFF",
         "00000000000000000000000000000000", "37527BE0052334B89F0CFCCAE87CFA20"},
    };
    for (const TwofishVector& vector : kVectors) {
        const TwofishSchedule schedule = TwofishKeyed(FromHex(vector.key));
        Bytes block = FromHex(vector.plain);
        TwofishEncryptBlock(schedule, block.data(), block.data());
        EXPECT_EQ(ToHex(block), vector.cipher);
        TwofishDecryptBlock(schedule, block.data(), block.data());
        EXPECT_EQ(ToHex(block), vector.plain);
    }
}

/// The iterated table of the submission (ecb_tbl.txt): each text is the last result, each key the results
/// before it. Returns the result of the step asked for.
std::string IterateTable(std::size_t keySize, int steps) {
    Bytes key(keySize);
    Bytes text(16);
    for (int i = 1;; ++i) {
        const TwofishSchedule schedule = TwofishKeyed(key);
        Bytes result(16);
        TwofishEncryptBlock(schedule, text.data(), result.data());
        Bytes back(16);
        TwofishDecryptBlock(schedule, result.data(), back.data());
        EXPECT_EQ(ToHex(back), ToHex(text));
        if (i == steps)
            return ToHex(result);
        std::copy_backward(key.begin(), key.end() - 16, key.end()); // older results move up
        std::copy(text.begin(), text.end(), key.begin());
        text = result;
    }
}

TEST(Twofish, IteratedTables) {
    EXPECT_EQ(IterateTable(16, 2), "D491DB16E7B1C39E86CB086B789F5419");
    EXPECT_EQ(IterateTable(16, 3), "019F9809DE1711858FAAC3A3BA20FBC3");
    EXPECT_EQ(IterateTable(16, 49), "5D9D4EEFFA9151575524F115815A12E0");
    EXPECT_EQ(IterateTable(24, 49), "E75449212BEEF9F4A390BD860A640941");
    EXPECT_EQ(IterateTable(32, 49), "37FE26FF1CF66175F5DDF4C33B97A205");
}

TEST(Twofish, KeysOfOddLengthArePaddedWithZeros) {
    const Bytes full = FromHex("0123456789ABCDEFFEDCBA9876543210001122330000000000000000000000AA");
    const struct {
        std::size_t given;
        std::size_t padded;
    } kCases[] = {{20, 24}, {17, 24}, {16, 16}};
    for (const auto& lengths : kCases) {
        Bytes padded(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(lengths.given));
        const TwofishSchedule given = TwofishKeyed(padded);
        padded.resize(lengths.padded);
        const TwofishSchedule expected = TwofishKeyed(padded);
        EXPECT_EQ(0, std::memcmp(&given, &expected, sizeof(given)));
    }
    TwofishSchedule schedule;
    EXPECT_FALSE(BuildTwofishSchedule(schedule, Bytes(33)));
}

TEST(Twofish, SboxesAgreeWithTheTables) {
    // Kernels that apply the matrix themselves build on the bare S-boxes. The matrix has a one in rows 0, 2
    // (column 2), 1 (column 3) and 3 (column 1), where a table shows the bare S-box.
    TwofishKey key;
    ASSERT_TRUE(ExpandTwofishKey(key, FromHex("0123456789ABCDEFFEDCBA98765432100011223344556677")));
    TwofishSboxes sboxes;
    BuildTwofishSboxes(sboxes, key);
    TwofishSchedule schedule;
    BuildTwofishSchedule(schedule, key);
    constexpr unsigned kRowOfOne[4] = {0, 3, 2, 1};
    for (unsigned place = 0; place < 4; ++place)
        for (unsigned x = 0; x < 256; ++x)
            ASSERT_EQ(sboxes.box[place][x], (schedule.tables[place][x] >> (8 * kRowOfOne[place])) & 0xFF);
}

} // namespace
} // namespace quilla
