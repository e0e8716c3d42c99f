#include "store/volume_password.h"

#include "platform/wipe.h"
#include "store/record_path.h"
#include "store/volume_files.h"

namespace quilla {

bool OpenVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block) {
    block = {};
    ReadChunk(RecordPath(record.KeyPath).text, KeyBlockHeader(record.Cipher),
              std::as_writable_bytes(std::span(&block, 1)));
    return OpenKeyBlock(block, record.Cipher, passwordKey);
}

bool UnlockVolume(VolumeRecord& record, PasswordDigest& passwordKey) {
    Secret<KeyBlock> block;
    const bool open = OpenVolumeKey(record, passwordKey, *block);
    if (open)
        TakeDataKey(record.Key, *block);
    return open;
}

bool StoreVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block) {
    const bool sealed = SealKeyBlock(block, record.Cipher, passwordKey);
    const bool stored = sealed && RewriteChunk(RecordPath(record.KeyPath).text, KeyBlockHeader(record.Cipher),
                                               std::as_bytes(std::span(&block, 1)));
    Wipe(block);
    return stored;
}

} // namespace quilla
