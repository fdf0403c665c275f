// Row kernels of the interpolating transforms. A separable resize runs a
// horizontal pass (one source row to a row of W intermediates at the output
// columns) and a vertical pass (a few intermediate rows to one output row);
// W is float for every sample type but 64f, which works in double. Every
// kernel's scalar path is the statement of its rule and the vector body
// computes the same operations in the same order, so both give the same
// bits. Instantiated for Rok8u, Rok16u, Rok16s, Rok32f (W = float) and
// Rok64f (W = double).
#pragma once

#include <cstdint>

namespace rok::kernels {

// The taps of one output axis, as the horizontal pass reads them.
template <class W>
struct ColumnTaps {
    const std::int32_t* index;  // per column: i * nc, i = floor(position) (nearest: the chosen pixel)
    const W* frac;              // bilinear: t per column
    const W* weights;           // cubic and Lanczos: block b of 8 columns holds tap k of column 8b + j at [b*8*taps + k*8 + j]
    int taps, first;            // tap count and offset of the first tap from i
    int nc;                     // samples per pixel (4 for AC4)
    int lo, hi;                 // source columns [lo, hi); taps outside read the nearest end
    int innerBegin, innerEnd;   // columns whose reads lie inside [lo, hi) without clamping
};

// The source positions ((origin + k) + 0.5) * inv + off - 0.5 of a resize
// axis, four at a time in double by those operations in that order; NaN
// held as 0 and the rest to +-2^52, then whole[k] = floor held to [low,
// high] (whole numbers within int32) and frac[k] = position - floor, as W.
// Returns the positions done (a multiple of 4); the caller ends the row.
int split_positions(int origin, double inv, double off, int count, double low, double high, std::int32_t* whole,
                    float* frac);
int split_positions(int origin, double inv, double off, int count, double low, double high, std::int32_t* whole,
                    double* frac);

// Samples that the vector body of the horizontal pass reads past the last
// tap of a column of `sampleBytes`-byte samples; the table builder narrows
// the inner range by it.
int hpass_overread(int taps, int nc, int sampleBytes);

// Horizontal pass over output columns [begin, end): for each column and
// channel c < nc, acc = w0 * s[tap 0]; acc = acc + w_k * s[tap k] for the
// following taps (bilinear: a + (b - a) * t), stored in
// out[(x - begin) * nc + c].
template <class T, class W>
void hpass(const T* srow, const ColumnTaps<W>& taps, int begin, int end, W* out);

// Vertical pass over n samples: out = w0 * r0 + w1 * r1 + ... in that order
// (taps rows), rounded to nearest (ties to even) and saturated for integer T.
template <class T, class W>
void vpass(const W* const* rows, const W* w, int taps, int n, T* out);

// Bilinear vertical pass: out = r0 + (r1 - r0) * t, then as vpass.
template <class T, class W>
void vpass_linear(const W* r0, const W* r1, W t, int n, T* out);

// n intermediates to samples: rounded to nearest (ties to even) and
// saturated for integer T, copied for float T.
template <class T, class W>
void store_row(const W* v, int n, T* out);

// Edge pixels of the smooth and sub-pixel modes: for `pixels` pixels,
// channel c < written of pixel p (pixel stride `stride` samples) becomes
// v * cov[p] + old * (1 - cov[p]) (smooth) or v * cov[p] (sub-pixel), then
// as store_row.
template <class T, class W>
void blend_row(const W* v, const float* cov, int pixels, int written, int stride, bool smooth, T* dst);

// Nearest neighbour: pixel x of dst is the pixel at sample offset index[x]
// of srow; `written` samples of each pixel of `nc` are copied (3 of 4 for
// AC4).
template <class T>
void nearest_row(const T* srow, const std::int32_t* index, int count, int nc, int written, T* dst);

// acc = w * s (first) or acc + w * s over n samples.
template <class S, class W>
void accumulate_row(const S* src, W w, int n, bool first, W* acc);

// Super-sampling across a row: walks the accumulated source columns
// 0 .. cols-1 (nc samples each) and closes an output pixel at every
// boundary. split[c] > 0: column c lies in the current output pixel with
// that weight; split[c] < 0: the current pixel ends inside (or at the end
// of) column c, which gives it -split[c] and the remainder 1 + split[c] to
// the next pixel. leftExtra and rightExtra are the weights of the area
// beyond the source rectangle, replicated from the first and last column
// into the first and last output pixels. Each closed sum is multiplied by
// `area`; `count` output pixels are written to out.
template <class W>
void super_columns(const W* acc, int cols, const W* split, W leftExtra, W rightExtra, W area, int nc, int count,
                   W* out);

// Variable-tap horizontal pass of the anti-aliasing engine: column x reads
// count[x] consecutive source pixels from pixel start[x] with weights
// weights[offset[x] ...], summed in order.
template <class T, class W>
void hpass_general(const T* srow, const std::int32_t* start, const std::int32_t* count,
                   const std::int32_t* offset, const W* weights, int columns, int nc, W* out);

// Exact 2:1 reductions on pixel boundaries: pixel x, channel c of out from
// samples (2x, 2x + 1) of rows r0 and r1. Integer types: their mean rounded
// to nearest with ties to even, which the bilinear rule and super-sampling
// both give exactly (computed in integers). Float types, by each rule's own
// operations: bilinear h = a + (b - a) * 0.5 in each row, then
// h0 + (h1 - h0) * 0.5; super-sampling ((a0 + a1) + (b0 + b1)) * 0.25,
// a and b the two columns, 0 and 1 the two rows. `ahead` (bytes, 0 for
// none): where the rows of the next call lie from r0 and r1, prefetched
// along the way.
enum class Halving { Linear, Super };
template <class T>
void halve_2x2(const T* r0, const T* r1, int count, int nc, Halving rule, T* out, std::ptrdiff_t ahead = 0);

// Nearest neighbour at half resolution: pixel x of dst is pixel 2x of src.
template <class T>
void nearest_halves(const T* src, int count, int nc, T* dst);

}  // namespace rok::kernels
