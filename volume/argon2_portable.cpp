#include "volume/argon2_rounds.h"

#include <bit>

namespace quilla {

namespace {

/// Two words, of which the compiler makes what the processor has.
struct Words {
    using Vector = std::uint64_t __attribute__((vector_size(16)));

    static Vector MultiplyLow(Vector x, Vector y) {
#if defined(__SSE2__)
        using Halves = int __attribute__((vector_size(16)));
        return reinterpret_cast<Vector>(
            __builtin_ia32_pmuludq128(reinterpret_cast<Halves>(x), reinterpret_cast<Halves>(y)));
#else
        return (x & 0xFFFFFFFF) * (y & 0xFFFFFFFF);
#endif
    }
    template <int bits>
    static Vector RotateRight(Vector x) {
        return x >> bits | x << (64 - bits);
    }
    static Vector Join(Vector x, Vector y) {
        return Vector{x[1], y[0]};
    }
    static void RowsToPieces(Vector (&)[8]) {} // a row is its pieces
    static void PiecesToRows(Vector (&)[8]) {}
};

bool AnyProcessor() {
    return true;
}

void Fill(Argon2Block& next, const Argon2Block& previous, const Argon2Block& reference, bool addToNext) {
    FillBlock<Words>(next, previous, reference, addToNext);
}

} // namespace

const Argon2Kernel kArgon2Portable = {.name = "portable", .isSupported = AnyProcessor, .fill = Fill};

} // namespace quilla
