// Both modes of the cipher frame against other libraries, on random keys of every length, IVs and data:
// libgcrypt's CFB mode with CAST-128 and nettle's CBC mode with Twofish (libgcrypt knows no 192-bit keys).

#include "tests/support/hex.h"
#include "tests/support/oracle.h"
#include "volume/cipher_frame.h"

#include <gtest/gtest.h>
#include <random>

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

class CipherFrameOracle : public testing::Test {
  protected:
    Bytes Random(std::size_t size) {
        Bytes bytes(size);
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(generator_());
        return bytes;
    }
    std::size_t Below(std::size_t limit) { return generator_() % limit; }

    void Compare(CipherId cipher, const Bytes& key, const Bytes& iv, const Bytes& plain) {
        const Bytes expected = test::OracleEncipher(static_cast<std::uint32_t>(cipher), key, iv, plain);
        Bytes data = plain;
        Cipher frame(key, cipher);
        ASSERT_TRUE(frame.Encrypt(data, iv));
        ASSERT_EQ(ToHex(data), ToHex(expected)) << "key " << ToHex(key) << " IV " << ToHex(iv);
        ASSERT_TRUE(frame.Decrypt(data, iv));
        ASSERT_EQ(ToHex(data), ToHex(plain)) << "key " << ToHex(key) << " IV " << ToHex(iv);
    }

  private:
    std::mt19937 generator_{19970501};
};

TEST_F(CipherFrameOracle, Cast128Feedback) {
    for (int i = 0; i < 2000; ++i)
        Compare(CipherId::Cast128, Random(Below(41)), Random(8 + Below(13)), Random(Below(300)));
}

TEST_F(CipherFrameOracle, TwofishChain) {
    for (int i = 0; i < 2000; ++i)
        Compare(CipherId::Twofish, Random(Below(41)), Random(16 + Below(5)), Random(16 * Below(20)));
}

} // namespace
} // namespace quilla
