#include "quilladriver/processor.h"

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

ProcessorFeatures DetectProcessor() {
    // Bits as in the Intel Architecture Software Developer's Manual, volume 2, CPUID, and volume 1,
    // chapter 13.
    constexpr std::uint32_t kOsUsesXsave = 1U << 27;
    constexpr std::uint32_t kYmmSaved = 0x06, kZmmSaved = 0xE6;
    constexpr std::uint32_t kAvx2 = 1U << 5;
    constexpr std::uint32_t kAvx512FBwVl = 1U << 16 | 1U << 30 | 1U << 31;
    constexpr std::uint32_t kVbmiGfni = 1U << 1 | 1U << 8;

    ProcessorFeatures features;
    if (!HasAll(Identify(1).c, kOsUsesXsave))
        return features;
    const std::uint32_t saved = SavedRegisterSets();
    const Registers extended = Identify(7);
    features.avx2 = HasAll(saved, kYmmSaved) && HasAll(extended.b, kAvx2);
    features.avx512 = features.avx2 && HasAll(saved, kZmmSaved) && HasAll(extended.b, kAvx512FBwVl) &&
                      HasAll(extended.c, kVbmiGfni);
    return features;
}

#else

ProcessorFeatures DetectProcessor() {
    return {};
}

#endif

} // namespace quilla
