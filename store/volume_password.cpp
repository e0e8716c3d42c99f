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

bool ChangeVolumePassword(const VolumeRecord& record, const KeyChange& change, KeyAttempt& attempt) {
    const ErrorHold hold; // the keys are wiped before a box opens
    const RecordPath path(record.KeyPath);
    bool isRight = false;
    attempt.status = ChangeVolumeKey(path.text, record.Cipher, change, isRight, attempt.strengthener);
    ReportKeyFile(attempt.status, path.text);
    return isRight;
}

} // namespace quilla
