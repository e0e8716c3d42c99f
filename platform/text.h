#pragma once

#include <cstddef>
#include <span>
#include <string_view>

/// UTF-16 text. Where the platform's wide character is a UTF-16 unit it is used directly, so that text can be
/// handed to the platform without conversion; elsewhere char16_t takes its place.
#ifdef _WIN32
#define QUILLA_TEXT(literal) L##literal
#else
#define QUILLA_TEXT(literal) u##literal
#endif

namespace quilla {

#ifdef _WIN32
using TextUnit = wchar_t;
#else
using TextUnit = char16_t;
#endif
static_assert(sizeof(TextUnit) == 2);

using TextView = std::basic_string_view<TextUnit>;

/// Units of a path or text field of a record, terminating zero included (MAX_PATH on every Windows).
inline constexpr std::size_t kPathUnits = 260;

/// A fixed field that holds zero-terminated text.
using PathText = TextUnit[kPathUnits];

/// Folds text to lower case in place, unit by unit, as the platform does for file names (CharLowerW).
void FoldToLower(std::span<TextUnit> text);

/// Copies text into a fixed field, cut to what fits, and terminates it. Returns false if it had to be cut.
template <std::size_t N>
constexpr bool CopyText(TextUnit (&field)[N], TextView text) {
    const std::size_t length = text.size() < N ? text.size() : N - 1;
    for (std::size_t i = 0; i < length; ++i)
        field[i] = text[i];
    field[length] = 0;
    return length == text.size();
}

/// The text of a fixed field up to its terminating zero, or the whole field if there is none.
template <std::size_t N>
constexpr TextView FieldText(const TextUnit (&field)[N]) {
    std::size_t length = 0;
    while (length < N && field[length] != 0)
        ++length;
    return TextView(field, length);
}

} // namespace quilla
