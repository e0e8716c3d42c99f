#include "volume/volume_key.h"

#include "platform/wipe.h"
#include "volume/cipher_frame.h"

namespace quilla {

namespace {

constexpr KeyFileStatus StatusOf(Argon2Result result) {
    constexpr KeyFileStatus kStatuses[] = {KeyFileStatus::Done, KeyFileStatus::NoMemory,
                                           KeyFileStatus::Stopped, KeyFileStatus::UnknownFormat};
    return kStatuses[static_cast<unsigned>(result)];
}

KeyFileStatus SealAndWrite(const PathUnit* keyPath, CipherId cipher, PasswordDigest& key, KeyBlock& block,
                           const KeyStrength* strength) {
    if (!SealKeyBlock(block, cipher, key))
        return BlockSizeOf(cipher) == 0 ? KeyFileStatus::UnknownFormat : KeyFileStatus::CannotWrite;
    return ChangeKeyBlock(keyPath, cipher, block, strength);
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
    if (status == KeyFileStatus::Done)
        status = SealAndWrite(keyPath, cipher, passwordKey, block, cost != nullptr ? &strength : nullptr);
    Wipe(passwordKey);
    Wipe(block);
    return status;
}

KeyFileStatus ChangeVolumeKey(const PathUnit* keyPath, CipherId cipher, const KeyChange& change,
                              bool& isRight, KeyStrengthener& strengthener) {
    Secret<KeyBlock> block;
    std::optional<KeyStrength> before;
    KeyStrength after{};
    isRight = false;
    KeyFileStatus status = LoadKeyStrength(keyPath, before);
    if (status == KeyFileStatus::Done && change.isStrong)
        status =
            MakeWrappingKey(change.to, after, before ? CostOf(*before) : kDefaultArgon2Cost, strengthener);
    if (status == KeyFileStatus::Done && before)
        status = StatusOf(strengthener.Strengthen(change.from, *before));
    if (status == KeyFileStatus::Done)
        status = LoadSealedKey(keyPath, cipher, *block, before); // another salt by now makes the key wrong
    isRight = status == KeyFileStatus::Done && OpenKeyBlock(*block, cipher, change.from);
    if (isRight)
        status = SealAndWrite(keyPath, cipher, change.to, *block, change.isStrong ? &after : nullptr);
    Wipe(change.from);
    Wipe(change.to);
    return status;
}

} // namespace quilla
