#pragma once

#include <cstddef>
#include <cstdlib>
#include <gcrypt.h>
#include <span>

namespace quilla::test {

/// A cipher of libgcrypt with its key set. A failure ends the process: an oracle that cannot answer must not
/// look like an agreement.
class GcryptCipher {
  public:
    GcryptCipher(int algorithm, int mode, std::span<const std::byte> key) {
        gcry_check_version(nullptr);
        Require(gcry_cipher_open(&handle_, algorithm, mode, 0));
        Require(gcry_cipher_setkey(handle_, key.data(), key.size()));
    }
    ~GcryptCipher() { gcry_cipher_close(handle_); }
    GcryptCipher(const GcryptCipher&) = delete;
    GcryptCipher& operator=(const GcryptCipher&) = delete;

    void SetIv(std::span<const std::byte> iv) const {
        Require(gcry_cipher_setiv(handle_, iv.data(), iv.size()));
    }
    void Encrypt(std::span<std::byte> data) const {
        if (!data.empty())
            Require(gcry_cipher_encrypt(handle_, data.data(), data.size(), nullptr, 0));
    }
    void Decrypt(std::span<std::byte> data) const {
        if (!data.empty())
            Require(gcry_cipher_decrypt(handle_, data.data(), data.size(), nullptr, 0));
    }

  private:
    static void Require(gcry_error_t error) {
        if (error != 0)
            std::abort();
    }

    gcry_cipher_hd_t handle_ = nullptr;
};

} // namespace quilla::test
