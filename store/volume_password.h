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

/// Seals the volume's key under another password. False for a wrong old password, and whenever nothing could
/// be tried, as OpenVolumeKey has it; a failure to write is shown, too, but no fault of the password's.
[[nodiscard]] bool ChangeVolumePassword(const VolumeRecord& record, const KeyChange& change,
                                        KeyAttempt& attempt);

} // namespace quilla
