#pragma once

#include "volume/cipher_id.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// The one interface through which key blocks are enciphered and deciphered: set up a cipher by number and
/// key, run it over a buffer in place from a given IV, release it.
namespace quilla {

inline constexpr std::size_t kMaxCipherKeySize = 256;
inline constexpr std::size_t kMaxCipherBlockSize = 16;

struct CipherContext;
using CipherOperation = bool (*)(CipherContext& context, std::span<std::byte> data);
using CipherReleaseOperation = bool (*)(CipherContext& context);

/// A cipher in use; owned by the caller, usually on the stack, and released by CipherRelease.
struct CipherContext {
    CipherId cipherId = CipherId::None;
    std::byte keyBytes[kMaxCipherKeySize]{}; ///< during set-up only; zero otherwise
    std::uint32_t keyLength = 0;             ///< bytes, after clipping to what the cipher uses
    void* schedule = nullptr;
    std::uint32_t scheduleSize = 0;     ///< bytes
    std::byte* chainRegister = nullptr; ///< during one encipher or decipher call only
    std::uint32_t position = 0;         ///< inside a partly used feedback block
    std::uint32_t blockSize = 0;        ///< bytes
    CipherOperation encipher = nullptr; ///< none for a number without a cipher
    CipherOperation decipher = nullptr;
    CipherReleaseOperation release = nullptr;
};

/// Bytes in a block, which is also the length of an IV: 8, 16, or 0 for a number without a cipher.
[[nodiscard]] std::uint32_t BlockSizeOf(CipherId cipher);

/// Sets up a cipher with a key of at most 256 bytes. CAST-128 uses the first 16 bytes of the key, Twofish the
/// first 32; shorter keys are padded with zeros (Twofish: to 128, 192 or 256 bits). Numbers without a cipher
/// are accepted, but then nothing can be enciphered; those that name nothing count as 0. Returns false when
/// there is no memory for the schedule.
[[nodiscard]] bool CipherSetup(CipherContext& context, std::span<const std::byte> key, CipherId cipher);

/// Enciphers in place: CAST-128 by cipher feedback of full blocks, any length; Twofish by cipher block
/// chaining, whole blocks only. Each call starts anew from the first blockSize bytes of the IV. Returns
/// false, with the data unchanged, when there is no cipher or the length does not suit it.
bool CipherEncrypt(CipherContext& context, std::span<std::byte> data, std::span<const std::byte> iv);

/// The opposite of CipherEncrypt, with the same rules.
bool CipherDecrypt(CipherContext& context, std::span<std::byte> data, std::span<const std::byte> iv);

/// Wipes and frees the schedule; the context may then be set up again. Does nothing without a cipher. Nothing
/// of this can fail: returns true.
bool CipherRelease(CipherContext& context);

/// A cipher context that releases itself.
class Cipher {
  public:
    Cipher(std::span<const std::byte> key, CipherId cipher) {
        static_cast<void>(CipherSetup(context_, key, cipher)); // without a schedule nothing can be enciphered
    }
    ~Cipher() { CipherRelease(context_); }
    Cipher(const Cipher&) = delete;
    Cipher& operator=(const Cipher&) = delete;

    bool Encrypt(std::span<std::byte> data, std::span<const std::byte> iv) {
        return CipherEncrypt(context_, data, iv);
    }
    bool Decrypt(std::span<std::byte> data, std::span<const std::byte> iv) {
        return CipherDecrypt(context_, data, iv);
    }

  private:
    CipherContext context_;
};

} // namespace quilla
