#pragma once

#include "platform/byte_order.h"
#include "tests/support/hex.h"

#include <cstdint>

namespace quilla::test {

/// Puts key files together number by number, without the layouts of the code under test.
class KeyFileBuilder {
  public:
    KeyFileBuilder& Raw(std::span<const std::byte> bytes) {
        for (const std::byte byte : bytes)
            bytes_.push_back(byte);
        return *this;
    }

    KeyFileBuilder& Header(std::uint32_t tag, std::uint16_t param, std::uint64_t length) {
        return Number(tag).Number(param).Number(std::uint16_t{0}).Number(length);
    }

    KeyFileBuilder& Settings(std::uint64_t timeout, std::uint32_t options) {
        return Header(1, 0, 24)
            .Number(std::uint64_t{65} << 32) // the format mark between zeros
            .Number(timeout)
            .Number(std::uint64_t{options});
    }

    [[nodiscard]] const Bytes& Get() const { return bytes_; }

  private:
    template <typename T>
    KeyFileBuilder& Number(T value) {
        std::byte bytes[sizeof(T)];
        StoreLittle(bytes, value);
        return Raw(bytes);
    }

    Bytes bytes_;
};

/// A whole key file around a key block of 152 bytes.
inline Bytes BuildKeyFile(std::uint16_t cipher, std::uint64_t timeout, std::uint32_t options,
                          std::span<const std::byte> keyBlock) {
    return KeyFileBuilder()
        .Header(0, 0, 16)
        .Settings(timeout, options)
        .Header(2, cipher, keyBlock.size())
        .Raw(keyBlock)
        .Header(3, 2, 520)
        .Raw(Bytes(520))
        .Get();
}

} // namespace quilla::test
