// Both modes of the cipher frame against other libraries, on random keys, IVs and data: libgcrypt's CFB mode
// with CAST-128 and nettle's CBC mode with Twofish (libgcrypt knows no 192-bit keys).

#include "tests/support/oracle.h"
#include "tests/support/random_bytes.h"
#include "volume/cipher_frame.h"

#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

TEST(CipherFrameOracle, AnyKeyIvAndDataThatFit) {
    test::RandomBytes random(19970501);
    for (int i = 0; i < 4000; ++i) {
        const CipherId cipher = i % 2 == 0 ? CipherId::Cast128 : CipherId::Twofish;
        const std::uint32_t block = BlockSizeOf(cipher);
        const Bytes key = random.Make(random.Below(i % 100 == 0 ? 300 : 41));
        const Bytes iv = random.Make(block + random.Below(5));
        const Bytes plain = random.Make(i % 2 == 0 ? random.Below(300) : 16 * random.Below(20));
        SCOPED_TRACE("key " + ToHex(key) + " IV " + ToHex(iv));

        Cipher frame(key, cipher);
        Bytes data = plain;
        ASSERT_TRUE(frame.Encrypt(data, iv));
        ASSERT_EQ(ToHex(data),
                  ToHex(test::OracleEncipher(static_cast<std::uint32_t>(cipher), key, iv, plain)));
        ASSERT_TRUE(frame.Decrypt(data, iv)); // starts anew from the IV
        ASSERT_EQ(ToHex(data), ToHex(plain));
    }
}

} // namespace
} // namespace quilla
