#include "export/iscsi/text_keys.h"

#include <algorithm>
#include <cstdio>

namespace quilla::iscsi {

namespace {

/// The value of a digit in a base; -1 if it is none.
int DigitValue(std::string_view digits, char digit) {
    const std::size_t found = digits.find(digit);
    return found == std::string_view::npos ? -1 : static_cast<int>(found);
}

constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr std::string_view kBase64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int HexValue(char digit) {
    return DigitValue(kHexDigits, digit >= 'A' && digit <= 'F' ? static_cast<char>(digit | 0x20) : digit);
}

bool IsHex(std::string_view text) {
    return text.starts_with("0x") || text.starts_with("0X");
}

} // namespace

bool TakeTextKey(std::string_view& text, TextKey& pair) {
    while (text.starts_with('\0'))
        text.remove_prefix(1);
    const std::size_t end = text.find('\0');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const std::size_t sign = line.find('=');
    if (sign == std::string_view::npos)
        return false;
    pair = {.key = line.substr(0, sign), .value = line.substr(sign + 1)};
    return true;
}

bool ParseNumber(std::string_view text, std::uint32_t& number) {
    const unsigned base = IsHex(text) ? 16 : 10;
    if (base == 16)
        text.remove_prefix(2);
    std::uint64_t value = 0;
    for (const char digit : text) {
        const int next = HexValue(digit);
        if (next < 0 || static_cast<unsigned>(next) >= base)
            return false;
        value = value * base + static_cast<unsigned>(next);
        if (value > 0xFFFFFFFF)
            return false;
    }
    number = static_cast<std::uint32_t>(value);
    return !text.empty();
}

std::span<std::byte> ParseBinary(std::string_view text, std::span<std::byte> room) {
    const bool isHex = IsHex(text);
    if (!isHex && !text.starts_with("0b") && !text.starts_with("0B"))
        return {};
    text.remove_prefix(2);
    while (!isHex && text.ends_with('='))
        text.remove_suffix(1);
    const unsigned digitBits = isHex ? 4 : 6;
    // An odd hexadecimal digit stands alone at the front, bits that are left over in base64 at the end.
    unsigned bits = isHex && text.size() % 2 != 0 ? 4 : 0;
    std::uint32_t value = 0;
    std::size_t count = 0;
    for (const char digit : text) {
        const int next = isHex ? HexValue(digit) : DigitValue(kBase64Digits, digit);
        if (next < 0)
            return {};
        value = value << digitBits | static_cast<unsigned>(next);
        bits += digitBits;
        if (bits < 8)
            continue;
        bits -= 8;
        if (count == room.size())
            return {};
        room[count++] = static_cast<std::byte>(value >> bits);
        value &= (1U << bits) - 1;
    }
    return room.first(count);
}

bool TakeListElement(std::string_view& list, std::string_view& element) {
    if (list.empty())
        return false;
    const std::size_t end = list.find(',');
    element = list.substr(0, end);
    list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
    return true;
}

void TextWriter::Add(std::string_view key, std::string_view value) {
    if (text_.size() - used_ < key.size() + value.size() + 2)
        return;
    used_ += key.copy(text_.data() + used_, key.size());
    text_[used_++] = '=';
    used_ += value.copy(text_.data() + used_, value.size());
    text_[used_++] = '\0';
}

void TextWriter::AddNumber(std::string_view key, std::uint32_t value) {
    std::array<char, 16> digits;
    const int length = std::snprintf(digits.data(), digits.size(), "%u", value);
    Add(key, {digits.data(), static_cast<std::size_t>(length)});
}

void TextWriter::AddBinary(std::string_view key, std::span<const std::byte> value) {
    std::array<char, 2 + 2 * 64> digits = {'0', 'x'};
    std::size_t length = 2;
    for (const std::byte next : value.first(std::min<std::size_t>(value.size(), 64))) {
        digits[length++] = kHexDigits[std::to_integer<unsigned>(next) >> 4];
        digits[length++] = kHexDigits[std::to_integer<unsigned>(next) & 15];
    }
    Add(key, {digits.data(), length});
}

} // namespace quilla::iscsi
