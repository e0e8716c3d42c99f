#include "platform/trace.h"

#include <cstdio>

namespace quilla {

void Trace(const char* line) {
    std::fprintf(stderr, "%s\n", line);
}

} // namespace quilla
