#include "platform/trace.h"

#include <windows.h>

namespace quilla {

void Trace(const char* line) {
    OutputDebugStringA(line);
}

} // namespace quilla
