#pragma once

#include "volume/cipher_id.h"

#include <cstdint>

/// How the dialogs show a volume's numbers, and what the shown values mean. Numbers of up-down controls have
/// 16 bits and a sign.
namespace quilla {

/// Entries of the list of size units, in their order.
enum class SizeUnit : int { Kilobytes, Megabytes, Gigabytes };

struct ShownSize {
    std::int16_t value;
    SizeUnit unit;
};

/// The largest unit that divides the size, or KB with the remainder dropped.
[[nodiscard]] ShownSize ShowSize(std::uint64_t size);

/// Bytes of a number in the unit with the given list index; no selection counts as KB.
[[nodiscard]] std::uint64_t SizeFromShown(std::int16_t value, int unitIndex);

/// Whole minutes of a time-out.
[[nodiscard]] std::int16_t ShowTimeout(std::uint64_t timeout);

[[nodiscard]] std::uint64_t TimeoutFromShown(std::int16_t minutes);

/// The ciphers that a volume can be created with, in the order of the list.
inline constexpr CipherId kOfferedCiphers[] = {CipherId::None, CipherId::Twofish, CipherId::Cast128};

/// List index of a cipher; one that is not offered shows as the first, "None".
[[nodiscard]] int ShowCipher(CipherId cipher);

/// Cipher of a list index; an index that is none (CB_ERR) becomes a number that no cipher has.
[[nodiscard]] CipherId CipherFromShown(int index);

} // namespace quilla
