#include "store/volume_password.h"

#include "platform/error_box.h"
#include "platform/wipe.h"
#include "store/record_path.h"
#include "store/volume_files.h"
#include "volume/cipher_frame.h"

namespace quilla {

bool OpenVolumeKey(const VolumeRecord& record, PasswordDigest& passwordKey, KeyBlock& block) {
    const ErrorHold hold; // the password key is wiped before a box opens
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
    const RecordPath path(record.KeyPath);
    const bool sealed = SealKeyBlock(block, record.Cipher, passwordKey);
    const ErrorHold hold; // the block is wiped before a box opens
    const bool stored =
        sealed ? RewriteChunk(path.text, KeyBlockHeader(record.Cipher), std::as_bytes(std::span(&block, 1)))
               : ReportKeyFile(BlockSizeOf(record.Cipher) == 0 ? KeyFileStatus::UnknownFormat
                                                               : KeyFileStatus::CannotWrite,
                               path.text);
    Wipe(block);
    return stored;
}

} // namespace quilla
