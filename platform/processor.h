#pragma once

/// For the parts of a kernel's rounds, whose values stay in registers only inside one function, and for
/// whatever else a file compiled for one kind of processor shares with others. No such file may leave an
/// inline function of a header behind as a function of its own: the linker keeps one copy of all and could
/// keep the one that not every processor runs.
#define QUILLA_INLINE [[gnu::always_inline]] inline

namespace quilla {

/// What kernels ask of the processor. A feature counts only when the system saves its registers too. These
/// stand apart from the kernels, whose files may hold instructions that the processor in question does not
/// know.
[[nodiscard]] bool HasAvx2();
[[nodiscard]] bool HasAvx512(); ///< F, BW, VL, VBMI and GFNI

} // namespace quilla
