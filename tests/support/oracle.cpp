#include "tests/support/oracle.h"

#include "tests/support/gcrypt_cipher.h"

#include <algorithm>
#include <nettle/cbc.h>
#include <nettle/twofish.h>

namespace quilla::test {

namespace {

constexpr std::uint32_t kCast128 = 6;

std::uint8_t* Octets(Bytes& bytes) {
    return reinterpret_cast<std::uint8_t*>(bytes.data());
}

void Hash(int algorithm, void* digest, std::span<const std::byte> bytes) {
    gcry_check_version(nullptr);
    gcry_md_hash_buffer(algorithm, digest, bytes.data(), bytes.size());
}

Bytes Cast128Feedback(Bytes key, const Bytes& iv, Bytes data, bool enciphering) {
    key.resize(16);
    const GcryptCipher cipher(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_CFB, key);
    cipher.SetIv(std::span(iv).first(8));
    enciphering ? cipher.Encrypt(data) : cipher.Decrypt(data);
    return data;
}

Bytes TwofishChain(Bytes key, Bytes iv, Bytes data, bool enciphering) {
    key.resize(std::min<std::size_t>(key.size(), 32));
    key.resize(key.size() <= 16 ? 16 : key.size() <= 24 ? 24 : 32);
    iv.resize(16);
    twofish_ctx context;
    twofish_set_key(&context, key.size(), Octets(key));
    if (enciphering)
        cbc_encrypt(&context, reinterpret_cast<nettle_cipher_func*>(twofish_encrypt), 16, Octets(iv),
                    data.size(), Octets(data), Octets(data));
    else
        cbc_decrypt(&context, reinterpret_cast<nettle_cipher_func*>(twofish_decrypt), 16, Octets(iv),
                    data.size(), Octets(data), Octets(data));
    return data;
}

Bytes Run(std::uint32_t cipher, const Bytes& key, const Bytes& iv, const Bytes& data, bool enciphering) {
    return cipher == kCast128 ? Cast128Feedback(key, iv, data, enciphering)
                              : TwofishChain(key, iv, data, enciphering);
}

} // namespace

Bytes OraclePasswordKey(std::u16string_view password) {
    Bytes digest(20);
    Hash(GCRY_MD_SHA1, digest.data(), std::as_bytes(std::span(password.data(), password.size())));
    for (auto word = digest.begin(); word != digest.end(); word += 4)
        std::reverse(word, word + 4);
    return digest;
}

std::uint32_t OracleCrc32(std::span<const std::byte> bytes) {
    std::uint8_t digest[4];
    Hash(GCRY_MD_CRC32, digest, bytes);
    return std::uint32_t{digest[0]} << 24 | std::uint32_t{digest[1]} << 16 | std::uint32_t{digest[2]} << 8 |
           digest[3];
}

Bytes OracleEncipher(std::uint32_t cipher, const Bytes& key, const Bytes& iv, const Bytes& plain) {
    return Run(cipher, key, iv, plain, true);
}

Bytes OracleDecipher(std::uint32_t cipher, const Bytes& key, const Bytes& iv, const Bytes& enciphered) {
    return Run(cipher, key, iv, enciphered, false);
}

} // namespace quilla::test
