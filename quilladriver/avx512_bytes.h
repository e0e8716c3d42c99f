#pragma once

#include "quilladriver/kernels.h"

#include <cstddef>
#include <immintrin.h>

/// What the AVX-512 kernels share: 64 words of 32 bits as bytes and back, and byte tables. For files compiled
/// for AVX-512 VBMI only; everything is inlined, so that no copy is left for other files to meet.
namespace quilla::avx512 {

using Vector = __m512i;

/// 64 words in four registers.
using Words = Vector[4];

/// The same by bytes: one register for each of a word's four, low byte first.
using Bytes = Vector[4];

/// A table of 256 bytes.
using Table = Vector[4];

/// Splits words into their bytes. In each 16 bytes of a register, `order` gathers the bytes of one place in
/// all four words, those of the first place first.
QUILLA_INLINE void SplitBytes(const Words& words, Vector order, Bytes& bytes) {
    const Vector a = _mm512_shuffle_epi8(words[0], order);
    const Vector b = _mm512_shuffle_epi8(words[1], order);
    const Vector c = _mm512_shuffle_epi8(words[2], order);
    const Vector d = _mm512_shuffle_epi8(words[3], order);
    const Vector lowAb = _mm512_unpacklo_epi32(a, b);
    const Vector highAb = _mm512_unpackhi_epi32(a, b);
    const Vector lowCd = _mm512_unpacklo_epi32(c, d);
    const Vector highCd = _mm512_unpackhi_epi32(c, d);
    bytes[0] = _mm512_unpacklo_epi64(lowAb, lowCd);
    bytes[1] = _mm512_unpackhi_epi64(lowAb, lowCd);
    bytes[2] = _mm512_unpacklo_epi64(highAb, highCd);
    bytes[3] = _mm512_unpackhi_epi64(highAb, highCd);
}

/// The reverse of a split in the plain order, which takes byte i of each word to place i.
QUILLA_INLINE void JoinBytes(const Bytes& bytes, Words& words) {
    const Vector low01 = _mm512_unpacklo_epi8(bytes[0], bytes[1]);
    const Vector high01 = _mm512_unpackhi_epi8(bytes[0], bytes[1]);
    const Vector low23 = _mm512_unpacklo_epi8(bytes[2], bytes[3]);
    const Vector high23 = _mm512_unpackhi_epi8(bytes[2], bytes[3]);
    words[0] = _mm512_unpacklo_epi16(low01, low23);
    words[1] = _mm512_unpackhi_epi16(low01, low23);
    words[2] = _mm512_unpacklo_epi16(high01, high23);
    words[3] = _mm512_unpackhi_epi16(high01, high23);
}

/// Looks 64 bytes up in a table, without any address that depends on them.
QUILLA_INLINE Vector LookUp(const Table& table, Vector x) {
    const Vector low = _mm512_permutex2var_epi8(table[0], x, table[1]);
    const Vector high = _mm512_permutex2var_epi8(table[2], x, table[3]);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), low, high);
}

/// To be called at the end of a kernel: tables of the key would stay in registers 16 to 31, which hardly any
/// other code uses. A thread that waits keeps them, and wherever it is interrupted they are laid down in
/// memory.
QUILLA_INLINE void WipeRegisters() {
    _mm256_zeroall(); // 0 to 15
    asm volatile(".irp n, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31\n\t"
                 "vpxorq %%zmm\\n, %%zmm\\n, %%zmm\\n\n\t"
                 ".endr"
                 :
                 :
                 : "xmm16", "xmm17", "xmm18", "xmm19", "xmm20", "xmm21", "xmm22", "xmm23", "xmm24", "xmm25",
                   "xmm26", "xmm27", "xmm28", "xmm29", "xmm30", "xmm31");
}

} // namespace quilla::avx512
