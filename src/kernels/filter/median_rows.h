// Row kernels of the fixed-shape medians, by comparator networks on whole
// registers. Each kernel computes n destination samples; `centre` addresses
// the source sample under the first one (the centre of its neighbourhood),
// `pixel` is the distance in samples between horizontally adjacent pixels
// (the channel count) and `step` the distance in bytes between rows. The
// neighbourhood of a sample is read from the same channel of the pixels
// around it, so every channel of an interleaved row is filtered in one pass.
// Float samples are ranked in IEEE totalOrder (see median_lanes.h).
#pragma once

#include <cstddef>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// Median of the size x size square round each sample, size 3 or 5, for
// `rows` consecutive rows (source rows `step` apart, destination rows
// `dstStep` apart): pairs of rows share the sorting of the source rows that
// both of their neighbourhoods hold.
void median_square(const Rok8u* centre, std::ptrdiff_t step, int pixel, int size, Rok8u* dst, std::ptrdiff_t dstStep,
                   int rows, int n);
void median_square(const Rok16u* centre, std::ptrdiff_t step, int pixel, int size, Rok16u* dst,
                   std::ptrdiff_t dstStep, int rows, int n);
void median_square(const Rok16s* centre, std::ptrdiff_t step, int pixel, int size, Rok16s* dst,
                   std::ptrdiff_t dstStep, int rows, int n);
void median_square(const Rok32f* centre, std::ptrdiff_t step, int pixel, int size, Rok32f* dst,
                   std::ptrdiff_t dstStep, int rows, int n);
void median_square(const Rok64f* centre, std::ptrdiff_t step, int pixel, int size, Rok64f* dst,
                   std::ptrdiff_t dstStep, int rows, int n);

// Median of `size` (3 or 5) samples spaced `delta` bytes apart and centred on
// each sample: a row (delta = pixel bytes) or a column (delta = step).
void median_line(const Rok8u* centre, std::ptrdiff_t delta, int size, Rok8u* dst, int n);
void median_line(const Rok16u* centre, std::ptrdiff_t delta, int size, Rok16u* dst, int n);
void median_line(const Rok16s* centre, std::ptrdiff_t delta, int size, Rok16s* dst, int n);
void median_line(const Rok32f* centre, std::ptrdiff_t delta, int size, Rok32f* dst, int n);
void median_line(const Rok64f* centre, std::ptrdiff_t delta, int size, Rok64f* dst, int n);

// Median of the plus shape: the centre and `arm` (1 or 2) samples in each of
// the four directions (5 or 9 samples).
void median_cross(const Rok8u* centre, std::ptrdiff_t step, int pixel, int arm, Rok8u* dst, int n);
void median_cross(const Rok16u* centre, std::ptrdiff_t step, int pixel, int arm, Rok16u* dst, int n);
void median_cross(const Rok16s* centre, std::ptrdiff_t step, int pixel, int arm, Rok16s* dst, int n);

// One-channel 3x3 median with the centre counted `weight` times (3, 5 or 7):
// the median of the 8 + weight values.
void median_weighted_centre(const Rok8u* centre, std::ptrdiff_t step, int weight, Rok8u* dst, int n);

// The middle one of a[i], b[i], c[i].
void median_of_three(const Rok8u* a, const Rok8u* b, const Rok8u* c, Rok8u* dst, int n);

}  // namespace rok::kernels
