#include "store/display_text.h"

#include <algorithm>
#include <iterator>

namespace quilla {

namespace {

constexpr TextView kUnits[] = {QUILLA_TEXT("Bytes"), QUILLA_TEXT("KB"), QUILLA_TEXT("MB"), QUILLA_TEXT("GB")};
constexpr unsigned kLargestUnit = std::size(kUnits) - 1;

constexpr const TextUnit* kCipherNames[kCipherIdCount] = {
    QUILLA_TEXT("None"),
    QUILLA_TEXT("MDC/SHS - 1024"),
    QUILLA_TEXT("MDC/SHA1 - 1024"),
    QUILLA_TEXT("MDC/RIPM - 1024"),
    QUILLA_TEXT("Blowfish - 448"),
    QUILLA_TEXT("DES - 56"),
    QUILLA_TEXT("CAST - 128"),
    QUILLA_TEXT("TripleDES - 112"),
    QUILLA_TEXT("Square - 128"),
    QUILLA_TEXT("SAFER - 128"),
    QUILLA_TEXT("Twofish - 256"),
};

/// A size as it is shown: whole units, tenths (0 = not shown), and the unit's index.
struct RoundedSize {
    std::uint32_t whole;
    std::uint32_t tenths;
    unsigned unit;
};

/// Number of units, rounded half up. All arithmetic is modulo 2^64, also that of ten times the size.
std::uint64_t CountUnits(std::uint64_t size, unsigned unit) {
    const std::uint64_t divisor = std::uint64_t{1} << (10 * unit);
    return (size + divisor / 2) / divisor;
}

RoundedSize ChooseUnit(std::uint64_t size) {
    const std::uint64_t tenfold = size * 10;
    if (tenfold < 1000)
        return {.whole = static_cast<std::uint32_t>(size), .tenths = 0, .unit = 0};
    for (unsigned unit = 0;; ++unit) {
        const std::uint64_t count = CountUnits(size, unit);
        if (count < 1000 || unit == kLargestUnit)
            return {.whole = static_cast<std::uint32_t>(count), .tenths = 0, .unit = unit};
        const auto tenths = CountUnits(tenfold, unit + 1);
        if (tenths < 1000)
            return {.whole = static_cast<std::uint32_t>(tenths / 10),
                    .tenths = static_cast<std::uint32_t>(tenths % 10),
                    .unit = unit + 1};
    }
}

TextUnit* WriteNumber(std::uint32_t number, TextUnit* out) {
    TextUnit digits[10];
    TextUnit* first = std::end(digits);
    do {
        *--first = static_cast<TextUnit>(QUILLA_TEXT('0') + number % 10);
        number /= 10;
    } while (number != 0);
    return std::copy(first, std::end(digits), out);
}

} // namespace

std::size_t FormatSize(std::uint64_t size, SizeText& text) {
    const RoundedSize shown = ChooseUnit(size);
    TextUnit* out = WriteNumber(shown.whole, text);
    if (shown.tenths != 0) {
        *out++ = QUILLA_TEXT('.');
        out = WriteNumber(shown.tenths, out);
    }
    *out++ = QUILLA_TEXT(' ');
    out = std::ranges::copy(kUnits[shown.unit], out).out;
    *out = 0;
    return static_cast<std::size_t>(out - text);
}

const TextUnit* CipherName(CipherId id) {
    return kCipherNames[static_cast<std::uint32_t>(id)];
}

} // namespace quilla
