#include "fuzz/sector_oracle.h"

#include "platform/disk_codes.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <gcrypt.h>

namespace quilla::test {

namespace {

/// One libgcrypt cipher with its key set.
class Oracle {
  public:
    Oracle(int algorithm, int mode, const void* key, std::size_t size) {
        gcry_check_version(nullptr);
        Demand(gcry_cipher_open(&handle_, algorithm, mode, 0));
        Demand(gcry_cipher_setkey(handle_, key, size));
    }
    ~Oracle() { gcry_cipher_close(handle_); }
    Oracle(const Oracle&) = delete;
    Oracle& operator=(const Oracle&) = delete;

    void Encrypt(void* data, std::size_t size) const {
        Demand(gcry_cipher_encrypt(handle_, data, size, nullptr, 0));
    }
    void SetIv(const void* iv, std::size_t size) const { Demand(gcry_cipher_setiv(handle_, iv, size)); }

  private:
    static void Demand(gcry_error_t error) {
        if (error != 0)
            std::abort();
    }

    gcry_cipher_hd_t handle_ = nullptr;
};

void EncryptTwofish(const DataKey& key, std::uint64_t first, std::span<std::byte> sectors) {
    std::array<char, 64> keys{};
    std::memcpy(keys.data(), key.data(), 32);
    std::memcpy(keys.data() + 32, "QuillaTweakKey 1QuillaTweakKey 2", 32);
    Oracle(GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_ECB, key.data(), 32).Encrypt(keys.data() + 32, 32);
    const Oracle xts(GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_XTS, keys.data(), keys.size());
    for (std::size_t at = 0; at < sectors.size(); at += kSectorSize) {
        const std::uint64_t tweak[2] = {first++, 0};
        xts.SetIv(tweak, sizeof(tweak));
        xts.Encrypt(sectors.data() + at, kSectorSize);
    }
}

void EncryptCast128(const DataKey& key, std::uint64_t first, std::span<std::byte> sectors) {
    const Oracle ivCipher(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_ECB, key.data() + 16, 16);
    const Oracle cbc(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_CBC, key.data(), 16);
    for (std::size_t at = 0; at < sectors.size(); at += kSectorSize) {
        std::uint64_t iv = first++;
        ivCipher.Encrypt(&iv, sizeof(iv));
        cbc.SetIv(&iv, sizeof(iv));
        cbc.Encrypt(sectors.data() + at, kSectorSize);
    }
}

} // namespace

void OracleEncryptSectors(CipherId cipher, const DataKey& key, std::uint64_t first,
                          std::span<std::byte> sectors) {
    (cipher == CipherId::Twofish ? EncryptTwofish : EncryptCast128)(key, first, sectors);
}

} // namespace quilla::test
