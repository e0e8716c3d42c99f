#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quilla::iscsi {

/// One "key=value" of a login or text unit (RFC 7143, 6.1).
struct TextKey {
    std::string_view key;
    std::string_view value;
};

/// Takes the next pair off the front of a data segment; false at its end or where it is none.
[[nodiscard]] bool TakeTextKey(std::string_view& text, TextKey& pair);

/// A decimal or hexadecimal number, alone in its text; false if it is none or needs more than 32 bits.
[[nodiscard]] bool ParseNumber(std::string_view text, std::uint32_t& number);

/// Binary value in hexadecimal ("0x") or base64 ("0b") notation. Returns its bytes, at the front of the
/// room; nothing if it is neither or longer.
[[nodiscard]] std::span<std::byte> ParseBinary(std::string_view text, std::span<std::byte> room);

/// Takes the next element off a list with commas; false when it is empty.
[[nodiscard]] bool TakeListElement(std::string_view& list, std::string_view& element);

/// Pairs for an answer, as many as fit.
class TextWriter {
  public:
    void Add(std::string_view key, std::string_view value);
    void AddNumber(std::string_view key, std::uint32_t value);
    void AddBinary(std::string_view key, std::span<const std::byte> value);
    void Clear() { used_ = 0; }
    [[nodiscard]] std::span<const std::byte> Bytes() const {
        return std::as_bytes(std::span(text_)).first(used_);
    }

  private:
    std::array<char, 4096> text_;
    std::size_t used_ = 0;
};

} // namespace quilla::iscsi
