#pragma once

#include "volume/key_block.h"
#include "volume/password_digest.h"
#include "volume/volume_record.h"

/// The steps from a password to an open volume and back. Each takes a password key and wipes it; failures to
/// read or write the key file are shown in a message box, wrong passwords are the caller's to report.
namespace quilla {

/// Reads a volume's key block and opens it. False for a wrong password, and also when the file error already
/// shown left nothing to open. The caller wipes the block.
[[nodiscard]] bool OpenVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block);

/// The same for a mount: puts the data key into the record. False leaves the record unchanged.
[[nodiscard]] bool UnlockVolume(VolumeRecord& record, PasswordDigest& passwordKey);

/// Seals an open key block under a new password key with a fresh IV, writes it into the key file in place and
/// wipes it.
bool StoreVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block);

} // namespace quilla
