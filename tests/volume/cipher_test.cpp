// CAST-128 and Twofish against the vectors that their authors published, and what the frame around them
// forgets. Other libraries check its modes in fuzz/cipher_fuzz.cpp.

#include "tests/support/hex.h"
#include "volume/cast128.h"
#include "volume/cipher_frame.h"
#include "volume/twofish.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;
using test::FromHex;
using test::ToHex;

TEST(Cast128, PublishedVector) {
    // RFC 2144, appendix B.1.
    CastSchedule schedule;
    const Bytes key = FromHex("0123456712345678234567893456789A");
    BuildCastSchedule(schedule, std::span<const std::byte, kCastKeySize>(key));
    Bytes block = FromHex("0123456789ABCDEF");
    CastEncryptBlock(schedule, block.data(), block.data());
    EXPECT_EQ(ToHex(block), "238B4FE5847E44B2");
    CastDecryptBlock(schedule, block.data(), block.data());
    EXPECT_EQ(ToHex(block), "0123456789ABCDEF");
}

TEST(Twofish, PublishedVectorsOfEveryKeySize) {
    // Appendix A of the paper, and entries of the submission's ecb_ival.txt.
    const char* const vectors[][2] = {
        {"00000000000000000000000000000000", "9F589F5CF6122C32B6BFEC2F2AE8C35A"},
        {"0123456789ABCDEFFEDCBA98765432100011223344556677", "CFD1D2E5A9BE9CDF501F13B892BD2248"},
        {"0123456789ABCDEFFEDCBA987654321000112233445566778899AABBCCDDEEFF",
         "37527BE0052334B89F0CFCCAE87CFA20"},
    };
    for (const auto& [key, ciphertext] : vectors) {
        TwofishSchedule schedule;
        ASSERT_TRUE(BuildTwofishSchedule(schedule, FromHex(key)));
        Bytes block(16);
        TwofishEncryptBlock(schedule, block.data(), block.data());
        EXPECT_EQ(ToHex(block), ciphertext);
        TwofishDecryptBlock(schedule, block.data(), block.data());
        EXPECT_EQ(block, Bytes(16));
    }
}

TEST(CipherFrame, ForgetsTheKeyAfterSetUpAndTheScheduleAtRelease) {
    for (const CipherId cipher : {CipherId::Cast128, CipherId::Twofish}) {
        CipherContext context;
        ASSERT_TRUE(CipherSetup(context, Bytes(300, std::byte{7}), cipher));
        EXPECT_EQ(std::ranges::count(context.keyBytes, std::byte{0}), 256);
        EXPECT_TRUE(CipherRelease(context));
        EXPECT_TRUE(CipherRelease(context)); // which finds nothing
        Bytes data(16);
        EXPECT_FALSE(CipherEncrypt(context, data, Bytes(16)));
    }
}

} // namespace
} // namespace quilla
