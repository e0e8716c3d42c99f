#pragma once

#include "platform/byte_order.h"
#include "tests/support/hex.h"

#include <cstdint>

namespace quilla::test {

/// A whole key file around a key block, number by number, without the layouts of the code under test.
inline Bytes BuildKeyFile(std::uint16_t cipher, std::uint64_t timeout, std::uint32_t options,
                          std::span<const std::byte> keyBlock) {
    Bytes file;
    const auto number = [&file](auto value) {
        file.resize(file.size() + sizeof(value));
        StoreLittle(file.data() + file.size() - sizeof(value), value);
    };
    const auto header = [&number](std::uint32_t tag, std::uint32_t param, std::uint64_t length) {
        number(tag);
        number(param);
        number(length);
    };
    header(0, 0, 16);
    header(1, 0, 24);
    number(std::uint64_t{65} << 32); // the format mark between zeros
    number(timeout);
    number(std::uint64_t{options});
    header(2, cipher, keyBlock.size());
    file.insert(file.end(), keyBlock.begin(), keyBlock.end());
    header(3, 2, 520);
    file.resize(file.size() + 520);
    return file;
}

} // namespace quilla::test
