#pragma once

#include "platform/processor.h"
#include "quilladriver/sector_kernel.h"

/// The kernels of this build.
namespace quilla {

extern const SectorKernel kTwofishPortable;
extern const SectorKernel kCast128Portable;

#if defined(__x86_64__)
extern const SectorKernel kCast128Avx512;
extern const SectorKernel kCast128Interleaved;
extern const SectorKernel kTwofishAvx2;
extern const SectorKernel kTwofishAvx512;
extern const SectorKernel kTwofishInterleaved;
#endif

} // namespace quilla
