#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// What Argon2's memory is made of: 1 KiB, seen as 8 rows of 8 pieces of two words each.
struct Argon2Block {
    alignas(64) std::uint64_t words[128];
};
static_assert(sizeof(Argon2Block) == 1024);

/// One implementation of Argon2's compression function (RFC 9106, section 3.5) for one kind of processor. All
/// give the same bytes.
struct Argon2Kernel {
    const char* name;
    bool (*isSupported)(); ///< whether this processor and its system can run it

    /// next = G(previous, reference), added (XOR) to what the block held when addToNext says so.
    void (*fill)(Argon2Block& next, const Argon2Block& previous, const Argon2Block& reference,
                 bool addToNext);
};

extern const Argon2Kernel kArgon2Portable;
#if defined(__x86_64__)
extern const Argon2Kernel kArgon2Avx2;
extern const Argon2Kernel kArgon2Avx512;
#endif

/// Every kernel of this build, the best first.
[[nodiscard]] std::span<const Argon2Kernel* const> AllArgon2Kernels();

} // namespace quilla
