#include "volume/cipher_frame.h"

#include "platform/wipe.h"
#include "volume/cast128.h"
#include "volume/twofish.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace quilla {

namespace {

/// Twofish keeps one instance for each direction.
struct TwofishInstances {
    TwofishSchedule encipher;
    TwofishSchedule decipher;
};

template <typename Schedule>
bool ReleaseSchedule(CipherContext& context) {
    auto* const schedule = static_cast<Schedule*>(context.schedule);
    Wipe(*schedule);
    delete schedule;
    context.schedule = nullptr;
    context.scheduleSize = 0;
    context.encipher = nullptr;
    context.decipher = nullptr;
    context.release = nullptr;
    return true;
}

template <typename Schedule>
Schedule* AllocateSchedule(CipherContext& context) {
    auto* const schedule = new (std::nothrow) Schedule;
    context.schedule = schedule;
    context.scheduleSize = sizeof(Schedule);
    if (schedule)
        context.release = ReleaseSchedule<Schedule>;
    return schedule;
}

void XorBytes(std::byte* to, const std::byte* other, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        to[i] ^= other[i];
}

/// Cipher feedback with full blocks. The register holds the ciphertext of the block before; both directions
/// use the cipher's forward function.
template <bool deciphering>
bool CastFeedback(CipherContext& context, std::span<std::byte> data) {
    const auto& schedule = *static_cast<const CastSchedule*>(context.schedule);
    while (!data.empty()) {
        const std::size_t count = std::min(data.size(), kCastBlockSize);
        std::byte ciphertext[kCastBlockSize];
        CastEncryptBlock(schedule, context.chainRegister, context.chainRegister);
        if constexpr (deciphering)
            std::memcpy(ciphertext, data.data(), count);
        XorBytes(data.data(), context.chainRegister, count);
        if constexpr (!deciphering)
            std::memcpy(ciphertext, data.data(), count);
        std::memcpy(context.chainRegister, ciphertext, count);
        context.position = static_cast<std::uint32_t>(count % kCastBlockSize);
        data = data.subspan(count);
    }
    return true;
}

bool TwofishEncryptChain(CipherContext& context, std::span<std::byte> data) {
    if (data.size() % kTwofishBlockSize != 0)
        return false;
    const TwofishSchedule& schedule = static_cast<const TwofishInstances*>(context.schedule)->encipher;
    for (; !data.empty(); data = data.subspan(kTwofishBlockSize)) {
        XorBytes(data.data(), context.chainRegister, kTwofishBlockSize);
        TwofishEncryptBlock(schedule, data.data(), data.data());
        std::memcpy(context.chainRegister, data.data(), kTwofishBlockSize);
    }
    return true;
}

bool TwofishDecryptChain(CipherContext& context, std::span<std::byte> data) {
    if (data.size() % kTwofishBlockSize != 0)
        return false;
    const TwofishSchedule& schedule = static_cast<const TwofishInstances*>(context.schedule)->decipher;
    for (; !data.empty(); data = data.subspan(kTwofishBlockSize)) {
        std::byte ciphertext[kTwofishBlockSize];
        std::memcpy(ciphertext, data.data(), sizeof(ciphertext));
        TwofishDecryptBlock(schedule, data.data(), data.data());
        XorBytes(data.data(), context.chainRegister, kTwofishBlockSize);
        std::memcpy(context.chainRegister, ciphertext, sizeof(ciphertext));
    }
    return true;
}

bool SetUpCast128(CipherContext& context) {
    context.keyLength = std::min<std::uint32_t>(context.keyLength, kCastKeySize);
    auto* const schedule = AllocateSchedule<CastSchedule>(context);
    if (!schedule)
        return false;
    BuildCastSchedule(*schedule, std::span(context.keyBytes).first<kCastKeySize>());
    context.encipher = CastFeedback<false>;
    context.decipher = CastFeedback<true>;
    return true;
}

bool SetUpTwofish(CipherContext& context) {
    context.keyLength = std::min<std::uint32_t>(context.keyLength, kTwofishMaxKeySize);
    auto* const instances = AllocateSchedule<TwofishInstances>(context);
    const auto key = std::span<const std::byte>(context.keyBytes).first(context.keyLength);
    if (!instances || !BuildTwofishSchedule(instances->encipher, key) ||
        !BuildTwofishSchedule(instances->decipher, key))
        return false;
    context.encipher = TwofishEncryptChain;
    context.decipher = TwofishDecryptChain;
    return true;
}

/// What the numbers with a cipher behind them need.
struct CipherEntry {
    CipherId cipher;
    std::uint32_t blockSize;
    bool (*setUp)(CipherContext& context);
};
constexpr CipherEntry kCiphers[] = {{CipherId::Cast128, kCastBlockSize, SetUpCast128},
                                    {CipherId::Twofish, kTwofishBlockSize, SetUpTwofish}};

const CipherEntry* FindCipher(CipherId cipher) {
    for (const CipherEntry& entry : kCiphers)
        if (entry.cipher == cipher)
            return &entry;
    return nullptr;
}

/// Runs one direction from a fresh register.
bool RunFrom(CipherContext& context, CipherOperation operation, std::span<std::byte> data,
             std::span<const std::byte> iv) {
    context.position = 0;
    if (!operation || iv.size() < context.blockSize)
        return false;
    std::byte chainRegister[kMaxCipherBlockSize]{};
    std::memcpy(chainRegister, iv.data(), context.blockSize);
    context.chainRegister = chainRegister;
    const bool done = operation(context, data);
    context.chainRegister = nullptr;
    Wipe(chainRegister); // after a partial block it holds keystream
    return done;
}

} // namespace

std::uint32_t BlockSizeOf(CipherId cipher) {
    const CipherEntry* const entry = FindCipher(cipher);
    return entry ? entry->blockSize : 0;
}

bool CipherSetup(CipherContext& context, std::span<const std::byte> key, CipherId cipher) {
    const bool named = static_cast<std::uint32_t>(cipher) < kCipherIdCount;
    key = key.first(std::min(key.size(), kMaxCipherKeySize));
    context = {};
    context.cipherId = named ? cipher : CipherId::None;
    context.keyLength = static_cast<std::uint32_t>(key.size());
    context.blockSize = BlockSizeOf(cipher);
    if (!key.empty())
        std::memcpy(context.keyBytes, key.data(), key.size());
    const CipherEntry* const entry = FindCipher(cipher);
    const bool done = !entry || entry->setUp(context);
    Wipe(context.keyBytes);
    return done;
}

bool CipherEncrypt(CipherContext& context, std::span<std::byte> data, std::span<const std::byte> iv) {
    return RunFrom(context, context.encipher, data, iv);
}

bool CipherDecrypt(CipherContext& context, std::span<std::byte> data, std::span<const std::byte> iv) {
    return RunFrom(context, context.decipher, data, iv);
}

bool CipherRelease(CipherContext& context) {
    return context.release == nullptr || context.release(context);
}

} // namespace quilla
