#include "bench/kernel_peers.h"

#include "platform/disk_codes.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include <botan/cipher_mode.h>
#include <cryptopp/cast.h>
#include <cryptopp/modes.h>
#include <cryptopp/twofish.h>
#include <gcrypt.h>
#include <nettle/cast128.h>
#include <nettle/cbc.h>
#include <nettle/twofish.h>
#include <nettle/xts.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

namespace quilla::bench {

namespace {

using Iv = std::array<std::uint8_t, 16>;

constexpr std::size_t kTwofishKeys = 64; ///< data key and tweak key
constexpr std::size_t kCastKey = 16;
constexpr std::size_t kCastBlock = 8;

std::array<std::uint8_t, kTwofishKeys> FixedKey() {
    std::array<std::uint8_t, kTwofishKeys> key{};
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<std::uint8_t>(7 * i + 1);
    return key;
}

Iv NumberIv(std::uint64_t sector) {
    Iv iv{};
    std::memcpy(iv.data(), &sector, sizeof(sector));
    return iv;
}

void Require(bool ok) {
    if (!ok)
        std::abort();
}

/// Work that handles one sector, made into work over a run.
template <typename OneSector>
SectorWork OverRuns(OneSector one) {
    return [one](std::uint64_t first, std::byte* sectors, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            one(NumberIv(first + i), reinterpret_cast<std::uint8_t*>(sectors) + i * kSectorSize);
    };
}

void AddGcrypt(std::vector<Contender>& to) {
    gcry_check_version(nullptr);
    const auto open = [](int algorithm, int mode, std::size_t keySize) {
        gcry_cipher_hd_t handle = nullptr;
        Require(gcry_cipher_open(&handle, algorithm, mode, 0) == 0);
        Require(gcry_cipher_setkey(handle, FixedKey().data(), keySize) == 0);
        return std::shared_ptr<gcry_cipher_handle>(handle, gcry_cipher_close);
    };
    const auto add = [&to](const char* encrypt, const char* decrypt, auto handle, std::size_t ivSize) {
        to.push_back({encrypt, "libgcrypt", OverRuns([=](const Iv& iv, std::uint8_t* sector) {
                          gcry_cipher_setiv(handle.get(), iv.data(), ivSize);
                          gcry_cipher_encrypt(handle.get(), sector, kSectorSize, nullptr, 0);
                      })});
        to.push_back({decrypt, "libgcrypt", OverRuns([=](const Iv& iv, std::uint8_t* sector) {
                          gcry_cipher_setiv(handle.get(), iv.data(), ivSize);
                          gcry_cipher_decrypt(handle.get(), sector, kSectorSize, nullptr, 0);
                      })});
    };
    add(kTwofishEncrypt, kTwofishDecrypt, open(GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_XTS, kTwofishKeys), 16);
    add(kCastEncrypt, kCastDecrypt, open(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_CBC, kCastKey), kCastBlock);
}

void AddNettle(std::vector<Contender>& to) {
    const auto twofish = std::make_shared<std::array<twofish_ctx, 2>>();
    twofish256_set_key(twofish->data(), FixedKey().data());
    twofish256_set_key(twofish->data() + 1, FixedKey().data() + 32);
    const auto encrypt = reinterpret_cast<nettle_cipher_func*>(twofish_encrypt);
    const auto decrypt = reinterpret_cast<nettle_cipher_func*>(twofish_decrypt);
    to.push_back({kTwofishEncrypt, "nettle", OverRuns([=](const Iv& iv, std::uint8_t* sector) {
                      xts_encrypt_message(twofish->data(), twofish->data() + 1, encrypt, iv.data(),
                                          kSectorSize, sector, sector);
                  })});
    to.push_back({kTwofishDecrypt, "nettle", OverRuns([=](const Iv& iv, std::uint8_t* sector) {
                      xts_decrypt_message(twofish->data(), twofish->data() + 1, decrypt, encrypt, iv.data(),
                                          kSectorSize, sector, sector);
                  })});
    const auto cast = std::make_shared<cast128_ctx>();
    cast128_set_key(cast.get(), FixedKey().data());
    to.push_back({kCastEncrypt, "nettle", OverRuns([=](Iv iv, std::uint8_t* sector) {
                      cbc_encrypt(cast.get(), reinterpret_cast<nettle_cipher_func*>(cast128_encrypt),
                                  kCastBlock, iv.data(), kSectorSize, sector, sector);
                  })});
    to.push_back({kCastDecrypt, "nettle", OverRuns([=](Iv iv, std::uint8_t* sector) {
                      cbc_decrypt(cast.get(), reinterpret_cast<nettle_cipher_func*>(cast128_decrypt),
                                  kCastBlock, iv.data(), kSectorSize, sector, sector);
                  })});
}

void AddBotan(std::vector<Contender>& to) {
    const auto add = [&to](const char* work, const char* mode, Botan::Cipher_Dir direction,
                           std::size_t keySize, std::size_t ivSize) {
        const std::shared_ptr<Botan::Cipher_Mode> cipher =
            Botan::Cipher_Mode::create_or_throw(mode, direction);
        cipher->set_key(FixedKey().data(), keySize);
        const auto buffer = std::make_shared<Botan::secure_vector<std::uint8_t>>(kSectorSize);
        to.push_back({work, "Botan", OverRuns([=](const Iv& iv, std::uint8_t* sector) {
                          // Its interface ends a message in a vector of its own.
                          std::memcpy(buffer->data(), sector, kSectorSize);
                          cipher->start(iv.data(), ivSize);
                          cipher->finish(*buffer);
                          std::memcpy(sector, buffer->data(), kSectorSize);
                      })});
    };
    add(kTwofishEncrypt, "Twofish/XTS", Botan::ENCRYPTION, kTwofishKeys, 16);
    add(kTwofishDecrypt, "Twofish/XTS", Botan::DECRYPTION, kTwofishKeys, 16);
    add(kCastEncrypt, "CAST-128/CBC/NoPadding", Botan::ENCRYPTION, kCastKey, kCastBlock);
    add(kCastDecrypt, "CAST-128/CBC/NoPadding", Botan::DECRYPTION, kCastKey, kCastBlock);
}

/// XTS around the library's block cipher: its own XTS mode writes outside its memory in version 8.7.
template <typename Mode>
void AddCryptoppTwofish(std::vector<Contender>& to, const char* work) {
    const auto cipher = std::make_shared<Mode>(FixedKey().data(), 32);
    const auto tweakCipher =
        std::make_shared<CryptoPP::ECB_Mode<CryptoPP::Twofish>::Encryption>(FixedKey().data() + 32, 32);
    to.push_back({work, "Crypto++", OverRuns([=](Iv iv, std::uint8_t* sector) {
                      std::uint64_t masks[kSectorSize / 8];
                      std::uint64_t data[kSectorSize / 8];
                      tweakCipher->ProcessData(iv.data(), iv.data(), iv.size());
                      std::memcpy(masks, iv.data(), iv.size());
                      for (std::size_t i = 2; i < std::size(masks); i += 2) {
                          masks[i] = masks[i - 2] << 1 ^ ((0 - (masks[i - 1] >> 63)) & 0x87);
                          masks[i + 1] = masks[i - 1] << 1 | masks[i - 2] >> 63;
                      }
                      std::memcpy(data, sector, kSectorSize);
                      for (std::size_t i = 0; i < std::size(data); ++i)
                          data[i] ^= masks[i];
                      auto* const bytes = reinterpret_cast<std::uint8_t*>(data);
                      cipher->ProcessData(bytes, bytes, kSectorSize);
                      for (std::size_t i = 0; i < std::size(data); ++i)
                          data[i] ^= masks[i];
                      std::memcpy(sector, data, kSectorSize);
                  })});
}

template <typename Mode>
void AddCryptoppCast(std::vector<Contender>& to, const char* work) {
    const auto cipher = std::make_shared<Mode>();
    cipher->SetKeyWithIV(FixedKey().data(), kCastKey, Iv{}.data());
    to.push_back({work, "Crypto++", OverRuns([=](const Iv& iv, std::uint8_t* sector) {
                      cipher->Resynchronize(iv.data());
                      cipher->ProcessData(sector, sector, kSectorSize);
                  })});
}

void AddOpenssl(std::vector<Contender>& to) {
    Require(OSSL_PROVIDER_load(nullptr, "legacy") != nullptr);
    const auto add = [&to](const char* work, int encrypt) {
        const std::shared_ptr<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
        const std::shared_ptr<EVP_CIPHER> cipher(EVP_CIPHER_fetch(nullptr, "CAST5-CBC", nullptr),
                                                 EVP_CIPHER_free);
        Require(EVP_CipherInit_ex(context.get(), cipher.get(), nullptr, FixedKey().data(), Iv{}.data(),
                                  encrypt) == 1);
        EVP_CIPHER_CTX_set_padding(context.get(), 0);
        to.push_back({work, "OpenSSL", OverRuns([=](const Iv& iv, std::uint8_t* sector) {
                          int size = 0;
                          EVP_CipherInit_ex(context.get(), nullptr, nullptr, nullptr, iv.data(), encrypt);
                          EVP_CipherUpdate(context.get(), sector, &size, sector, kSectorSize);
                      })});
    };
    add(kCastEncrypt, 1);
    add(kCastDecrypt, 0);
}

} // namespace

std::vector<Contender> PeerContenders() {
    std::vector<Contender> contenders;
    AddGcrypt(contenders);
    AddNettle(contenders);
    AddBotan(contenders);
    AddCryptoppTwofish<CryptoPP::ECB_Mode<CryptoPP::Twofish>::Encryption>(contenders, kTwofishEncrypt);
    AddCryptoppTwofish<CryptoPP::ECB_Mode<CryptoPP::Twofish>::Decryption>(contenders, kTwofishDecrypt);
    AddCryptoppCast<CryptoPP::CBC_Mode<CryptoPP::CAST128>::Encryption>(contenders, kCastEncrypt);
    AddCryptoppCast<CryptoPP::CBC_Mode<CryptoPP::CAST128>::Decryption>(contenders, kCastDecrypt);
    AddOpenssl(contenders);
    return contenders;
}

} // namespace quilla::bench
