#pragma once

#include "quilladriver/sector_kernel.h"

/// For the parts of a kernel's rounds, whose values stay in registers only inside one function, and for
/// whatever else a file compiled for one kind of processor shares with others. No such file may leave an
/// inline function of a header behind as a function of its own: the linker keeps one copy of all and could
/// keep the one that not every processor runs.
#define QUILLA_INLINE [[gnu::always_inline]] inline

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
