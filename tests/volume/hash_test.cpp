// SHA-1, the password key made from it, and CRC-32, against their published values.

#include "platform/byte_order.h"
#include "tests/support/hex.h"
#include "volume/crc32.h"
#include "volume/sha1.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::AsBytes;
using test::ToHex;

/// The digest in the standard's order, of a message fed in pieces of the given size.
std::string Digest(std::span<const std::byte> message, std::size_t piece) {
    Sha1State state;
    Sha1Init(state);
    for (; !message.empty(); message = message.subspan(std::min(piece, message.size())))
        Sha1Update(state, message.first(std::min(piece, message.size())));
    Sha1Final(state);
    test::Bytes digest(20);
    for (std::size_t i = 0; i < 5; ++i)
        StoreBig(&digest[4 * i], LoadLittle<std::uint32_t>(&state.chain[i]));
    return ToHex(digest);
}

TEST(Sha1, AnswersOfTheStandard) {
    // FIPS 180-1, appendices A to C.
    const std::string million(1'000'000, 'a');
    const std::string padded(55, 'a'); // the longest that is padded in its own block; by another tool
    const std::string_view known[][2] = {
        {"abc", "A9993E364706816ABA3E25717850C26C9CD0D89D"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983E441C3BD26EBAAE4AA1F95129E5E54670F1"},
        {padded, "C1C8BBDC22796E28C0E15163D20899B65621D65A"},
        {million, "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F"},
    };
    for (const auto& [message, digest] : known)
        for (const std::size_t piece : {1U, 55U, 65U, 1000U})
            EXPECT_EQ(Digest(AsBytes(message), piece), digest) << "pieces of " << piece;
}

TEST(PasswordKey, KeepsChainingWordsLittleEndian) {
    PasswordDigest key;
    PasswordKey(key, TextView());
    EXPECT_EQ(ToHex(key), "EEA339DA0D4B6B5EEFBF5532901860950907D8AF");
    // Hashed as ten bytes; the digest in the standard's order comes from an independent tool.
    PasswordKey(key, TextView(QUILLA_TEXT("97531")));
    EXPECT_EQ(ToHex(key), "157A2F3119B736170C7F201C5DF21F77E7133A5F");
}

TEST(Crc32, CheckValueOfTheCataloguesAndContinuation) {
    EXPECT_EQ(Crc32({}), 0U);
    EXPECT_EQ(Crc32(AsBytes("123456789")), 0xCBF43926U);
    EXPECT_EQ(Crc32(AsBytes("56789"), Crc32(AsBytes("1234"))), 0xCBF43926U);
}

} // namespace
} // namespace quilla
