#include "quilladriver/sector_kernel.h"

#include "quilladriver/kernels.h"

namespace quilla {

std::span<const SectorKernel* const> AllSectorKernels() {
    static constexpr const SectorKernel* kKernels[] = {
#if defined(__x86_64__)
        &kTwofishAvx512,
        &kTwofishAvx2,
        &kTwofishInterleaved,
#endif
        &kTwofishPortable,
#if defined(__x86_64__)
        &kCast128Avx512,
        &kCast128Interleaved,
#endif
        &kCast128Portable,
    };
    return kKernels;
}

const SectorKernel* ChooseSectorKernel(CipherId cipher) {
    for (const SectorKernel* kernel : AllSectorKernels())
        if (kernel->cipher == cipher && kernel->isSupported())
            return kernel;
    return nullptr;
}

} // namespace quilla
