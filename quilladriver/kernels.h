#pragma once

#include "quilladriver/sector_kernel.h"

/// The kernels of this build. Files compiled for one kind of processor include nothing that defines inline
/// functions shared with other files: the linker could keep the copy that not every processor runs.
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
