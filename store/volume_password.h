#pragma once

#include "volume/volume_key.h"
#include "volume/volume_record.h"

/// The steps from a password to an open volume and back. Each takes a password key and wipes it; failures to
/// read or write the key file are shown in a message box, wrong passwords are the caller's to report.
namespace quilla {

/// How a key is opened, and what came of it.
struct KeyAttempt {
    KeyStrengthener& strengthener = DirectStrengthener();
    std::optional<KeyStrength> strength{}; ///< the key file's
    KeyFileStatus status = KeyFileStatus::Done;

    /// Whether the password was never tried, so that nobody may call it wrong. A file that cannot be read is
    /// no such case: who asked is told both.
    [[nodiscard]] bool IsUntried() const {
        return status == KeyFileStatus::NoMemory || status == KeyFileStatus::Stopped ||
               status == KeyFileStatus::UnknownFormat;
    }
};

/// Reads a volume's key block and opens it. False for a wrong password, and also when the file error already
/// shown left nothing to open, or when the user ended the attempt. The caller wipes the block.
[[nodiscard]] bool OpenVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block,
                                 KeyAttempt* attempt = nullptr);

/// The same for a mount: puts the data key into the record. False leaves the record unchanged.
[[nodiscard]] bool UnlockVolume(VolumeRecord& record, PasswordDigest& passwordKey,
                                KeyAttempt* attempt = nullptr);

/// Seals an open key block under a new password key with a fresh IV, writes it into the key file and wipes
/// it. With a cost, guessing is slowed down from then on; without one it is not.
KeyFileStatus StoreVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block,
                             const Argon2Cost* cost = nullptr,
                             KeyStrengthener& strengthener = DirectStrengthener());

} // namespace quilla
