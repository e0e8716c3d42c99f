#include "export/iscsi/crc32c.h"

#include "platform/byte_order.h"

#include <array>
#if defined(__x86_64__)
#include <nmmintrin.h>
#endif

namespace quilla::iscsi {

namespace {

constexpr std::uint32_t kReversedPolynomial = 0x82F63B78;

constexpr std::array<std::uint32_t, 256> MakeTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = value >> 1 ^ ((value & 1) != 0 ? kReversedPolynomial : 0);
        table[i] = value;
    }
    return table;
}

constexpr auto kTable = MakeTable();

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) std::uint32_t ByInstruction(std::span<const std::byte> bytes,
                                                              std::uint32_t before) {
    std::uint64_t value = ~before;
    std::size_t at = 0;
    for (; at + 8 <= bytes.size(); at += 8)
        value = _mm_crc32_u64(value, LoadLittle<std::uint64_t>(bytes.data() + at));
    auto rest = static_cast<std::uint32_t>(value);
    for (; at < bytes.size(); ++at)
        rest = _mm_crc32_u8(rest, std::to_integer<std::uint8_t>(bytes[at]));
    return ~rest;
}
#endif

} // namespace

std::uint32_t Crc32cByTable(std::span<const std::byte> bytes, std::uint32_t before) {
    std::uint32_t value = ~before;
    for (const std::byte next : bytes)
        value = value >> 8 ^ kTable[(value ^ std::to_integer<std::uint32_t>(next)) & 0xFF];
    return ~value;
}

std::uint32_t Crc32c(std::span<const std::byte> bytes, std::uint32_t before) {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("sse4.2"))
        return ByInstruction(bytes, before);
#endif
    return Crc32cByTable(bytes, before);
}

} // namespace quilla::iscsi
