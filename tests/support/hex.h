#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Bytes written as hexadecimal digits, for published vectors and readable failures.
namespace quilla::test {

using Bytes = std::vector<std::byte>;

/// Reads pairs of digits; everything else between them is skipped.
inline Bytes FromHex(std::string_view digits) {
    Bytes bytes;
    int high = -1;
    for (const char c : digits) {
        const int value = c >= '0' && c <= '9'   ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (value < 0)
            continue;
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<std::byte>(high * 16 + value));
            high = -1;
        }
    }
    return bytes;
}

inline std::string ToHex(std::span<const std::byte> bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::byte byte : bytes) {
        text += kDigits[std::to_integer<unsigned>(byte) >> 4];
        text += kDigits[std::to_integer<unsigned>(byte) & 15];
    }
    return text;
}

inline std::span<const std::byte> AsBytes(std::string_view text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

} // namespace quilla::test
