// Raw image moments up to order 3 of one channel: out[4n + m] gets
// sum over the ROI of x^m y^n I(x, y), m + n <= 3, with x and y counted from
// the ROI's first pixel. p points at the channel's first sample; pixels are
// nc samples apart, rows `step` bytes.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// Exact integer totals (the other ten entries are left as they were).
void raw_moments(const Rok8u* p, int step, int w, int h, int nc, __int128* out);
void raw_moments(const Rok16u* p, int step, int w, int h, int nc, __int128* out);

// Double precision: per row, sample x of each run of eight adds the fused
// product I x^m into partial x mod 8 of s_m (x^m formed exactly), the
// partials are added pairwise at the row's end ((p0 + p4) + (p1 + p5)) +
// ((p2 + p6) + (p3 + p7)), and the row totals, times y^n, are added to the
// moments in row order.
void raw_moments(const Rok32f* p, int step, int w, int h, int nc, double* out);

}  // namespace rok::kernels
