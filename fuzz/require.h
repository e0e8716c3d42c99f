#pragma once

#include <cstdio>
#include <cstdlib>
#include <source_location>

namespace quilla::fuzz {

/// Ends the process, which the fuzzer takes for a finding, when what must hold does not.
inline void Require(bool holds, const char* what = "",
                    std::source_location place = std::source_location::current()) {
    if (holds)
        return;
    std::fprintf(stderr, "%s:%u: does not hold: %s\n", place.file_name(), unsigned{place.line()}, what);
    std::abort();
}

} // namespace quilla::fuzz
