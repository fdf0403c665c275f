// Tap sums of the general linear filters. A filter is given as `ntaps` taps,
// each a byte offset (from the source pixel under the output) and a
// coefficient, in the order in which the sum is formed: the neighbourhood's
// rows top to bottom, each left to right, against the kernel walked backward.
// For output sample x the kernel forms
//     acc[x] = sum over t of coef[t] * src(base + offs[t])[x]
// starting from 0 and adding the taps in order. Integer sums wrap modulo 2^32
// (the sums are 32-bit by definition); float and double sums are formed with
// separate multiplies and adds, so every lane equals the plain scalar loop.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"
#include "kernels/filter/filter_finish.h"

namespace rok::kernels {

// Two taps per 32-bit word: coefficient 2p in the low half, 2p+1 in the high
// half; an odd last tap holds its coefficient in the low half alone. Every
// coefficient must fit in 16 bits. The result equals the plain int32 sum.
void filter_sum_pairs(const Rok8u* base, const std::ptrdiff_t* offs, const std::int32_t* packed, int ntaps, int n,
                      std::int32_t* acc);

// One-channel 8u data: horizontally adjacent taps in pairs, pair p reading
// the bytes at offs[p] and offs[p] + 1 with the weights (w >> 8 second,
// low byte first) in one byte multiply-add. Every pair's weights keep
// |first| + |second| <= 128 and every sum lies in lowest .. lowest + 65535,
// so 16-bit lanes that wrap hold it exactly; acc gets the 32-bit sums.
void filter_sum_bytes(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs,
                      int lowest, int n, std::int32_t* acc);

// How the byte-pair row kernels finish their 16-bit sums u = sum - lowest
// (0 .. highest - lowest): in 16-bit lanes with v = min(u, hi), where
// byte_pair_finish has checked the form against `rule` for every reachable
// sum (results saturated to 0..255), else `rule` on the 32-bit sum as
// filter_finish does.
//     Multiply: ((v + add) * mul >> 16 >> shift) - sub
//     Shift:    ((v + add + (((v >> shift) ^ parity) & odd)) >> shift) - sub
enum class Form16 { None, Multiply, Shift };
struct BytesFinish {
    IntRule rule;
    int lowest = 0;
    Form16 form = Form16::None;
    std::uint16_t hi = 0, add = 0, mul = 0, parity = 0, odd = 0;
    int shift = 0;
    std::int16_t sub = 0;
};
// The finish for sums lowest .. highest under `rule`: the rules of
// divisors of 2 and more (rounded to nearest, away or toward zero) as a
// multiply-high, the power-of-two and saturating rules as a shift, each
// where it holds for every sum, else the rule itself (form None; on 32-bit
// lanes the row kernels know only the rules without a rounding mode).
BytesFinish byte_pair_finish(const IntRule& rule, int lowest, int highest);

// One-channel 8u data and a kernel of a common shape (3x3, 5x5) whose taps
// pair as filter_sum_bytes requires: `rows` destination rows of n >= 32
// samples each. src is the top-left pixel of the first output's
// neighbourhood; weights hold, row after row of the neighbourhood,
// (kw + 1) / 2 pairs starting at columns 0, 2, ... (an odd width's last
// pair starts at kw - 2 with a zero first weight). Each result equals
// filter_sum_bytes then filter_finish. nullptr for other shapes.
using BytePairRowsFn = void (*)(const Rok8u* src, std::ptrdiff_t srcStep, const std::int16_t* weights, int n,
                                Rok8u* dst, std::ptrdiff_t dstStep, int rows, const BytesFinish& finish);
BytePairRowsFn byte_pair_rows_kernel(int kw, int kh);

// One row of the byte pairs of filter_sum_bytes (any kernel shape), n >= 32
// samples, finished into the destination as filter_finish would.
void byte_pair_row(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs, int n,
                   Rok8u* dst, const BytesFinish& finish);

// 8u data of any layout whose taps pair in any order: pair p
// reads offs[p] with the low byte of weights[p] and, for p < full,
// offs[pairs + p] with the high byte (pairs past `full` are lone taps, their
// high byte zero). The weights and sums keep the bounds of
// filter_sum_bytes. One row of n >= 32 samples, finished into the
// destination as filter_finish would.
void byte_pair_any_row(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs,
                       int full, int n, Rok8u* dst, const BytesFinish& finish);

void filter_sum(const Rok8u* base, const std::ptrdiff_t* offs, const std::int32_t* coef, int ntaps, int n,
                std::int32_t* acc);
void filter_sum(const Rok16s* base, const std::ptrdiff_t* offs, const std::int32_t* coef, int ntaps, int n,
                std::int32_t* acc);
void filter_sum(const Rok16u* base, const std::ptrdiff_t* offs, const std::int32_t* coef, int ntaps, int n,
                std::int32_t* acc);

void filter_sum(const Rok8u* base, const std::ptrdiff_t* offs, const float* coef, int ntaps, int n, float* acc);
void filter_sum(const Rok8s* base, const std::ptrdiff_t* offs, const float* coef, int ntaps, int n, float* acc);
void filter_sum(const Rok16s* base, const std::ptrdiff_t* offs, const float* coef, int ntaps, int n, float* acc);
void filter_sum(const Rok16u* base, const std::ptrdiff_t* offs, const float* coef, int ntaps, int n, float* acc);
void filter_sum(const Rok32s* base, const std::ptrdiff_t* offs, const float* coef, int ntaps, int n, float* acc);
// With `stream`, the stores that can be aligned bypass the cache; the
// caller ends the rows with kernels::store_fence().
void filter_sum(const Rok32f* base, const std::ptrdiff_t* offs, const float* coef, int ntaps, int n, float* acc,
                bool stream = false);

// Two destination rows of float data at once: base is the first one's
// source position and base + step the second's; the taps are kh rows of kw
// (offs and coef as filter_sum), and the rows they share are loaded once.
// Each result equals filter_sum's.
void filter_sum_rows2(const Rok32f* base, std::ptrdiff_t step, const std::ptrdiff_t* offs, const float* coef, int kw,
                      int kh, int n, float* out0, float* out1, bool stream = false);

// One-channel float data with a kernel of a common shape (3x3, 5x5, rows
// and columns of 3 to 7 taps): `rows` destination rows of n samples, row y
// at dst + y * dstStep bytes, from the source rows whose top-left tap is
// src + y * srcStep bytes; coef holds the kw * kh taps in summing order.
// Every result equals filter_sum's. With `stream`, the stores that can be
// aligned bypass the cache and the caller ends the rows with
// kernels::store_fence(). shaped_rows_kernel gives nullptr for other shapes.
using ShapedRowsFn = void (*)(const float* src, std::ptrdiff_t srcStep, const float* coef, int n, float* dst,
                              std::ptrdiff_t dstStep, int rows, bool stream);
ShapedRowsFn shaped_rows_kernel(int kw, int kh);

void filter_sum(const Rok64f* base, const std::ptrdiff_t* offs, const double* coef, int ntaps, int n, double* acc);

}  // namespace rok::kernels
