#pragma once

namespace quilla {

/// What kernels ask of the processor. A feature counts only when the system saves its registers too.
struct ProcessorFeatures {
    bool avx2 = false;
    bool avx512 = false; ///< AVX-512 F, BW, VL, VBMI and GFNI
};

[[nodiscard]] ProcessorFeatures DetectProcessor();

} // namespace quilla
