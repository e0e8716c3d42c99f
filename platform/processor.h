#pragma once

namespace quilla {

/// What kernels ask of the processor. A feature counts only when the system saves its registers too. These
/// stand apart from the kernels, whose files may hold instructions that the processor in question does not
/// know.
[[nodiscard]] bool HasAvx2();
[[nodiscard]] bool HasAvx512(); ///< F, BW, VL, VBMI and GFNI

} // namespace quilla
