// The block ciphers against two independent libraries, on random keys and blocks. libgcrypt has Twofish with
// 128 and 256 bits, nettle also with 192; both have CAST-128.

#include "tests/support/hex.h"
#include "volume/cast128.h"
#include "volume/twofish.h"

#include <gcrypt.h>
#include <gtest/gtest.h>
#include <nettle/cast128.h>
#include <nettle/twofish.h>
#include <random>

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

constexpr int kRounds = 3000;

class BlockCipherOracle : public testing::Test {
  protected:
    Bytes Random(std::size_t size) {
        Bytes bytes(size);
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(generator_());
        return bytes;
    }

    /// Enciphers one block with libgcrypt.
    static Bytes GcryptBlock(int algorithm, const Bytes& key, const Bytes& plain) {
        gcry_cipher_hd_t handle = nullptr;
        EXPECT_EQ(0U, gcry_cipher_open(&handle, algorithm, GCRY_CIPHER_MODE_ECB, 0));
        static_cast<void>(gcry_cipher_setkey(handle, key.data(), key.size())); // weak keys are fine here
        Bytes result(plain.size());
        EXPECT_EQ(0U, gcry_cipher_encrypt(handle, result.data(), result.size(), plain.data(), plain.size()));
        gcry_cipher_close(handle);
        return result;
    }

  private:
    std::mt19937 generator_{20240607};
};

const std::uint8_t* Octets(const Bytes& bytes) {
    return reinterpret_cast<const std::uint8_t*>(bytes.data());
}
std::uint8_t* Octets(Bytes& bytes) {
    return reinterpret_cast<std::uint8_t*>(bytes.data());
}

TEST_F(BlockCipherOracle, Twofish) {
    gcry_check_version(nullptr);
    for (int i = 0; i < kRounds; ++i) {
        const std::size_t keySize = std::size_t{16} + 8 * static_cast<std::size_t>(i % 3);
        const Bytes key = Random(keySize);
        const Bytes plain = Random(16);
        Bytes expected(16);
        twofish_ctx oracle;
        twofish_set_key(&oracle, keySize, Octets(key));
        twofish_encrypt(&oracle, expected.size(), Octets(expected), Octets(plain));
        if (keySize != 24) {
            const int algorithm = keySize == 16 ? GCRY_CIPHER_TWOFISH128 : GCRY_CIPHER_TWOFISH;
            ASSERT_EQ(expected, GcryptBlock(algorithm, key, plain));
        }
        TwofishSchedule schedule;
        ASSERT_TRUE(BuildTwofishSchedule(schedule, key));
        Bytes block = plain;
        TwofishEncryptBlock(schedule, block.data(), block.data());
        ASSERT_EQ(ToHex(block), ToHex(expected)) << "key " << ToHex(key);
        TwofishDecryptBlock(schedule, block.data(), block.data());
        ASSERT_EQ(ToHex(block), ToHex(plain)) << "key " << ToHex(key);
    }
}

TEST_F(BlockCipherOracle, Cast128) {
    gcry_check_version(nullptr);
    for (int i = 0; i < kRounds; ++i) {
        const Bytes key = Random(kCastKeySize);
        const Bytes plain = Random(kCastBlockSize);
        Bytes expected(kCastBlockSize);
        cast128_ctx oracle;
        cast128_set_key(&oracle, Octets(key));
        cast128_encrypt(&oracle, expected.size(), Octets(expected), Octets(plain));
        ASSERT_EQ(expected, GcryptBlock(GCRY_CIPHER_CAST5, key, plain));
        CastSchedule schedule;
        BuildCastSchedule(schedule, std::span<const std::byte, kCastKeySize>(key));
        Bytes block = plain;
        CastEncryptBlock(schedule, block.data(), block.data());
        ASSERT_EQ(ToHex(block), ToHex(expected)) << "key " << ToHex(key);
        CastDecryptBlock(schedule, block.data(), block.data());
        ASSERT_EQ(ToHex(block), ToHex(plain)) << "key " << ToHex(key);
    }
}

} // namespace
} // namespace quilla
