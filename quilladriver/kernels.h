#pragma once

#include "quilladriver/sector_kernel.h"

namespace quilla {

extern const SectorKernel kTwofishPortable;
extern const SectorKernel kCast128Portable;

} // namespace quilla
