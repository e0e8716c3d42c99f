// The reference of the CAST-128 kernels: block by block, for any processor.

#include "platform/byte_order.h"
#include "platform/disk_codes.h"
#include "quilladriver/cast128_keys.h"
#include "quilladriver/kernels.h"

namespace quilla {

namespace {

using Block = std::uint64_t;

Block MakeIv(const CastSchedule& schedule, std::uint64_t sector) {
    std::byte iv[kCastBlockSize];
    StoreLittle(iv, sector);
    CastEncryptBlock(schedule, iv, iv);
    return LoadLittle<Block>(iv);
}

void Encrypt(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& keys = *static_cast<const CastKeyPair*>(opaque);
    for (const std::byte* const end = data + count * kSectorSize; data != end; ++sector) {
        Block chain = MakeIv(keys.iv, sector);
        for (const std::byte* const sectorEnd = data + kSectorSize; data != sectorEnd;
             data += kCastBlockSize) {
            StoreLittle(data, LoadLittle<Block>(data) ^ chain);
            CastEncryptBlock(keys.data, data, data);
            chain = LoadLittle<Block>(data);
        }
    }
}

void Decrypt(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& keys = *static_cast<const CastKeyPair*>(opaque);
    for (const std::byte* const end = data + count * kSectorSize; data != end; ++sector) {
        Block chain = MakeIv(keys.iv, sector);
        for (const std::byte* const sectorEnd = data + kSectorSize; data != sectorEnd;
             data += kCastBlockSize) {
            const auto enciphered = LoadLittle<Block>(data);
            CastDecryptBlock(keys.data, data, data);
            StoreLittle(data, LoadLittle<Block>(data) ^ chain);
            chain = enciphered;
        }
    }
}

void SetUp(void* opaque, const DataKey& key) {
    BuildCastKeys(*static_cast<CastKeyPair*>(opaque), key);
}

} // namespace

const SectorKernel kCast128Portable = {
    .cipher = CipherId::Cast128,
    .name = "portable",
    .isSupported = [] { return true; },
    .scheduleSize = sizeof(CastKeyPair),
    .setUp = SetUp,
    .encrypt = Encrypt,
    .decrypt = Decrypt,
};

} // namespace quilla
