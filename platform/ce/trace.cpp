#include "platform/trace.h"

#include <cstddef>
#include <windows.h>

namespace quilla {

void Trace(const char* line) {
    constexpr std::size_t kMostUnits = 200;
    wchar_t text[kMostUnits + 1];
    std::size_t length = 0;
    for (; length < kMostUnits && line[length] != 0; ++length)
        text[length] = static_cast<unsigned char>(line[length]);
    text[length] = 0;
    OutputDebugStringW(text);
}

} // namespace quilla
