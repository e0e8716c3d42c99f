// What the device calls: a kernel chosen for the processor, and its schedule in locked memory.

#include "quilladriver/sector_cipher.h"

#include "platform/disk_codes.h"
#include "platform/locked_memory.h"
#include "platform/wipe.h"
#include "quilladriver/sector_kernel.h"

#include <cstddef>
#include <utility>

namespace quilla {

namespace {

/// Overwrites the stack that a kernel has just used: compilers park parts of schedules and plain text there,
/// and the thread may live longer than the volume is mounted. The deepest kernel takes 6 KiB.
[[gnu::noinline]] void WipeKernelStack() {
    std::byte used[std::size_t{8} << 10];
    WipeMemory(used, sizeof(used));
}

} // namespace

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
    WipeKernelStack();
    kernel_ = &kernel;
    return true;
}

void SectorCipher::Encrypt(std::uint64_t firstSector, std::span<std::byte> sectors) const {
    if (IsPlain())
        return;
    kernel_->encrypt(schedule_, firstSector, sectors.data(), sectors.size() / kSectorSize);
    WipeKernelStack();
}

void SectorCipher::Decrypt(std::uint64_t firstSector, std::span<std::byte> sectors) const {
    if (IsPlain())
        return;
    kernel_->decrypt(schedule_, firstSector, sectors.data(), sectors.size() / kSectorSize);
    WipeKernelStack();
}

void SectorCipher::Clear() {
    if (kernel_ != nullptr)
        ReleaseLockedMemory(schedule_, kernel_->scheduleSize);
    kernel_ = nullptr;
    schedule_ = nullptr;
}

} // namespace quilla
