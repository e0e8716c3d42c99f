#include "store/volume_password.h"

#include "platform/error_box.h"
#include "platform/wipe.h"
#include "store/record_path.h"
#include "store/volume_files.h"

namespace quilla {

bool OpenVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block,
                   KeyAttempt* attempt) {
    const ErrorHold hold; // the password key is wiped before a box opens
    const RecordPath path(record.KeyPath);
    KeyAttempt plain;
    KeyAttempt& used = attempt != nullptr ? *attempt : plain;
    bool isRight = false;
    used.status = LoadVolumeKey(path.text, record.Cipher, passwordKey, block, isRight, &used.strength,
                                used.strengthener);
    ReportKeyFile(used.status, path.text);
    return isRight;
}

bool UnlockVolume(VolumeRecord& record, PasswordDigest& passwordKey, KeyAttempt* attempt) {
    Secret<KeyBlock> block;
    const bool open = OpenVolumeKey(record, passwordKey, *block, attempt);
    if (open)
        TakeDataKey(record.Key, *block);
    return open;
}

KeyFileStatus StoreVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block,
                             const Argon2Cost* cost, KeyStrengthener& strengthener) {
    const ErrorHold hold; // the block is wiped before a box opens
    const RecordPath path(record.KeyPath);
    const KeyFileStatus status =
        StoreSealedKey(path.text, record.Cipher, passwordKey, block, cost, strengthener);
    ReportKeyFile(status, path.text);
    return status;
}

} // namespace quilla
