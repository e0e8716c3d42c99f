#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla::iscsi {

using Md5Digest = std::array<std::byte, 16>;

/// The MD5 message digest (RFC 1321). CHAP prescribes it; it protects nothing else.
class Md5 {
  public:
    Md5() = default;
    ~Md5();
    Md5(const Md5&) = delete;
    Md5& operator=(const Md5&) = delete;

    void Add(std::span<const std::byte> bytes);
    [[nodiscard]] Md5Digest Finish();

  private:
    void Transform();

    std::array<std::uint32_t, 4> state_ = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    std::array<std::byte, 64> block_{};
    std::uint64_t length_ = 0; // bytes added
};

} // namespace quilla::iscsi
