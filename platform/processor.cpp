#include "platform/processor.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

#include <cstdint>

namespace quilla {

#if defined(__x86_64__)

namespace {

struct Registers {
    std::uint32_t a = 0, b = 0, c = 0, d = 0;
};

Registers Identify(std::uint32_t leaf) {
    Registers r;
    if (__get_cpuid_count(leaf, 0, &r.a, &r.b, &r.c, &r.d) == 0)
        return {};
    return r;
}

/// Extended control register 0: which register sets the system saves at a thread switch.
std::uint32_t SavedRegisterSets() {
    std::uint32_t low = 0, high = 0;
    asm("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return low;
}

constexpr bool HasAll(std::uint32_t value, std::uint32_t bits) {
    return (value & bits) == bits;
}

} // namespace

// Bits as in the Intel Architecture Software Developer's Manual, volume 2, CPUID, and volume 1, chapter 13.

bool HasAvx2() {
    constexpr std::uint32_t kOsUsesXsave = 1U << 27;
    constexpr std::uint32_t kYmmSaved = 0x06;
    constexpr std::uint32_t kAvx2 = 1U << 5;
    return HasAll(Identify(1).c, kOsUsesXsave) && HasAll(SavedRegisterSets(), kYmmSaved) &&
           HasAll(Identify(7).b, kAvx2);
}

bool HasAvx512() {
    constexpr std::uint32_t kZmmSaved = 0xE6;
    constexpr std::uint32_t kAvx512FBwVl = 1U << 16 | 1U << 30 | 1U << 31;
    constexpr std::uint32_t kVbmiGfni = 1U << 1 | 1U << 8;
    return HasAvx2() && HasAll(SavedRegisterSets(), kZmmSaved) && HasAll(Identify(7).b, kAvx512FBwVl) &&
           HasAll(Identify(7).c, kVbmiGfni);
}

#else

bool HasAvx2() {
    return false;
}

bool HasAvx512() {
    return false;
}

#endif

} // namespace quilla
