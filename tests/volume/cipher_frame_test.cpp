// The cipher frame's own rules: numbers, clipping, lengths, wiping. That the modes compute the right bytes is
// shown against other libraries in cipher_frame_oracle_test.cpp.

#include "tests/support/hex.h"
#include "volume/cipher_frame.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;

const Bytes kKey(20, std::byte{0x0F});
const Bytes kIv(20, std::byte{0xE1});

TEST(CipherFrame, NumbersWithoutACipherLeaveTheDataAlone) {
    for (const std::uint32_t number : {0U, 1U, 5U, 7U, 9U, 11U, 12U, 0xFFFFFFFFU}) {
        CipherContext context;
        EXPECT_TRUE(CipherSetup(context, kKey, CipherId{number}));
        EXPECT_EQ(context.cipherId, number < 11 ? CipherId{number} : CipherId::None);
        EXPECT_EQ(context.blockSize, 0U);
        Bytes data = kIv;
        EXPECT_FALSE(CipherEncrypt(context, data, kIv));
        EXPECT_FALSE(CipherDecrypt(context, data, kIv));
        EXPECT_EQ(data, kIv);
        CipherRelease(context);
    }
}

TEST(CipherFrame, ForgetsTheKeyAfterSetUpAndTheScheduleAtRelease) {
    const struct {
        CipherId cipher;
        std::uint32_t keyLength;
        std::uint32_t blockSize;
        std::uint32_t leastSchedule;
    } kCases[] = {{CipherId::Cast128, 16, 8, 128}, {CipherId::Twofish, 32, 16, 2 * 160}};
    for (const auto& expected : kCases) {
        CipherContext context;
        ASSERT_TRUE(CipherSetup(context, Bytes(300, std::byte{7}), expected.cipher));
        EXPECT_EQ(context.keyLength, expected.keyLength);
        EXPECT_EQ(context.blockSize, expected.blockSize);
        EXPECT_GE(context.scheduleSize, expected.leastSchedule);
        EXPECT_TRUE(std::ranges::all_of(context.keyBytes, [](std::byte b) { return b == std::byte{0}; }));
        CipherRelease(context);
        EXPECT_EQ(context.schedule, nullptr);
        EXPECT_EQ(context.chainRegister, nullptr);
        CipherRelease(context); // a second release finds nothing
        Bytes data(16);
        EXPECT_FALSE(CipherEncrypt(context, data, kIv));
    }
}

TEST(CipherFrame, RefusesPartsOfATwofishBlock) {
    Cipher frame(kKey, CipherId::Twofish);
    for (const std::size_t size : {1U, 15U, 17U, 33U}) {
        Bytes data(size);
        EXPECT_FALSE(frame.Encrypt(data, kIv));
        EXPECT_FALSE(frame.Decrypt(data, kIv));
        EXPECT_EQ(data, Bytes(size));
    }
    Bytes data(16);
    EXPECT_FALSE(frame.Encrypt(data, std::span(kIv).first(15)));
    EXPECT_EQ(data, Bytes(16));
}

} // namespace
} // namespace quilla
