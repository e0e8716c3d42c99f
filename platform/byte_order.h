#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// Loads and stores of numbers at any address in a stated byte order.
namespace quilla {

template <typename Number>
[[nodiscard]] constexpr Number SwapBytes(Number value) {
    static_assert(std::is_unsigned_v<Number>);
    if constexpr (sizeof(Number) == 2)
        return __builtin_bswap16(value);
    else if constexpr (sizeof(Number) == 4)
        return __builtin_bswap32(value);
    else if constexpr (sizeof(Number) == 8)
        return __builtin_bswap64(value);
    else
        return value;
}

template <typename Number>
[[nodiscard]] inline Number LoadLittle(const void* from) {
    Number value;
    std::memcpy(&value, from, sizeof(value));
    return std::endian::native == std::endian::little ? value : SwapBytes(value);
}

template <typename Number>
[[nodiscard]] inline Number LoadBig(const void* from) {
    Number value;
    std::memcpy(&value, from, sizeof(value));
    return std::endian::native == std::endian::big ? value : SwapBytes(value);
}

template <typename Number>
inline void StoreLittle(void* to, Number value) {
    const Number ordered = std::endian::native == std::endian::little ? value : SwapBytes(value);
    std::memcpy(to, &ordered, sizeof(ordered));
}

template <typename Number>
inline void StoreBig(void* to, Number value) {
    const Number ordered = std::endian::native == std::endian::big ? value : SwapBytes(value);
    std::memcpy(to, &ordered, sizeof(ordered));
}

/// A number in network byte order, at any address.
template <typename Number>
class BigEndian {
  public:
    BigEndian() = default;
    BigEndian(Number value) { StoreBig(bytes_, value); }
    operator Number() const { return LoadBig<Number>(bytes_); }

  private:
    std::byte bytes_[sizeof(Number)];
};

using Big16 = BigEndian<std::uint16_t>;
using Big32 = BigEndian<std::uint32_t>;
using Big64 = BigEndian<std::uint64_t>;

} // namespace quilla
