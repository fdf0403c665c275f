// Shared by the median families: the choice of sample type at run time and
// the row loop that feeds every row (AC4 rows through the block helper) to a
// row kernel.
#pragma once

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
    ((s == sample_of<Ts>() ? (status = fn(Ts{}), true) : false) || ...);
    return status;
}

template <class T>
const T* at_bytes(const T* p, std::ptrdiff_t bytes) {
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(p) + bytes);
}

// Runs kernel(srcRow, dstRow, samples) for every ROI row, where srcRow is
// row y of `centre` and every channel of the row's pixels is computed; AC4
// rows are computed four channels at a time into a block of which only
// channels 0..2 reach the destination.
template <class T, class Kernel>
RokStatus kernel_rows(const T* centre, int srcStep, T* dst, int dstStep, RokiSize roi, Layout layout,
                      bool threaded, Kernel&& kernel) {
    const int nc = channels(layout);
    return for_rows(threaded, roi.height, [&](int y) {
        const T* s = row(centre, srcStep, y);
        T* d = row(dst, dstStep, y);
        if (layout == Layout::AC4)
            ac4_row(d, roi.width, [&](T* block, int first, int n) { kernel(s + 4 * std::size_t(first), block, 4 * n); });
        else
            kernel(s, d, roi.width * nc);
    });
}

}  // namespace rok::filter
