// The cipher frame's own rules: numbers, clipping, padding, lengths, wiping. That the modes compute the right
// bytes is shown against other libraries in cipher_frame_oracle_test.cpp.

#include "tests/support/hex.h"
#include "volume/cipher_frame.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;
using test::FromHex;
using test::ToHex;

const Bytes kKey = FromHex("000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F20212223");
const Bytes kIv = FromHex("F0E1D2C3B4A5968778695A4B3C2D1E0F01020304");

std::string Encipher(std::span<const std::byte> key, CipherId cipher, Bytes data) {
    EXPECT_TRUE(Cipher(key, cipher).Encrypt(data, kIv));
    return ToHex(data);
}

std::span<const std::byte> KeyOf(std::size_t size) {
    return std::span(kKey).first(size);
}

TEST(CipherFrame, NumbersWithoutACipherLeaveTheDataAlone) {
    for (const std::uint32_t number : {0U, 1U, 5U, 7U, 9U, 11U, 12U, 0xFFFFFFFFU}) {
        CipherContext context;
        EXPECT_TRUE(CipherSetup(context, KeyOf(20), CipherId{number}));
        EXPECT_EQ(context.cipherId, number < 11 ? CipherId{number} : CipherId::None);
        EXPECT_EQ(context.blockSize, 0U);
        Bytes data = kIv;
        EXPECT_FALSE(CipherEncrypt(context, data, kIv));
        EXPECT_FALSE(CipherDecrypt(context, data, kIv));
        EXPECT_EQ(data, kIv);
        CipherRelease(context);
    }
}

TEST(CipherFrame, SetupClipsTheKeyAndForgetsIt) {
    const struct {
        CipherId cipher;
        std::uint32_t keyLength;
        std::uint32_t blockSize;
        std::uint32_t leastSchedule;
    } kCases[] = {{CipherId::Cast128, 16, 8, 128}, {CipherId::Twofish, 32, 16, 2 * 160}};
    for (const auto& expected : kCases) {
        CipherContext context;
        ASSERT_TRUE(CipherSetup(context, kKey, expected.cipher));
        EXPECT_EQ(context.keyLength, expected.keyLength);
        EXPECT_EQ(context.blockSize, expected.blockSize);
        EXPECT_EQ(BlockSizeOf(expected.cipher), expected.blockSize);
        EXPECT_GE(context.scheduleSize, expected.leastSchedule);
        EXPECT_TRUE(std::ranges::all_of(context.keyBytes, [](std::byte b) { return b == std::byte{0}; }));
        EXPECT_EQ(context.chainRegister, nullptr);
        CipherRelease(context);
        EXPECT_EQ(context.schedule, nullptr);
        CipherRelease(context); // a second release finds nothing
        Bytes data(16);
        EXPECT_FALSE(CipherEncrypt(context, data, kIv));
    }
    EXPECT_EQ(sizeof(CipherContext::keyBytes), 256U);
}

TEST(CipherFrame, CastSchedulesTake128Bytes) {
    CipherContext context;
    ASSERT_TRUE(CipherSetup(context, KeyOf(16), CipherId::Cast128));
    EXPECT_EQ(context.scheduleSize, 128U);
    CipherRelease(context);
}

TEST(CipherFrame, WhichKeyBytesCount) {
    const Bytes data(32);
    Bytes padded(kKey.begin(), kKey.begin() + 20);
    padded.resize(24);
    EXPECT_EQ(Encipher(KeyOf(20), CipherId::Cast128, data), Encipher(KeyOf(16), CipherId::Cast128, data));
    EXPECT_NE(Encipher(KeyOf(15), CipherId::Cast128, data), Encipher(KeyOf(16), CipherId::Cast128, data));
    EXPECT_EQ(Encipher({}, CipherId::Cast128, data), Encipher(Bytes(16), CipherId::Cast128, data));
    EXPECT_EQ(Encipher(KeyOf(20), CipherId::Twofish, data), Encipher(padded, CipherId::Twofish, data));
    EXPECT_NE(Encipher(KeyOf(20), CipherId::Twofish, data), Encipher(KeyOf(16), CipherId::Twofish, data));
    EXPECT_EQ(Encipher(kKey, CipherId::Twofish, data), Encipher(KeyOf(32), CipherId::Twofish, data));
    EXPECT_EQ(Encipher(Bytes(300), CipherId::Twofish, data), Encipher(Bytes(32), CipherId::Twofish, data));
}

TEST(CipherFrame, EveryCallStartsFromItsIv) {
    for (const CipherId cipher : {CipherId::Cast128, CipherId::Twofish}) {
        Cipher frame(KeyOf(20), cipher);
        Bytes first(48, std::byte{0x5A});
        Bytes second = first;
        const Bytes plain = first;
        EXPECT_TRUE(frame.Encrypt(first, kIv));
        EXPECT_TRUE(frame.Encrypt(second, kIv));
        EXPECT_EQ(first, second);
        EXPECT_TRUE(frame.Decrypt(first, kIv));
        EXPECT_EQ(first, plain);
    }
}

TEST(CipherFrame, LengthsEachModeTakes) {
    Cipher cast(KeyOf(16), CipherId::Cast128);
    for (std::size_t size = 0; size <= 25; ++size) {
        Bytes data(size, std::byte{0x11});
        EXPECT_TRUE(cast.Encrypt(data, kIv));
        EXPECT_TRUE(cast.Decrypt(data, kIv));
        EXPECT_EQ(data, Bytes(size, std::byte{0x11}));
    }
    Cipher twofish(KeyOf(16), CipherId::Twofish);
    for (std::size_t size = 0; size <= 33; ++size) {
        Bytes data(size, std::byte{0x11});
        EXPECT_EQ(twofish.Encrypt(data, kIv), size % 16 == 0);
        EXPECT_EQ(twofish.Decrypt(data, kIv), size % 16 == 0);
        EXPECT_EQ(data, Bytes(size, std::byte{0x11}));
    }
}

TEST(CipherFrame, PositionShowsThePartialBlock) {
    CipherContext context;
    ASSERT_TRUE(CipherSetup(context, KeyOf(16), CipherId::Cast128));
    Bytes data(13);
    ASSERT_TRUE(CipherEncrypt(context, data, kIv));
    EXPECT_EQ(context.position, 5U);
    ASSERT_TRUE(CipherEncrypt(context, {}, kIv)); // each call starts a new block
    EXPECT_EQ(context.position, 0U);
    EXPECT_EQ(context.chainRegister, nullptr);
    CipherRelease(context);
}

TEST(CipherFrame, AnIvMustFillABlock) {
    Cipher frame(KeyOf(16), CipherId::Twofish);
    Bytes data(16);
    EXPECT_FALSE(frame.Encrypt(data, std::span(kIv).first(15)));
    EXPECT_EQ(data, Bytes(16));
}

} // namespace
} // namespace quilla
