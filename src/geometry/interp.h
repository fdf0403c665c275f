// Interpolation shared by the geometric transforms (resize, warps, remap):
// the interpolation code, the kernels that turn a fractional source position
// into tap weights, the edge rule for taps outside the source rectangle, and
// the per-axis tap tables that the row engines read. Everything here is
// plain arithmetic in double; the weights are stored in the working
// precision W (float for every sample type but 64f, which keeps double).
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <initializer_list>

#include "kernels/geometry/interp_rows.h"

namespace rok::geometry {

enum Method : int {
    kNearest = 1,
    kLinear = 2,
    kCubic = 4,  // Lagrange
    kBSpline = 5,
    kCatmullRom = 6,
    kCubicB05C03 = 7,
    kSuper = 8,
    kLanczos = 16,
};

// An interpolation argument taken apart: the method in the low 29 bits and
// at most one of the three edge flags in the top bits.
struct Interp {
    int method = 0;
    bool smooth = false;     // bit 31
    bool subpixel = false;   // bit 30
    bool antialias = false;  // bit 29
};

constexpr std::uint32_t kMethodMask = 0x1FFFFFFFu;

// False for a method outside the eight, or for two or three flags at once.
bool parse_interp(int code, Interp* out);

// The interpolation argument of the per-pixel transforms (warps, remap): the
// method in the low 31 bits, which must be one of `accepted`, and bit 31 the
// smooth edge. False for any other method.
bool parse_pixel_interp(int code, std::initializer_list<int> accepted, int* method, bool* smooth);

// Extreme factors and shifts can cancel into positions far off the
// rectangle (or into NaN); their taps all read an edge pixel anyway, and
// held to +-2^52 they stay whole numbers that convert to integers.
inline double bounded_position(double v) {
    constexpr double kFar = 4503599627370496.0;
    return v != v ? 0.0 : (v < -kFar ? -kFar : (v > kFar ? kFar : v));
}

// Source positions of the pixel centres along one axis of a resize: for
// region column (or row) k, ((origin + k) + 0.5) * inv + off - 0.5, in
// double and in that order, held by bounded_position.
struct Positions {
    int origin;
    double inv, off;
    double at(int k) const { return bounded_position((double(origin + k) + 0.5) * inv + off - 0.5); }
    Positions from(int k) const { return {origin + k, inv, off}; }
};

// For k = 0 .. count-1: whole[k] = floor(at(k)) held to [lo - 64, hi + 64]
// (taps further out read only edge pixels, by the border routine) and
// frac[k] = at(k) - floor(at(k)) rounded to W; four positions at a time,
// by the same operations as at().
void split_positions(const Positions& p, int count, int lo, int hi, std::int32_t* whole, float* frac);
void split_positions(const Positions& p, int count, int lo, int hi, std::int32_t* whole, double* frac);

// Positions split at a time where the fractions wait on the stack.
constexpr int kSplitChunk = 256;

// Taps per axis and the offset of the first one from i = floor(position).
constexpr int taps_of(int method) {
    return method == kLinear ? 2 : method == kLanczos ? 6 : (method >= kCubic && method <= kCubicB05C03) ? 4 : 1;
}
constexpr int first_tap(int method) { return method == kLanczos ? -2 : (method >= kCubic && method <= kCubicB05C03) ? -1 : 0; }
constexpr bool is_cubic(int method) { return method >= kCubic && method <= kCubicB05C03; }

// Support radius of the anti-aliasing engine: 1 bilinear, 2 cubic, 3 Lanczos.
constexpr int support_radius(int method) { return method == kLinear ? 1 : method == kLanczos ? 3 : 2; }

// The cubic kernels K(a), a = |distance| >= 0, in double: Lagrange (4) and
// the two-parameter cubics 5, 6, 7. Zero from a = 2 on.
double cubic_kernel(int method, double a);

// The Lanczos kernel of radius 3 read from the 301-entry table with linear
// interpolation between entries, for a >= 0 (3 and beyond give the last
// entry's neighbourhood, which is 0).
double lanczos_kernel(double a);

// The table itself: L(i/100) for i = 0..300 as 32-bit floats, then a zero.
const float* lanczos_table();
constexpr int kLanczosEntries = 302;

// Weights of the taps at offsets first_tap .. first_tap + taps - 1 for a
// fraction t in [0, 1]: cubic methods K(|k - t|); Lanczos the table values
// divided by their sum; bilinear 1 - t and t. Evaluated in double.
void tap_weights(int method, double t, double* w);

// Edge replication: a tap index outside [lo, hi) reads the nearest end.
constexpr int clamp_index(long long j, int lo, int hi) { return int(j < lo ? lo : (j >= hi ? hi - 1 : j)); }

// Kernel of the anti-aliasing engine: the method's kernel stretched by
// `scale` >= 1, evaluated at a distance of a source pixels.
double stretched_kernel(int method, double a, double scale);

// Fills the column tap table of the separable row engines for `count`
// output columns at source positions pos(0 .. count-1), ascending, in
// pixels with centres on integers; the source columns are [lo, hi) and a
// pixel holds nc samples. Nearest: index = the chosen pixel (ties to the
// lower one), clamped. Other methods: index = floor(position), frac = the
// fraction as W, weights in blocks of 8 columns, tap-major (see
// ColumnTaps). The inner range is the columns whose reads (taps plus what
// the vector body of this sample type reads past the last one) lie inside.
template <class W>
void build_columns(int method, int count, const Positions& pos, int lo, int hi, int nc, int overread,
                   std::int32_t* index, W* frac, W* weights, kernels::ColumnTaps<W>* out);

// Row taps: index[r] = floor(position) (nearest: the chosen row, clamped),
// frac[r] the fraction as W, weights taps per row, row after row.
template <class W>
void build_rows(int method, int count, const Positions& pos, int lo, int hi, std::int32_t* index, W* frac,
                W* weights);

// The pixel a nearest-neighbour position selects: the closer centre, the
// lower one on a tie.
inline long long nearest_index(double pos) { return (long long)std::ceil(pos - 0.5); }

// --- implementation of the table builders (templates over W and the
// position function) ---

template <class W>
inline W fraction_of(double pos, long long* i) {
    const double f = std::floor(pos);
    *i = (long long)f;
    return W(pos - f);
}

template <class W>
void build_columns(int method, int count, const Positions& pos, int lo, int hi, int nc, int overread,
                   std::int32_t* index, W* frac, W* weights, kernels::ColumnTaps<W>* out) {
    const int taps = taps_of(method), first = first_tap(method);
    int innerBegin, innerEnd;
    if (method == kLinear) {
        split_positions(pos, count, lo, hi, index, frac);
    } else if (method != kNearest) {
        for (int x0 = 0; x0 < count; x0 += kSplitChunk) {
            W fr[kSplitChunk];
            const int n = std::min(kSplitChunk, count - x0);
            split_positions(pos.from(x0), n, lo, hi, index + x0, fr);
            for (int x = x0; x < x0 + n; ++x) {
                double w[6];
                tap_weights(method, double(fr[x - x0]), w);
                W* block = weights + std::size_t(x / 8) * 8 * taps + x % 8;
                for (int k = 0; k < taps; ++k) block[k * 8] = W(w[k]);
            }
        }
    }
    if (method == kNearest) {
        for (int x = 0; x < count; ++x) index[x] = std::int32_t(clamp_index(nearest_index(pos.at(x)), lo, hi) * nc);
        innerBegin = 0;
        innerEnd = count;
    } else {
        // The inner range: the first and the last column whose samples
        // read, from the first tap to the last one plus the vector body's
        // extra samples, lie inside: lo <= i + first and (i + first + taps)
        // * nc + overread <= hi * nc. As bounds on i (held to int32 like
        // i) the test is a loop without branches, which runs on vectors.
        const long long room = ((long long)hi * nc - overread) / nc - (((long long)hi * nc - overread) % nc < 0);
        const int iLow = lo - first;
        const int iHigh = int(std::clamp(room - first - taps, (long long)INT32_MIN, (long long)INT32_MAX));
        int firstIn = count, lastIn = -1;
        for (int x = 0; x < count; ++x) {
            const int i = index[x];
            const bool inside = i >= iLow && i <= iHigh;
            firstIn = inside ? std::min(firstIn, x) : firstIn;
            lastIn = inside ? std::max(lastIn, x) : lastIn;
            index[x] = i * nc;
        }
        innerBegin = lastIn < 0 ? 0 : firstIn;
        innerEnd = lastIn < 0 ? 0 : lastIn + 1;
    }
    out->index = index;
    out->frac = frac;
    out->weights = weights;
    out->taps = taps;
    out->first = first;
    out->nc = nc;
    out->lo = lo;
    out->hi = hi;
    out->innerBegin = innerBegin;
    out->innerEnd = innerEnd;
}

template <class W>
void build_rows(int method, int count, const Positions& pos, int lo, int hi, std::int32_t* index, W* frac,
                W* weights) {
    const int taps = taps_of(method);
    if (method == kNearest) {
        for (int r = 0; r < count; ++r) index[r] = clamp_index(nearest_index(pos.at(r)), lo, hi);
    } else if (method == kLinear) {
        split_positions(pos, count, lo, hi, index, frac);
    } else {
        for (int r0 = 0; r0 < count; r0 += kSplitChunk) {
            W fr[kSplitChunk];
            const int n = std::min(kSplitChunk, count - r0);
            split_positions(pos.from(r0), n, lo, hi, index + r0, fr);
            for (int r = r0; r < r0 + n; ++r) {
                double w[6];
                tap_weights(method, double(fr[r - r0]), w);
                for (int k = 0; k < taps; ++k) weights[std::size_t(r) * taps + k] = W(w[k]);
            }
        }
    }
}

}  // namespace rok::geometry
