#pragma once

#include "volume/key_strength.h"

#include <cstdint>
#include <optional>

/// The steps from a password key to an open volume and back, on the key file itself. They report nothing to
/// the user.
namespace quilla {

/// Runs the function that slows down guessing, here on the calling thread; windows do it elsewhere.
class KeyStrengthener {
  public:
    KeyStrengthener() = default;
    KeyStrengthener(const KeyStrengthener&) = delete;
    KeyStrengthener& operator=(const KeyStrengthener&) = delete;

    virtual Argon2Result Strengthen(PasswordDigest& key, const KeyStrength& strength) {
        return StrengthenKey(key, strength);
    }

  protected:
    ~KeyStrengthener() = default;
};

/// The one that does nothing else.
[[nodiscard]] KeyStrengthener& DirectStrengthener();

/// Reads a volume's key block and opens it, and wipes the password key. isRight tells whether the key was
/// right; it never is after a failure. The file's strength, if it has one, is handed out for a change of the
/// password. Wipe the block after use.
[[nodiscard]] KeyFileStatus LoadVolumeKey(const PathUnit* keyPath, CipherId cipher,
                                          PasswordDigest& passwordKey, KeyBlock& block, bool& isRight,
                                          std::optional<KeyStrength>* strength = nullptr,
                                          KeyStrengthener& strengthener = DirectStrengthener());

/// Seals an open key block under a password key with a fresh IV and, with a cost, a fresh salt; writes it
/// into the key file as ChangeKeyBlock does, and wipes both.
[[nodiscard]] KeyFileStatus StoreSealedKey(const PathUnit* keyPath, CipherId cipher,
                                           PasswordDigest& passwordKey, KeyBlock& block,
                                           const Argon2Cost* cost = nullptr,
                                           KeyStrengthener& strengthener = DirectStrengthener());

/// A change of a password: the keys of the old and the new one, and whether guessing the new one is slowed
/// down, at the old one's cost if it was, too. Both keys are wiped.
struct KeyChange {
    PasswordDigest& from;
    PasswordDigest& to;
    bool isStrong;
};

/// Opens a volume's key block and seals it under another password. isRight tells whether the old key was
/// right; nothing is written if not. Whatever takes time comes first, and the new key before the old one, so
/// that no key that opens the file is held while a strengthener lets others run.
[[nodiscard]] KeyFileStatus ChangeVolumeKey(const PathUnit* keyPath, CipherId cipher, const KeyChange& change,
                                            bool& isRight,
                                            KeyStrengthener& strengthener = DirectStrengthener());

/// Chooses the strength of a new volume and turns the password key into its wrapping key.
[[nodiscard]] KeyFileStatus MakeWrappingKey(PasswordDigest& passwordKey, KeyStrength& strength,
                                            const Argon2Cost& cost,
                                            KeyStrengthener& strengthener = DirectStrengthener());

} // namespace quilla
