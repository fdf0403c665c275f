// The 8x8 block cosine transforms. The float forms (and the A10 inverse) run
// one separable core: out = A * X * B for a block X held in floats, with A
// and B chosen by the transform (forward: A = C, B = C^T; inverse: A = C^T,
// B = C) and the overall factor folded into A. The 16s forms follow a
// fixed-point rule in 16- and 32-bit integer lanes, eight rows at once.
#pragma once

#include <cstddef>

#include "frame/generated/roki_types.h"

namespace rok::kernels::dct {

enum class Block8 {
    Fwd32f,    // orthonormal, 1/sqrt(2) as the float 0.70710677
    Inv32f,
    InvExact,  // the 16s inverse from cosines rounded to float (the A10 form)
    Fwd16s,    // the 16s fixed-point rule (see block_16s)
    Inv16s,
};

// Float blocks; steps in bytes. src may equal dst.
void block_32f(const Rok32f* src, std::ptrdiff_t srcStep, Rok32f* dst, std::ptrdiff_t dstStep, Block8 kind);

// 16-bit blocks. Fwd16s and Inv16s follow the fixed-point rule: with K the
// 14-bit constants (K[u][x] = 16384 for u = 0, else sqrt(2) cos((2x+1)u pi/16)
// in 14 bits), the rows pass first and the columns second; each output of a
// pass takes its eight products with K in pairs (exact 32-bit sums of two
// 16x16-bit products), shifts each pair sum right by 2 (arithmetic), adds the
// four, rounds (adds half of the remaining divisor and shifts right: by 12 in
// the row pass, 15 in the column pass, 2^-14 and 2^-17 in all) and packs to
// 16 bits with signed saturation. The inverse uses K transposed. InvExact
// rounds a float transform to nearest (ties to even) and saturates.
void block_16s(const Rok16s* src, std::ptrdiff_t srcStep, Rok16s* dst, std::ptrdiff_t dstStep, Block8 kind);

// Forward of 8-bit samples widened to 16 bits with addVal added (16-bit,
// wrapping) into 64 contiguous coefficients.
void fwd_8u16s(const Rok8u* src, std::ptrdiff_t srcStep, Rok16s* dst, Rok16s addVal);

// Inverse to 16 bits (rounded, saturated), addVal added (16-bit, wrapping),
// clamped to [lo, hi] (hi wins when lo > hi) and stored as 8 bits.
void inv_16s8u(const Rok16s* src, Rok8u* dst, std::ptrdiff_t dstStep, Rok16s addVal, Rok8u lo, Rok8u hi);

// Full 8x8 inverse of the coefficients in the top-left n x n corner (n = 2
// or 4); the other 64 - n*n coefficients are not read.
void inv_corner_16s(const Rok16s* src, Rok16s* dst, int n);

// The n x n orthonormal inverse (n = 2 or 4) of the top-left n x n
// coefficients scaled by n/8, so that a flat 8x8 block of value c gives a
// flat n x n block of value c: n*n contiguous results.
void inv_reduced_16s(const Rok16s* src, Rok16s* dst, int n);

// The 64-entry zigzag tables: raster position of the k-th zigzag
// coefficient, and zigzag number of raster position p.
extern const unsigned char kZigzagRaster[64];
extern const unsigned char kZigzagNumber[64];

}  // namespace rok::kernels::dct
