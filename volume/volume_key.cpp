#include "volume/volume_key.h"

#include "platform/wipe.h"
#include "volume/cipher_frame.h"

namespace quilla {

namespace {

constexpr KeyFileStatus StatusOf(Argon2Result result) {
    return result == Argon2Result::Done       ? KeyFileStatus::Done
           : result == Argon2Result::NoMemory ? KeyFileStatus::NoMemory
                                              : KeyFileStatus::Stopped;
}

} // namespace

KeyStrengthener& DirectStrengthener() {
    static constinit struct : KeyStrengthener {
    } direct;
    return direct;
}

KeyFileStatus LoadVolumeKey(const PathUnit* keyPath, CipherId cipher, PasswordDigest& passwordKey,
                            KeyBlock& block, bool& isRight, std::optional<KeyStrength>* strength,
                            KeyStrengthener& strengthener) {
    block = {};
    isRight = false;
    std::optional<KeyStrength> found;
    KeyFileStatus status = LoadSealedKey(keyPath, cipher, block, found);
    if (status == KeyFileStatus::Done && found)
        status = StatusOf(strengthener.Strengthen(passwordKey, *found));
    if (status == KeyFileStatus::Done)
        isRight = OpenKeyBlock(block, cipher, passwordKey);
    Wipe(passwordKey);
    if (strength != nullptr)
        *strength = found;
    return status;
}

KeyFileStatus MakeWrappingKey(PasswordDigest& passwordKey, KeyStrength& strength, const Argon2Cost& cost,
                              KeyStrengthener& strengthener) {
    if (!MakeKeyStrength(strength, cost))
        return KeyFileStatus::CannotWrite;
    return StatusOf(strengthener.Strengthen(passwordKey, strength));
}

KeyFileStatus StoreSealedKey(const PathUnit* keyPath, CipherId cipher, PasswordDigest& passwordKey,
                             KeyBlock& block, const Argon2Cost* cost, KeyStrengthener& strengthener) {
    KeyStrength strength{};
    KeyFileStatus status =
        cost != nullptr ? MakeWrappingKey(passwordKey, strength, *cost, strengthener) : KeyFileStatus::Done;
    if (status == KeyFileStatus::Done && !SealKeyBlock(block, cipher, passwordKey))
        status = BlockSizeOf(cipher) == 0 ? KeyFileStatus::UnknownFormat : KeyFileStatus::CannotWrite;
    if (status == KeyFileStatus::Done)
        status = ChangeKeyBlock(keyPath, cipher, block, cost != nullptr ? &strength : nullptr);
    Wipe(passwordKey);
    Wipe(block);
    return status;
}

} // namespace quilla
