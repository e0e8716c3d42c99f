#include "ui/dialog_values.h"

#include "volume/volume_record.h"

#include <iterator>

namespace quilla {

namespace {

constexpr unsigned kKilobyteBits = 10;
constexpr unsigned kMegabyteBits = 20;
constexpr unsigned kGigabyteBits = 30;

constexpr bool IsMultipleOf(std::uint64_t size, unsigned bits) {
    return (size & ((std::uint64_t{1} << bits) - 1)) == 0;
}

ShownSize InUnit(std::uint64_t size, unsigned bits, SizeUnit unit) {
    return {.value = static_cast<std::int16_t>(size >> bits), .unit = unit};
}

} // namespace

ShownSize ShowSize(std::uint64_t size) {
    if (IsMultipleOf(size, kGigabyteBits))
        return InUnit(size, kGigabyteBits, SizeUnit::Gigabytes);
    if (IsMultipleOf(size, kMegabyteBits))
        return InUnit(size, kMegabyteBits, SizeUnit::Megabytes);
    return InUnit(size, kKilobyteBits, SizeUnit::Kilobytes);
}

std::uint64_t SizeFromShown(std::int16_t value, int unitIndex) {
    const auto number = static_cast<std::uint64_t>(std::int64_t{value});
    switch (static_cast<SizeUnit>(unitIndex)) {
    case SizeUnit::Gigabytes:
        return number << kGigabyteBits;
    case SizeUnit::Megabytes:
        return number << kMegabyteBits;
    default:
        return number << kKilobyteBits;
    }
}

std::int16_t ShowTimeout(std::uint64_t timeout) {
    return static_cast<std::int16_t>(timeout / kTimeoutUnitsPerMinute);
}

std::uint64_t TimeoutFromShown(std::int16_t minutes) {
    return static_cast<std::uint64_t>(std::int64_t{minutes}) * kTimeoutUnitsPerMinute;
}

int ShowCipher(CipherId cipher) {
    for (int index = 0; index < static_cast<int>(std::size(kOfferedCiphers)); ++index)
        if (kOfferedCiphers[index] == cipher)
            return index;
    return 0;
}

CipherId CipherFromShown(int index) {
    const bool isOffered = index >= 0 && index < static_cast<int>(std::size(kOfferedCiphers));
    return isOffered ? kOfferedCiphers[index] : static_cast<CipherId>(index);
}

} // namespace quilla
