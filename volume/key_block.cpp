#include "volume/key_block.h"

#include "platform/wipe.h"
#include "volume/cipher_frame.h"
#include "volume/crc32.h"
#include "volume/random_pool.h"

#include <cstring>

namespace quilla {

namespace {

/// Enciphers with the IV that the block holds.
bool EncipherMasterKey(KeyBlock& block, CipherId cipher, const PasswordDigest& passwordKey) {
    return Cipher(passwordKey, cipher).Encrypt(block.masterKey, block.iv);
}

} // namespace

bool OpenKeyBlock(KeyBlock& block, CipherId cipher, PasswordDigest& passwordKey) {
    // Without a cipher the block stays as it is and the checksum decides.
    Cipher(passwordKey, cipher).Decrypt(block.masterKey, block.iv);
    Wipe(passwordKey);
    return Crc32(block.masterKey) == block.checksum;
}

bool SealKeyBlock(KeyBlock& block, CipherId cipher, PasswordDigest& passwordKey) {
    const bool done =
        RandomFill(block.iv) == block.iv.size() && EncipherMasterKey(block, cipher, passwordKey);
    Wipe(passwordKey);
    return done;
}

bool MakeKeyBlock(KeyBlock& block, CipherId cipher, PasswordDigest& passwordKey) {
    const bool isRandom =
        RandomFill(block.iv) == block.iv.size() && RandomFill(block.masterKey) == block.masterKey.size();
    block.checksum = Crc32(block.masterKey);
    const bool done = isRandom && EncipherMasterKey(block, cipher, passwordKey);
    Wipe(passwordKey);
    if (!done)
        Wipe(block);
    return done;
}

void TakeDataKey(DataKey& key, const KeyBlock& block) {
    static_assert(kDataKeySize <= kMasterKeySize);
    std::memcpy(key.data(), block.masterKey.data(), key.size());
}

} // namespace quilla
