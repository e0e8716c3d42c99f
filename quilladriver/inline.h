#pragma once

/// For the parts of a kernel's rounds, whose values stay in registers only inside one function.
#define QUILLA_INLINE [[gnu::always_inline]] inline
