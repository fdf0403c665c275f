// Minimum, maximum, both, their first positions, and the per-sample minimum
// or maximum of two images.
#pragma once

#include <cstring>
#include <limits>
#include <type_traits>

#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "kernels/stats/stats.h"
#include "frame/generated/roki_types.h"

namespace rok::stats {

// The extremes a search can stop at (infinities for float data, so that
// nothing can still beat them).
template <class T>
constexpr T lowest_value() {
    if constexpr (std::is_floating_point_v<T>) return -std::numeric_limits<T>::infinity();
    return std::numeric_limits<T>::lowest();
}
template <class T>
constexpr T highest_value() {
    if constexpr (std::is_floating_point_v<T>) return std::numeric_limits<T>::infinity();
    return std::numeric_limits<T>::max();
}

template <class T, Layout L>
void extremes(const T* src, int step, RokiSize roi, T* mn, T* mx) {
    for (int c = 0; c < 4; ++c) {
        mn[c] = highest_value<T>();
        mx[c] = lowest_value<T>();
    }
    kernels::min_max(src, step, std::size_t(roi.width) * channels(L), roi.height, channels(L), mn, mx);
}

template <class T, Layout L>
RokStatus min_max(const T* src, int step, RokiSize roi, T* outMin, T* outMax) {
    if (any_null(src, outMin, outMax)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    T mn[4], mx[4];
    extremes<T, L>(src, step, roi, mn, mx);
    for (int c = 0; c < processed_channels(L); ++c) {
        outMin[c] = mn[c];
        outMax[c] = mx[c];
    }
    return rokStatusOk;
}

template <class T, Layout L, bool Max>
RokStatus extreme(const T* src, int step, RokiSize roi, T* out) {
    if (any_null(src, out)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    T mn[4], mx[4];
    extremes<T, L>(src, step, roi, mn, mx);
    for (int c = 0; c < processed_channels(L); ++c) out[c] = Max ? mx[c] : mn[c];
    return rokStatusOk;
}

// Rows top to bottom; a row whose extreme is strictly better becomes the
// best row, and a channel is settled once its best is the type's extreme.
// The x index is the first position of the best value in the best row, so
// the result is the first occurrence in raster order.
template <class T, Layout L, bool Max>
RokStatus extreme_index(const T* src, int step, RokiSize roi, T* value, int* xs, int* ys) {
    if (any_null(src, value, xs, ys)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    constexpr int nc = channels(L), outs = processed_channels(L);
    // AC4's alpha lanes start settled, so they never keep the walk going.
    T best[4];
    int best_row[4] = {};
    for (int c = 0; c < nc; ++c) best[c] = (c < outs) == Max ? lowest_value<T>() : highest_value<T>();
    const std::size_t m = std::size_t(roi.width) * nc;
    if constexpr (Max)
        kernels::max_rows(src, step, m, roi.height, nc, best, best_row);
    else
        kernels::min_rows(src, step, m, roi.height, nc, best, best_row);
    for (int c = 0; c < outs; ++c) {
        const T* r = row(src, step, best_row[c]);
        int x = 0;
        while (x < roi.width && !(r[x * nc + c] == best[c])) ++x;
        // Only a channel of nothing but NaNs finds no match.
        if (x == roi.width) x = 0;
        value[c] = r[x * nc + c] == best[c] ? r[x * nc + c] : best[c];
        xs[c] = x;
        ys[c] = best_row[c];
    }
    return rokStatusOk;
}

// In place: srcDst = min (max) of src and srcDst, sample by sample; AC4
// leaves the destination's alpha as it was.
template <class T, Layout L, bool Max>
RokStatus every(const T* src, int srcStep, T* srcDst, int srcDstStep, RokiSize roi) {
    if (any_null(src, srcDst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, srcDstStep)) return rokStatusBadStep;
    const auto apply = [](const T* s, T* d, std::size_t n) {
        if constexpr (Max)
            kernels::max_every(s, d, n);
        else
            kernels::min_every(s, d, n);
    };
    for (int y = 0; y < roi.height; ++y) {
        const T* s = row(src, srcStep, y);
        T* d = row(srcDst, srcDstStep, y);
        if constexpr (L == Layout::AC4) {
            ac4_row(d, roi.width, [&](T* block, int x, int n) {
                std::memcpy(block, d + 4 * x, std::size_t(n) * 4 * sizeof(T));
                apply(s + 4 * x, block, std::size_t(n) * 4);
            });
        } else {
            apply(s, d, std::size_t(roi.width) * channels(L));
        }
    }
    return rokStatusOk;
}

}  // namespace rok::stats
