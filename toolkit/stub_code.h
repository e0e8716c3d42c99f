#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The machine code of a window's stub, one encoding per processor. Every stub puts the object in place of
/// the first argument, the window handle, leaves the other arguments alone and jumps to the toolkit window
/// procedure.
namespace quilla::stub {

/// Bytes of one stub in a page of stubs.
inline constexpr std::size_t kStubSize = 16;

using Code = std::array<std::uint8_t, kStubSize>;

namespace detail {

constexpr std::uint8_t kBreakpoint = 0xCC; // fills x86 stubs up

constexpr Code Filled(std::uint8_t value) {
    Code code{};
    for (std::uint8_t& byte : code)
        byte = value;
    return code;
}

constexpr void Put32(Code& code, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < sizeof(value); ++i)
        code[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

/// LDR (literal), 64 bits wide: the distance in words goes into bits 5 to 23.
constexpr std::uint32_t LoadLiteral(unsigned target, std::int32_t distance) {
    constexpr std::uint32_t kLdrLiteral64 = 0x58000000;
    constexpr std::uint32_t kImmediate19 = 0x7FFFF;
    return kLdrLiteral64 | ((static_cast<std::uint32_t>(distance / 4) & kImmediate19) << 5) | target;
}

} // namespace detail

/// x86-64: loads rcx from objectSlot and jumps through procedureSlot; both are distances in bytes from the
/// start of the stub.
constexpr Code EncodeX64(std::int32_t objectSlot, std::int32_t procedureSlot) {
    Code code = detail::Filled(detail::kBreakpoint);
    code[0] = 0x48, code[1] = 0x8B, code[2] = 0x0D; // mov rcx, [rip + ...]
    detail::Put32(code, 3, static_cast<std::uint32_t>(objectSlot - 7));
    code[7] = 0xFF, code[8] = 0x25; // jmp [rip + ...]
    detail::Put32(code, 9, static_cast<std::uint32_t>(procedureSlot - 13));
    return code;
}

/// 32-bit x86, arguments on the stack; both are addresses.
constexpr Code EncodeX86(std::uint32_t objectSlot, std::uint32_t procedureSlot) {
    Code code = detail::Filled(detail::kBreakpoint);
    code[0] = 0xA1; // mov eax, [objectSlot]
    detail::Put32(code, 1, objectSlot);
    code[5] = 0x89, code[6] = 0x44, code[7] = 0x24, code[8] = 0x04; // mov [esp + 4], eax
    code[9] = 0xFF, code[10] = 0x25;                                // jmp [procedureSlot]
    detail::Put32(code, 11, procedureSlot);
    return code;
}

/// 64-bit ARM: both are distances in bytes from the start of the stub, multiples of 4 below 1 MiB.
constexpr Code EncodeArm64(std::int32_t objectSlot, std::int32_t procedureSlot) {
    Code code{};
    detail::Put32(code, 0, detail::LoadLiteral(0, objectSlot));         // ldr x0, objectSlot
    detail::Put32(code, 4, detail::LoadLiteral(16, procedureSlot - 4)); // ldr x16, procedureSlot
    detail::Put32(code, 8, 0xD61F0200);                                 // br x16
    return code;
}

/// 32-bit ARM: a stub that carries its two addresses behind its three instructions.
constexpr std::array<std::uint32_t, 5> EncodeArm(std::uint32_t object, std::uint32_t procedure) {
    return {0xE59F0004, // ldr r0, [pc, #4]: the object
            0xE59FC004, // ldr r12, [pc, #4]: the procedure
            0xE1A0F00C, // mov pc, r12
            object, procedure};
}

} // namespace quilla::stub
