// Row kernels of the one-level wavelet transform. Every filter of the
// transform, vertical or horizontal, decimating or interpolating, comes down
// to a weighted sum of a few equally spaced rows: the vertical filters sum
// source rows a step apart, and the horizontal ones sum shifted copies of a
// row that has been split into its even and odd pixels.
#pragma once

#include <cstddef>

namespace rok::kernels::wavelet {

// dst[i] = (accumulate ? dst[i] : 0) + w[0] * r0[i] + w[1] * r1[i] + ...
// for i in [0, n), where row k starts strideBytes * k bytes after `first`
// (the stride may be negative). The terms are added in tap order, each as a
// fused multiply-add (one rounding per tap), so every lane gives the same
// float.
void weighted_rows_32f(const float* first, std::ptrdiff_t strideBytes, const float* w, int taps, float* dst, int n,
                       bool accumulate);

// Splits `pixels` pixels of `ch` floats into the even pixels (0, 2, 4, ...)
// and the odd ones (1, 3, ...).
void split_32f(const float* src, int pixels, int ch, float* even, float* odd);

// Interleaves `pairs` even and odd pixels of `ch` floats back into one row.
void merge_32f(const float* even, const float* odd, int pairs, int ch, float* dst);

}  // namespace rok::kernels::wavelet
