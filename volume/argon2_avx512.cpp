#include "platform/processor.h"
#include "volume/argon2_rounds.h"

#include <immintrin.h>

namespace quilla {

namespace {

/// Four rows or columns at once.
struct Avx512 {
    using Vector = std::uint64_t __attribute__((vector_size(64)));

    QUILLA_INLINE static Vector MultiplyLow(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm512_mul_epu32(reinterpret_cast<__m512i>(x), reinterpret_cast<__m512i>(y)));
    }
    template <int bits>
    QUILLA_INLINE static Vector RotateRight(Vector x) {
        return reinterpret_cast<Vector>(_mm512_ror_epi64(reinterpret_cast<__m512i>(x), bits));
    }
    QUILLA_INLINE static Vector Join(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm512_shuffle_pd(reinterpret_cast<__m512d>(x), reinterpret_cast<__m512d>(y), 0b01010101));
    }
    QUILLA_INLINE static void RowsToPieces(Vector (&v)[8]) {
        Vector left[4] = {v[0], v[2], v[4], v[6]};
        Vector right[4] = {v[1], v[3], v[5], v[7]};
        Transpose(left);
        Transpose(right);
        for (int i = 0; i < 4; ++i) {
            v[i] = left[i];
            v[i + 4] = right[i];
        }
    }
    QUILLA_INLINE static void PiecesToRows(Vector (&v)[8]) {
        Vector left[4] = {v[0], v[1], v[2], v[3]};
        Vector right[4] = {v[4], v[5], v[6], v[7]};
        Transpose(left);
        Transpose(right);
        for (int i = 0; i < 4; ++i) {
            v[2 * i] = left[i];
            v[2 * i + 1] = right[i];
        }
    }

  private:
    template <int which>
    QUILLA_INLINE static Vector Select(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm512_shuffle_i64x2(reinterpret_cast<__m512i>(x), reinterpret_cast<__m512i>(y), which));
    }
    /// Turns a square of four by four pieces.
    QUILLA_INLINE static void Transpose(Vector (&v)[4]) {
        constexpr int kFirstTwo = 0x44, kLastTwo = 0xEE, kEven = 0x88, kOdd = 0xDD;
        const Vector a = Select<kFirstTwo>(v[0], v[1]), b = Select<kFirstTwo>(v[2], v[3]);
        const Vector c = Select<kLastTwo>(v[0], v[1]), d = Select<kLastTwo>(v[2], v[3]);
        v[0] = Select<kEven>(a, b);
        v[1] = Select<kOdd>(a, b);
        v[2] = Select<kEven>(c, d);
        v[3] = Select<kOdd>(c, d);
    }
};

void Fill(Argon2Block& next, const Argon2Block& previous, const Argon2Block& reference, bool addToNext) {
    FillBlock<Avx512>(next, previous, reference, addToNext);
}

} // namespace

const Argon2Kernel kArgon2Avx512 = {.name = "AVX-512", .isSupported = HasAvx512, .fill = Fill};

} // namespace quilla
