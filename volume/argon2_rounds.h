#pragma once

#include "platform/processor.h"
#include "volume/argon2_block.h"

#include <cstdint>

// Argon2's compression function over vectors of any width (RFC 9106, sections 3.5 and 3.6). A vector holds
// one piece, that is two neighbouring words, of each of 1, 2 or 4 rows or columns, which are worked on at
// once. Everything is inlined, see QUILLA_INLINE.
//
// Lanes names a processor's operations:
//   Vector                     with the operators +, ^ and [] of the compiler's vectors
//   MultiplyLow(x, y)          product of the lower halves of each word
//   RotateRight<n>(x)
//   Join(x, y)                 of each piece of x the second word, then the first word of y's
//   RowsToPieces(v)            eight vectors of rows as they lie in memory into eight pieces of each row
//   PiecesToRows(v)            back again

namespace quilla {

template <typename Lanes, typename Vector>
QUILLA_INLINE Vector MultiplyAdd(Vector x, Vector y) {
    const Vector product = Lanes::MultiplyLow(x, y);
    return x + y + product + product;
}

/// GB for two quads of words at once, whose steps the processor can do side by side.
template <typename Lanes, typename Vector>
QUILLA_INLINE void MixQuads(Vector (&a)[2], Vector (&b)[2], Vector (&c)[2], Vector (&d)[2]) {
    for (int i = 0; i < 2; ++i) {
        a[i] = MultiplyAdd<Lanes>(a[i], b[i]);
        d[i] = Lanes::template RotateRight<32>(d[i] ^ a[i]);
        c[i] = MultiplyAdd<Lanes>(c[i], d[i]);
        b[i] = Lanes::template RotateRight<24>(b[i] ^ c[i]);
        a[i] = MultiplyAdd<Lanes>(a[i], b[i]);
        d[i] = Lanes::template RotateRight<16>(d[i] ^ a[i]);
        c[i] = MultiplyAdd<Lanes>(c[i], d[i]);
        b[i] = Lanes::template RotateRight<63>(b[i] ^ c[i]);
    }
}

/// P on eight pieces: the columns, then the diagonals of a square of 4 by 4 words.
template <typename Lanes, typename Vector>
QUILLA_INLINE void Permute(Vector (&v)[8]) {
    Vector a[2] = {v[0], v[1]}, b[2] = {v[2], v[3]}, c[2] = {v[4], v[5]}, d[2] = {v[6], v[7]};
    MixQuads<Lanes>(a, b, c, d);
    Vector turnedB[2] = {Lanes::Join(b[0], b[1]), Lanes::Join(b[1], b[0])};
    Vector turnedC[2] = {c[1], c[0]};
    Vector turnedD[2] = {Lanes::Join(d[1], d[0]), Lanes::Join(d[0], d[1])};
    MixQuads<Lanes>(a, turnedB, turnedC, turnedD);
    v[0] = a[0];
    v[1] = a[1];
    v[2] = Lanes::Join(turnedB[1], turnedB[0]);
    v[3] = Lanes::Join(turnedB[0], turnedB[1]);
    v[4] = turnedC[1];
    v[5] = turnedC[0];
    v[6] = Lanes::Join(turnedD[0], turnedD[1]);
    v[7] = Lanes::Join(turnedD[1], turnedD[0]);
}

/// G: the rows, then the columns.
template <typename Lanes>
QUILLA_INLINE void FillBlock(Argon2Block& next, const Argon2Block& previous, const Argon2Block& reference,
                             bool addToNext) {
    using Vector = typename Lanes::Vector;
    constexpr int kVectors = sizeof(Argon2Block) / sizeof(Vector);
    constexpr int kRow = kVectors / 8; // vectors in a row of the block
    auto* const out = reinterpret_cast<Vector*>(next.words);
    const auto* const x = reinterpret_cast<const Vector*>(previous.words);
    const auto* const y = reinterpret_cast<const Vector*>(reference.words);
    Vector sum[kVectors];
    Vector state[kVectors];
    for (int i = 0; i < kVectors; ++i)
        sum[i] = state[i] = x[i] ^ y[i];
    if (addToNext)
        for (int i = 0; i < kVectors; ++i)
            sum[i] ^= out[i];
    for (int i = 0; i < kVectors; i += 8) {
        Vector(&rows)[8] = *reinterpret_cast<Vector(*)[8]>(state + i);
        Lanes::RowsToPieces(rows);
        Permute<Lanes>(rows);
        Lanes::PiecesToRows(rows);
    }
    for (int column = 0; column < kRow; ++column) {
        Vector pieces[8];
        for (int row = 0; row < 8; ++row)
            pieces[row] = state[kRow * row + column];
        Permute<Lanes>(pieces);
        for (int row = 0; row < 8; ++row)
            out[kRow * row + column] = pieces[row] ^ sum[kRow * row + column];
    }
}

} // namespace quilla
