#pragma once

#include <cstdio>
#include <cstdlib>

namespace quilla::fuzz {

/// Ends the process, which the fuzzer takes for a finding, when what must hold does not. The place is the
/// caller's; clang 14 has no std::source_location for it.
inline void Require(bool holds, const char* what = "", const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
    if (holds)
        return;
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
}

} // namespace quilla::fuzz
