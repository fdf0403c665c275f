// Reduction kernels of the statistics families. Each walks a whole ROI: h
// rows of m samples (width x channels, interleaved) at `step` bytes, any
// sign. Sample i of a row (counted from the row's first sample) belongs to
// channel i mod nc (nc is 1, 3 or 4; AC4 passes 4 and ignores channel 3).
// Results are added into, or combined with, what the caller's per-channel
// arrays already hold, so a caller starts them at 0 or at a neutral value.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// Exact integer totals per channel: out[c] += sum of x, |x| or x*x.
void sum(const Rok8u* p, int step, std::size_t m, int h, int nc, std::int64_t* out);
void sum(const Rok16s* p, int step, std::size_t m, int h, int nc, std::int64_t* out);
void sum(const Rok16u* p, int step, std::size_t m, int h, int nc, std::int64_t* out);
void abs_sum(const Rok16s* p, int step, std::size_t m, int h, int nc, std::int64_t* out);
void sq_sum(const Rok8u* p, int step, std::size_t m, int h, int nc, std::int64_t* out);
void sq_sum(const Rok16s* p, int step, std::size_t m, int h, int nc, std::int64_t* out);
void sq_sum(const Rok16u* p, int step, std::size_t m, int h, int nc, std::int64_t* out);

// Exact integer totals of |a - b| and (a - b)^2 per channel.
void diff_abs_sum(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void diff_abs_sum(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void diff_abs_sum(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void diff_sq_sum(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void diff_sq_sum(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void diff_sq_sum(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);

// Exact integer totals of a * b per channel.
void dot(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void dot(const Rok8s* a, int as, const Rok8s* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void dot(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);
void dot(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc, std::int64_t* out);

// What the float reductions add up: x, |x| or x*x of each sample, or of the
// difference a - b when a second source is given.
enum class FloatTerm { Value, Abs, Square };

// Single-precision partial sums: sample i of every row is added to part[i mod
// 48] in single precision (a square is fused into that addition: one
// rounding); a difference is formed in single precision.
constexpr int kFloatPartials = 48;
void float_partials(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, FloatTerm term,
                    float* part);

// Double-precision partial sums: sample i of every row, converted to double,
// is added to part[i mod (8 nc)], so each channel has eight partials, fed by
// pixel x mod 8 (a square or a product is fused into that addition; a
// difference is formed in double precision). b may be null for one source.
void double_partials(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, int nc,
                     FloatTerm term, double* part);
// The products of 32-bit data go the same way, into dot_partials(nc)
// partials per channel (sixteen for one channel keep more additions in
// flight; pixel x feeds partial x mod that count).
constexpr int dot_partials(int nc) { return nc == 1 ? 16 : 8; }
void double_dot(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, int nc, double* part);
void double_dot(const Rok32s* a, int as, const Rok32s* b, int bs, std::size_t m, int h, int nc, double* part);
void double_dot(const Rok32u* a, int as, const Rok32u* b, int bs, std::size_t m, int h, int nc, double* part);

// out[c] = max(out[c], largest |x|) per channel; |x| of signed types is the
// unsigned magnitude (32768 for -32768).
void max_abs(const Rok8u* p, int step, std::size_t m, int h, int nc, Rok8u* out);
void max_abs(const Rok16s* p, int step, std::size_t m, int h, int nc, Rok16u* out);
void max_abs(const Rok16u* p, int step, std::size_t m, int h, int nc, Rok16u* out);
void max_abs(const Rok32s* p, int step, std::size_t m, int h, int nc, Rok32u* out);
void max_abs(const Rok32f* p, int step, std::size_t m, int h, int nc, Rok32f* out);

// out[c] = max(out[c], largest |a - b|) per channel.
void diff_max_abs(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, Rok8u* out);
void diff_max_abs(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc, Rok16u* out);
void diff_max_abs(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc, Rok16u* out);
void diff_max_abs(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, int nc, Rok32f* out);

// Per-channel extremes combined into mn[c] and mx[c]. A NaN sample never
// replaces a number.
void min_max(const Rok8u* p, int step, std::size_t m, int h, int nc, Rok8u* mn, Rok8u* mx);
void min_max(const Rok16s* p, int step, std::size_t m, int h, int nc, Rok16s* mn, Rok16s* mx);
void min_max(const Rok16u* p, int step, std::size_t m, int h, int nc, Rok16u* mn, Rok16u* mx);
void min_max(const Rok32f* p, int step, std::size_t m, int h, int nc, Rok32f* mn, Rok32f* mx);

// Index searches, rows top to bottom: a row whose smallest (largest) sample
// of channel c is strictly better than best[c] sets best[c] and best_row[c]
// = y. The walk ends once every channel's best is the type's extreme
// (infinities for 32f). The caller starts best[] at the opposite extreme.
void min_rows(const Rok8u* p, int step, std::size_t m, int h, int nc, Rok8u* best, int* best_row);
void min_rows(const Rok16s* p, int step, std::size_t m, int h, int nc, Rok16s* best, int* best_row);
void min_rows(const Rok16u* p, int step, std::size_t m, int h, int nc, Rok16u* best, int* best_row);
void min_rows(const Rok32f* p, int step, std::size_t m, int h, int nc, Rok32f* best, int* best_row);
void max_rows(const Rok8u* p, int step, std::size_t m, int h, int nc, Rok8u* best, int* best_row);
void max_rows(const Rok16s* p, int step, std::size_t m, int h, int nc, Rok16s* best, int* best_row);
void max_rows(const Rok16u* p, int step, std::size_t m, int h, int nc, Rok16u* best, int* best_row);
void max_rows(const Rok32f* p, int step, std::size_t m, int h, int nc, Rok32f* best, int* best_row);

// d[i] = min(s[i], d[i]) or max(s[i], d[i]) over n samples.
void min_every(const Rok8u* s, Rok8u* d, std::size_t n);
void min_every(const Rok16s* s, Rok16s* d, std::size_t n);
void min_every(const Rok16u* s, Rok16u* d, std::size_t n);
void min_every(const Rok32f* s, Rok32f* d, std::size_t n);
void max_every(const Rok8u* s, Rok8u* d, std::size_t n);
void max_every(const Rok16s* s, Rok16s* d, std::size_t n);
void max_every(const Rok16u* s, Rok16u* d, std::size_t n);
void max_every(const Rok32f* s, Rok32f* d, std::size_t n);

// out[c] += number of samples of channel c with lo[c] <= x <= hi[c].
void count_in_range(const Rok8u* p, int step, std::size_t m, int h, int nc, const Rok8u* lo, const Rok8u* hi,
                    std::int64_t* out);
void count_in_range(const Rok32f* p, int step, std::size_t m, int h, int nc, const Rok32f* lo, const Rok32f* hi,
                    std::int64_t* out);

}  // namespace rok::kernels
