#include "platform/processor.h"
#include "volume/argon2_rounds.h"

#include <immintrin.h>

namespace quilla {

namespace {

/// Two rows or columns at once. Rotations by whole bytes are byte shuffles.
struct Avx2 {
    using Vector = std::uint64_t __attribute__((vector_size(32)));

    QUILLA_INLINE static Vector MultiplyLow(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm256_mul_epu32(reinterpret_cast<__m256i>(x), reinterpret_cast<__m256i>(y)));
    }
    template <int bits>
    QUILLA_INLINE static Vector RotateRight(Vector x) {
        if constexpr (bits % 8 != 0)
            return x >> bits | x << (64 - bits);
        constexpr long long kFirst = ByteOrder(bits / 8);
        constexpr long long kSecond = kFirst + 0x0808080808080808;
        const __m256i order = _mm256_setr_epi64x(kFirst, kSecond, kFirst, kSecond);
        return reinterpret_cast<Vector>(_mm256_shuffle_epi8(reinterpret_cast<__m256i>(x), order));
    }
    QUILLA_INLINE static Vector Join(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm256_shuffle_pd(reinterpret_cast<__m256d>(x), reinterpret_cast<__m256d>(y), 0b0101));
    }
    QUILLA_INLINE static void RowsToPieces(Vector (&v)[8]) {
        const Vector rows[8] = {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]};
        for (int i = 0; i < 4; ++i)
            SwapHalves(v[2 * i], v[2 * i + 1], rows[i], rows[i + 4]);
    }
    QUILLA_INLINE static void PiecesToRows(Vector (&v)[8]) {
        const Vector pieces[8] = {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]};
        for (int i = 0; i < 4; ++i)
            SwapHalves(v[i], v[i + 4], pieces[2 * i], pieces[2 * i + 1]);
    }

  private:
    static constexpr long long ByteOrder(int shift) {
        long long order = 0;
        for (int i = 0; i < 8; ++i)
            order |= static_cast<long long>((i + shift) % 8) << (8 * i);
        return order;
    }
    /// The first halves of x and y together, and the second ones.
    QUILLA_INLINE static void SwapHalves(Vector& first, Vector& second, Vector x, Vector y) {
        first = Half<0x20>(x, y);
        second = Half<0x31>(x, y);
    }
    template <int which>
    QUILLA_INLINE static Vector Half(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm256_permute2x128_si256(reinterpret_cast<__m256i>(x), reinterpret_cast<__m256i>(y), which));
    }
};

void Fill(Argon2Block& next, const Argon2Block& previous, const Argon2Block& reference, bool addToNext) {
    FillBlock<Avx2>(next, previous, reference, addToNext);
}

} // namespace

const Argon2Kernel kArgon2Avx2 = {.name = "AVX2", .isSupported = HasAvx2, .fill = Fill};

} // namespace quilla
