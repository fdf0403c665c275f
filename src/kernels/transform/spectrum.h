// Row kernels on packed spectra (the layout of the real two-dimensional
// transforms): products of two spectra, and the full complex spectrum, its
// magnitude and phase, taken back out of the packed layout or put into it.
//
// A packed row of W pixels with nc interleaved channels holds, per channel,
// the complex pairs (pixel 2u-1, pixel 2u) for u = 1 .. (W-1)/2 and the
// column elements of pixel 0 and, for even W, pixel W-1; the column
// elements pair up vertically (rows 2k-1, 2k). The first `processed`
// channels are computed; the others (AC4 alpha) are not written.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels::spectrum {

// Element-wise products d = a * b, or a * conj(b) with `conj`, of the inner
// pairs of one packed row (pixels 1 .. 2 ((W-1)/2)). Float: each product
// rounded, then the sum (ac - bd, ad + bc; conjugate: ac + bd, bc - ad).
// Integers: the exact result times 2^-sf, half to even, saturated.
void mul_inner(const Rok32f* a, const Rok32f* b, Rok32f* d, int w, int nc, int processed, bool conj);
void mul_inner(const Rok16s* a, const Rok16s* b, Rok16s* d, int w, int nc, int processed, int sf);
void mul_inner(const Rok32s* a, const Rok32s* b, Rok32s* d, int w, int nc, int processed, int sf);

// The column elements (pixel 0 and, for even W, pixel W-1) of a vertical
// pair of rows (a1, a2 hold Re and Im): complex products. Row pointers may
// coincide with destination rows.
void mul_columns(const Rok32f* a1, const Rok32f* a2, const Rok32f* b1, const Rok32f* b2, Rok32f* d1, Rok32f* d2,
                 int w, int nc, int processed, bool conj);
void mul_columns(const Rok16s* a1, const Rok16s* a2, const Rok16s* b1, const Rok16s* b2, Rok16s* d1, Rok16s* d2,
                 int w, int nc, int processed, int sf);
void mul_columns(const Rok32s* a1, const Rok32s* a2, const Rok32s* b1, const Rok32s* b2, Rok32s* d1, Rok32s* d2,
                 int w, int nc, int processed, int sf);

// The real-only column elements of one row (row 0, and row H-1 for even H):
// real products.
void mul_real(const Rok32f* a, const Rok32f* b, Rok32f* d, int w, int nc, int processed);
void mul_real(const Rok16s* a, const Rok16s* b, Rok16s* d, int w, int nc, int processed, int sf);
void mul_real(const Rok32s* a, const Rok32s* b, Rok32s* d, int w, int nc, int processed, int sf);

// Where output row y of the full spectrum finds its values: the packed row
// y (F(u, y) for 1 <= u <= (W-1)/2), the packed row (H - y) mod H (the
// conjugates for u > W/2), and the column elements of u = 0 and u = W/2 in
// rows colRe / colIm (colIm null: imaginary part 0), conjugated for y > H/2.
template <class T>
struct Sources {
    const T* row;
    const T* mirror;
    const T* colRe;
    const T* colIm;
    bool colConj;
};

// Full complex row: F(x, y) for x = 0 .. W-1.
void extend_row(const Sources<Rok32f>& s, Rok32fc* out, int w, int nc);
void extend_row(const Sources<Rok32s>& s, Rok32sc* out, int w, int nc);

// |F(x, y)|: float from double precision, sqrt(re^2 + im^2) rounded once to
// float; integers: the exact magnitude times 2^-sf, rounded to nearest with
// ties to even, saturated.
void magnitude_row(const Sources<Rok32f>& s, Rok32f* out, int w, int nc);
void magnitude_row(const Sources<Rok16s>& s, Rok16s* out, int w, int nc, int sf);
void magnitude_row(const Sources<Rok32s>& s, Rok32s* out, int w, int nc, int sf);

// arg F(x, y) = atan2(im, re) in double precision, in [-pi, pi]: float
// rounds it; integers scale it by 2^-sf and round to nearest with the
// current rounding (the caller sets nearest-even), then saturate.
void phase_row(const Sources<Rok32f>& s, Rok32f* out, int w, int nc);
void phase_row(const Sources<Rok16s>& s, Rok16s* out, int w, int nc, int sf);
void phase_row(const Sources<Rok32s>& s, Rok32s* out, int w, int nc, int sf);

// Packed row y from a full complex image: the inner pairs from complex row
// y; the column elements from complex row `column` (its real part, or its
// imaginary part with `columnImag`).
void pack_row(const Rok32fc* row, const Rok32fc* column, bool columnImag, Rok32f* out, int w, int nc);
void pack_row(const Rok32sc* row, const Rok32sc* column, bool columnImag, Rok32s* out, int w, int nc);
void pack_row(const Rok16sc* row, const Rok16sc* column, bool columnImag, Rok16s* out, int w, int nc);

}  // namespace rok::kernels::spectrum
