#pragma once

#include <cwchar>
#include <span>

namespace quilla {

/// Writes values in a format of the run-time library (%ls wide text, %hs narrow text, %u and so on), cut to
/// what fits and terminated always. False if it had to be cut or a value cannot be written.
template <typename... Values>
bool FormatText(std::span<wchar_t> text, const wchar_t* format, Values... values) {
    const int length = _snwprintf(text.data(), text.size(), format, values...);
    text.back() = 0;
    return length >= 0 && static_cast<std::size_t>(length) < text.size();
}

} // namespace quilla
