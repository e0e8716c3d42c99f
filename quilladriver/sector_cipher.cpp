#include "quilladriver/sector_cipher.h"

#include "platform/disk_codes.h"
#include "platform/locked_memory.h"
#include "quilladriver/sector_kernel.h"

#include <utility>

namespace quilla {

SectorCipher::SectorCipher(SectorCipher&& other) noexcept
    : kernel_(std::exchange(other.kernel_, nullptr)), schedule_(std::exchange(other.schedule_, nullptr)) {}

SectorCipher& SectorCipher::operator=(SectorCipher&& other) noexcept {
    if (this != &other) {
        Clear();
        kernel_ = std::exchange(other.kernel_, nullptr);
        schedule_ = std::exchange(other.schedule_, nullptr);
    }
    return *this;
}

bool SectorCipher::SetUp(CipherId cipher, const DataKey& key) {
    Clear();
    if (cipher == CipherId::None)
        return true;
    const SectorKernel* const kernel = ChooseSectorKernel(cipher);
    return kernel != nullptr && SetUp(*kernel, key);
}

bool SectorCipher::SetUp(const SectorKernel& kernel, const DataKey& key) {
    Clear();
    schedule_ = AllocateLockedMemory(kernel.scheduleSize);
    if (schedule_ == nullptr)
        return false;
    kernel.setUp(schedule_, key);
    kernel_ = &kernel;
    return true;
}

void SectorCipher::Encrypt(std::uint64_t firstSector, std::span<std::byte> sectors) const {
    if (!IsPlain())
        kernel_->encrypt(schedule_, firstSector, sectors.data(), sectors.size() / kSectorSize);
}

void SectorCipher::Decrypt(std::uint64_t firstSector, std::span<std::byte> sectors) const {
    if (!IsPlain())
        kernel_->decrypt(schedule_, firstSector, sectors.data(), sectors.size() / kSectorSize);
}

void SectorCipher::Clear() {
    if (kernel_ != nullptr)
        ReleaseLockedMemory(schedule_, kernel_->scheduleSize);
    kernel_ = nullptr;
    schedule_ = nullptr;
}

} // namespace quilla
