// Medians of any mask for the data that the 8-bit column histograms do not
// serve, and the vector (colour) median.
//
// In each kernel `topLeft` addresses channel 0 of the top-left pixel of the
// first output's neighbourhood, `step` is the row distance in bytes, a pixel
// holds `stride` samples of which the first `channels` are filtered, and
// output x of a row is written at dst[x * stride + c] for those channels
// only. The rank is 0-based.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

struct MaskGeometry {
    int width, height;  // mask size
    int stride, channels;
    std::uint32_t rank;
};

// 16-bit data: one histogram per channel in three levels (256 bins of the
// high byte, 4096 of the high 12 bits, 65536 of the value) slides over the
// band in boustrophedon order, right along even rows and left along odd
// ones, stepping down at each row's end, so it is built once per band. A
// move adds and removes one column (or row) of the mask; the median is then
// found by keeping track of the coarse bin that holds it and searching 16
// bins at each finer level. `work` holds hist16_bytes(channels) bytes.
std::size_t hist16_bytes(int channels);
void median_hist16(const Rok16u* topLeft, std::ptrdiff_t step, const MaskGeometry& m, Rok16u* dst,
                   std::ptrdiff_t dstStep, RokiSize roi, void* work);
void median_hist16(const Rok16s* topLeft, std::ptrdiff_t step, const MaskGeometry& m, Rok16s* dst,
                   std::ptrdiff_t dstStep, RokiSize roi, void* work);

// Float data, one row: each output's neighbourhood is gathered, channel by
// channel, into `work` (mask width x height keys, any alignment) and the
// key of the median rank is selected.
void median_select_row(const Rok32f* topLeft, std::ptrdiff_t step, const MaskGeometry& m, Rok32f* dst, int width,
                       void* work);
void median_select_row(const Rok64f* topLeft, std::ptrdiff_t step, const MaskGeometry& m, Rok64f* dst, int width,
                       void* work);

// Vector median of the (2 * radius + 1)^2 pixels centred on each output:
// the neighbourhood pixel whose summed L1 distance (over channels 0..2) to
// all the others is least, the first in row-major order on a tie. Channels
// 0..2 of the chosen pixel are written; a fourth channel is left alone.
// Integer distances are exact; float distances are summed in double in
// row-major order, and a pixel whose sum is NaN is chosen only when every
// sum is NaN (then the first pixel).
void median_color_row(const Rok8u* centre, std::ptrdiff_t step, int stride, int radius, Rok8u* dst, int width);
void median_color_row(const Rok16s* centre, std::ptrdiff_t step, int stride, int radius, Rok16s* dst, int width);
void median_color_row(const Rok32f* centre, std::ptrdiff_t step, int stride, int radius, Rok32f* dst, int width);

}  // namespace rok::kernels
