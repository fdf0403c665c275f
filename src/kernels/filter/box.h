// Row kernels of the box filter and the window sums: running column sums
// over the mask's rows, then window sums of those along the row, then the
// mean (or the plain sum) of each window. Column sums of integer samples are
// exact (16-bit lanes for 8u data while every sum fits, else 32-bit, or
// double precision past that); float data sums in double precision.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels::box {

// sum[x] = row[x] (set) or sum[x] += row[x] (add), x < n samples.
template <class T, class A>
void column_set(const T* row, int n, A* sum);
template <class T, class A>
void column_add(const T* row, int n, A* sum);
// sum[x] += enter[x] - leave[x] (the row that enters the window below and
// the one that leaves it above).
template <class T, class A>
void column_update(const T* enter, const T* leave, int n, A* sum);

// Window sums along one 8u row into 16 bits (width * 255 <= 65535):
// out[x] = row[x] + row[x + nc] + ... + row[x + (width-1) nc], x < n;
// `scratch` holds 2 (n + width * nc) + 48 elements.
void row_windows(const Rok8u* row, int n, int nc, int width, std::uint16_t* scratch, std::uint16_t* out);

// Column sums of the 16-bit window sums of the rows (the rows-first form of
// the 8u box): 32-bit sums kept, in blocks of 16 samples, in the order of
// the in-lane 16-bit unpacks (samples 0-3 and 8-11, then 4-7 and 12-15),
// the samples past the last whole block in order. vertical_add sets
// (first) or adds one row; vertical_step adds `fresh`, takes `stale` out
// and writes the means of the sums (see Mean) to dst.
struct Mean;
void vertical_add(const std::uint16_t* row, int n, bool first, std::int32_t* sums);
void vertical_step(const std::uint16_t* fresh, const std::uint16_t* stale, int n, const Mean& m, std::int32_t* sums,
                   Rok8u* dst);

// One-channel 8u rows first, for windows of at most kSplitWidest pixels
// over rows of n >= 32 samples. Each block of 32 samples is held split: the
// 16 window sums of its even samples, then the 16 of its odd ones; a row
// that ends inside a block has one more, of its last 32 samples, after the
// whole ones (split_length(n) sums in all). Pair sums of adjacent bytes (one
// multiply-add of a shifted load) build the split sums without any shuffle,
// and the split means interleave back into bytes by shifts. (From about 64
// pixels on, windows measured as fast as running sums along the row.)
// From kSplitRunningFrom pixels on, the windows of the whole blocks come
// from running sums of the row's pairs (`scratch` holds n / 2 + width / 2 +
// 48 words), at a cost that no longer grows with the width.
constexpr int kSplitWidest = 56;
constexpr int kSplitRunningFrom = 24;
int split_length(int n);
void row_windows_split(const Rok8u* row, int n, int width, std::uint16_t* out, std::uint16_t* scratch);
// Column sums of split window sums in 16 bits (every box sum fits 16 bits
// and `Mean` takes the high half of a 16-bit product: split_high; or, masks
// of at most kSplitRoundWidest pixels whose box sums stay below 2^15 and
// whose multiplier is a whole number at a shift of 15: split_round, the
// mean one rounding multiply), or in 32 bits (each block of 32 as four
// blocks of 8: the even samples of the even half, its odd samples, then the
// same of the odd half; held as mult * S + 2^(shift-1), for means that are
// not `wide`). The 32-bit split_add sets (first) or adds one row;
// split_step adds `fresh`, takes `stale` out and writes means (past the
// cache with `stream` where dst lies on 32 bytes; the caller then ends its
// rows with a store fence).
struct Mean;
bool split_high(const Mean& m);
constexpr int kSplitRoundWidest = 32;
bool split_round(const Mean& m, long long area, int width);
void split_add(const std::uint16_t* row, int n, bool first, const Mean& m, std::int32_t* sums);
// The 16-bit sums run down the columns: each row of the ring holds the
// running sum (modulo 2^16) of the split window sums of every row so far,
// and a box sum is the difference of two of them, `mh` rows apart (exact,
// as it fits 16 bits), so a row costs one load and one store of sums fewer
// than sums kept apart from the window rows. split_running: running =
// above + windows. split_row: row_windows_split of an entering row, its
// running sums (above + windows into `running`) and the means of running -
// left, in one pass over each block.
void split_running(const std::uint16_t* windows, const std::uint16_t* above, int n, std::uint16_t* running);
void split_row(const Rok8u* row, int n, int width, const std::uint16_t* above, const std::uint16_t* left,
               std::uint16_t* running, const Mean& m, Rok8u* dst, bool stream);
void split_step(const std::uint16_t* fresh, const std::uint16_t* stale, int n, const Mean& m, std::int32_t* sums,
                Rok8u* dst, bool stream);
// Two rows of split_step with 32-bit sums in one pass (the sums loaded and
// stored once).
void split_step2(const std::uint16_t* fresh1, const std::uint16_t* stale1, const std::uint16_t* fresh2,
                 const std::uint16_t* stale2, int n, const Mean& m, std::int32_t* sums, Rok8u* dst1, Rok8u* dst2,
                 bool stream);

// The box mean in fixed point: (mult * S + 2^(shift-1)) >> shift, floored.
// `wide` when mult * |S| + 2^(shift-1) may reach 2^31 (the products then
// take 64-bit lanes).
struct Mean {
    std::int64_t mult;
    int shift;
    bool wide;
};

// Window sums S(x) = sums[x] + sums[x + nc] + ... + sums[x + (width-1) nc]
// for x < n samples (sums holds n + (width-1) nc samples), finished into
// dst:
//   mean: integer sums through `Mean`; double sums of integer samples to
//         the nearest integer of S / area with halves up, of float samples
//         as S / area rounded once to the destination precision;
//   window: S converted to single precision.
// `prefix` is scratch of n + width * nc + 8 elements of the sums' type (it
// holds their running prefix when the window is too wide to add directly).
// The 16-bit sums of 8u data may `stream` their means past the cache (the
// caller then ends the rows with a store fence); dst must not be scratch
// that the sums or the prefix share.
void box_mean(const std::uint16_t* sums, int n, int nc, int width, Mean m, std::uint16_t* prefix, Rok8u* dst,
              bool stream);
void box_mean(const std::int32_t* sums, int n, int nc, int width, Mean m, std::int32_t* prefix, Rok8u* dst);
void box_mean(const std::int32_t* sums, int n, int nc, int width, Mean m, std::int32_t* prefix, Rok16s* dst);
void box_mean(const std::int32_t* sums, int n, int nc, int width, Mean m, std::int32_t* prefix, Rok16u* dst);
void box_mean(const double* sums, int n, int nc, int width, double area, double* prefix, Rok8u* dst);
void box_mean(const double* sums, int n, int nc, int width, double area, double* prefix, Rok16s* dst);
void box_mean(const double* sums, int n, int nc, int width, double area, double* prefix, Rok16u* dst);
void box_mean(const double* sums, int n, int nc, int width, double area, double* prefix, Rok32f* dst);
void box_mean(const double* sums, int n, int nc, int width, double area, double* prefix, Rok64f* dst);
void window_sum(const std::int32_t* sums, int n, int nc, int width, std::int32_t* prefix, Rok32f* dst);
void window_sum(const double* sums, int n, int nc, int width, double* prefix, Rok32f* dst);

}  // namespace rok::kernels::box
