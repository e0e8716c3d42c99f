// Handhelds have no memory for the function that slows down guessing: a key file with the option is an
// unknown format to them, and none is made.

#include "platform/wipe.h"
#include "volume/key_replacement.h"
#include "volume/key_strength.h"

namespace quilla {

Argon2Result StrengthenKey(PasswordDigest& key, const KeyStrength& /*strength*/, Argon2Watch* /*watch*/) {
    Wipe(key);
    return Argon2Result::Unknown;
}

File OpenKeyFile(const PathUnit* path, FileAccess access) {
    const FileSharing sharing = access == FileAccess::Read ? FileSharing::Read : FileSharing::None;
    return File::Open(path, access, sharing, FileCreation::OpenExisting);
}

KeyFileStatus ReplaceKeyBlock(const PathUnit* /*path*/, File& /*file*/, const ChunkHeader& /*keyHeader*/,
                              const KeyBlock& /*block*/, const KeyStrength* /*strength*/) {
    return KeyFileStatus::UnknownFormat;
}

} // namespace quilla
