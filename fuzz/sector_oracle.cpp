#include "fuzz/sector_oracle.h"

#include "platform/disk_codes.h"
#include "tests/support/gcrypt_cipher.h"

#include <array>
#include <cstring>

namespace quilla::test {

namespace {

void EncryptTwofish(const DataKey& key, std::uint64_t first, std::span<std::byte> sectors) {
    std::array<std::byte, 64> keys{};
    std::memcpy(keys.data(), key.data(), 32);
    std::memcpy(keys.data() + 32, "QuillaTweakKey 1QuillaTweakKey 2", 32);
    GcryptCipher(GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_ECB, key).Encrypt(std::span(keys).subspan(32));
    const GcryptCipher xts(GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_XTS, keys);
    for (std::size_t at = 0; at < sectors.size(); at += kSectorSize) {
        const std::uint64_t tweak[2] = {first++, 0};
        xts.SetIv(std::as_bytes(std::span(tweak)));
        xts.Encrypt(sectors.subspan(at, kSectorSize));
    }
}

void EncryptCast128(const DataKey& key, std::uint64_t first, std::span<std::byte> sectors) {
    const std::span<const std::byte> halves(key);
    const GcryptCipher ivCipher(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_ECB, halves.subspan(16));
    const GcryptCipher cbc(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_CBC, halves.first(16));
    for (std::size_t at = 0; at < sectors.size(); at += kSectorSize) {
        std::uint64_t iv[1] = {first++};
        ivCipher.Encrypt(std::as_writable_bytes(std::span(iv)));
        cbc.SetIv(std::as_bytes(std::span(iv)));
        cbc.Encrypt(sectors.subspan(at, kSectorSize));
    }
}

} // namespace

void OracleEncryptSectors(CipherId cipher, const DataKey& key, std::uint64_t first,
                          std::span<std::byte> sectors) {
    (cipher == CipherId::Twofish ? EncryptTwofish : EncryptCast128)(key, first, sectors);
}

} // namespace quilla::test
