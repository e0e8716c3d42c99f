#include "platform/text.h"

#include <windows.h>

namespace quilla {

void FoldToLower(std::span<TextUnit> text) {
    CharLowerBuffW(text.data(), static_cast<DWORD>(text.size()));
}

} // namespace quilla
