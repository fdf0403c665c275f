// The row loop of the conversion families: contiguous images as one row, AC4
// through the stack block, everything else row by row.
#pragma once

#include <climits>
#include <cstdint>

#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "frame/generated/roki_types.h"

namespace rok::convert {

// Calls kernel(const S* src, D* dst, int samples) over the ROI. When both
// steps equal their row's bytes and the pixel count fits a signed 32-bit
// value, the ROI is one run and the kernel is called once.
template <Layout L, class S, class D, class Kernel>
void for_each_row(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, Kernel&& kernel) {
    constexpr int ch = channels(L);
    const std::int64_t pixels = std::int64_t(roi.width) * roi.height;
    int width = roi.width, height = roi.height;
    if (std::int64_t(srcStep) == std::int64_t(roi.width) * ch * std::int64_t(sizeof(S)) &&
        std::int64_t(dstStep) == std::int64_t(roi.width) * ch * std::int64_t(sizeof(D)) &&
        pixels * ch <= INT_MAX) {
        width = int(pixels);
        height = 1;
    }
    for (int y = 0; y < height; ++y) {
        const S* s = row(src, srcStep, y);
        D* d = row(dst, dstStep, y);
        if constexpr (L == Layout::AC4)
            ac4_row(d, width, [&](D* block, int x, int n) { kernel(s + 4 * std::int64_t(x), block, 4 * n); });
        else
            kernel(s, d, width * ch);
    }
}

// Whether the ROI is large enough for the non-temporal kernels.
inline bool at_least(RokiSize roi, std::int64_t pixels) {
    return std::int64_t(roi.width) * roi.height >= pixels;
}

}  // namespace rok::convert
