// Shared by the median families: the choice of sample type at run time and
// the row loop that feeds every row (AC4 rows through the block helper) to a
// row kernel.
#pragma once

#include <algorithm>
#include <cstddef>

#include "filter/median.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/parallel.h"

namespace rok::filter {

// Calls fn(T{}) for the sample type that `s` names, among Ts.
template <class... Ts, class Fn>
RokStatus with_sample(Sample s, Fn&& fn) {
    RokStatus status = rokStatusOk;
    auto one = [&](auto t) {
        if (s == sample_of<decltype(t)>()) status = fn(t);
    };
    (one(Ts{}), ...);
    return status;
}

template <class T>
const T* at_bytes(const T* p, std::ptrdiff_t bytes) {
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(p) + bytes);
}

// Runs kernel(srcRow, dstRow, rows, samples) over the ROI, where srcRow is
// row y of `centre`, `rows` (up to rowsPerCall) rows from y on are computed
// and every channel of their pixels; AC4 rows are computed one at a time,
// four channels into a block of which only channels 0..2 reach the
// destination.
template <class T, class Kernel>
RokStatus kernel_rows(const T* centre, int srcStep, T* dst, int dstStep, RokiSize roi, Layout layout,
                      bool threaded, int rowsPerCall, Kernel&& kernel) {
    const int nc = channels(layout);
    if (layout == Layout::AC4) {
        return for_rows(threaded, roi.height, [&](int y) {
            const T* s = row(centre, srcStep, y);
            ac4_row(row(dst, dstStep, y), roi.width,
                    [&](T* block, int first, int n) { kernel(s + 4 * std::size_t(first), block, 1, 4 * n); });
        });
    }
    const int calls = (roi.height + rowsPerCall - 1) / rowsPerCall;
    return for_rows(threaded, calls, [&](int i) {
        const int y = i * rowsPerCall;
        kernel(row(centre, srcStep, y), row(dst, dstStep, y), std::min(rowsPerCall, roi.height - y), roi.width * nc);
    });
}

}  // namespace rok::filter
