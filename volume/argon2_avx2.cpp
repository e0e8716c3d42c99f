#include "platform/processor.h"
#include "volume/argon2_rounds.h"

#include <immintrin.h>

namespace quilla {

namespace {

/// Two rows or columns at once. Rotations by whole bytes are byte shuffles.
struct Avx2 {
    using Vector = std::uint64_t __attribute__((vector_size(32)));

    QUILLA_ARGON2_INLINE static Vector MultiplyLow(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm256_mul_epu32(reinterpret_cast<__m256i>(x), reinterpret_cast<__m256i>(y)));
    }
    template <int bits>
    QUILLA_ARGON2_INLINE static Vector RotateRight(Vector x) {
        if constexpr (bits % 8 != 0)
            return x >> bits | x << (64 - bits);
        constexpr long long kFirst = ByteOrder(bits / 8);
        constexpr long long kSecond = kFirst + 0x0808080808080808;
        const __m256i order = _mm256_setr_epi64x(kFirst, kSecond, kFirst, kSecond);
        return reinterpret_cast<Vector>(_mm256_shuffle_epi8(reinterpret_cast<__m256i>(x), order));
    }
    QUILLA_ARGON2_INLINE static Vector Join(Vector x, Vector y) {
        return reinterpret_cast<Vector>(
            _mm256_shuffle_pd(reinterpret_cast<__m256d>(x), reinterpret_cast<__m256d>(y), 0b0101));
    }
    QUILLA_ARGON2_INLINE static void TurnRows(Vector (&rows)[8]) {
        // Pieces k and k + 1 of one row and of the other become piece k of both and piece k + 1 of both. The
        // rows' vectors 0 to 3 and 4 to 7 interleave, so that pieces come out in their order.
        const Vector in[8] = {rows[0], rows[4], rows[1], rows[5], rows[2], rows[6], rows[3], rows[7]};
        Vector out[8];
        for (int i = 0; i < 8; i += 2) {
            out[i] = Half<0x20>(in[i], in[i + 1]);
            out[i + 1] = Half<0x31>(in[i], in[i + 1]);
        }
        for (int i = 0; i < 8; ++i)
            rows[i] = out[i];
    }

  private:
    static constexpr long long ByteOrder(int shift) {
        long long order = 0;
        for (int i = 0; i < 8; ++i)
            order |= static_cast<long long>((i + shift) % 8) << (8 * i);
        return order;
    }
    template <int which>
    QUILLA_ARGON2_INLINE static Vector Half(Vector x, Vector y) {
        return reinterpret_cast<Vector>(_mm256_permute2x128_si256(reinterpret_cast<__m256i>(x),
                                                                  reinterpret_cast<__m256i>(y), which));
    }
};

void Fill(Argon2Block& next, const Argon2Block& previous, const Argon2Block& reference, bool addToNext) {
    FillBlock<Avx2>(next, previous, reference, addToNext);
}

} // namespace

const Argon2Kernel kArgon2Avx2 = {.name = "AVX2", .isSupported = HasAvx2, .fill = Fill};

} // namespace quilla
