// Shifts by a constant count per channel: LShiftC and RShiftC.
#pragma once

#include <climits>
#include <cstdint>
#include <type_traits>

#include "copy/copy.h"
#include "copy/set.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "frame/parallel.h"
#include "kernels/arith/shift.h"
#include "frame/generated/roki_types.h"

namespace rok::arith {

using kernels::ShiftDir;

// Checks: null -8 (the count array too), a step below 1 -14, then size -6.
// Counts of 0 in every processed channel copy the source through the image
// copy; counts at or beyond the bit width in every processed channel fill
// the ROI with 0 through the image set, without reading the source, except
// for signed right shifts, whose result there is the sign fill. Other counts,
// mixed ones included, go through the shift kernel.
template <ShiftDir Dir, class T, Layout L, bool InPlace = false>
RokStatus shift(const T* s, int ss, const std::uint32_t* counts, T* d, int ds, RokiSize roi) {
    if (any_null(s, counts, d)) return rokStatusNullPtr;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    constexpr std::uint32_t bits = 8 * sizeof(T);
    constexpr bool sign_fill = Dir == ShiftDir::Right && std::is_signed_v<T>;
    constexpr int ch = channels(L);
    bool none = true, all_out = true;
    for (int c = 0; c < processed_channels(L); ++c) {
        none = none && counts[c] == 0;
        all_out = all_out && counts[c] >= bits;
    }
    if (none) return InPlace ? rokStatusOk : copy::copy<T, L>(s, ss, d, ds, roi);
    if (all_out && !sign_fill) {
        static constexpr T kZeros[4] = {};
        return copy::set<T, L>(kZeros, d, ds, roi);
    }
    const long long samples = static_cast<long long>(roi.width) * ch;
    if constexpr (L == Layout::AC4) {
        const std::uint32_t counts4[4] = {counts[0], counts[1], counts[2], 0};  // the alpha result is not kept
        return serial_rows(roi.height, [&](int y) {
            const T* src = row(s, ss, y);
            ac4_row(row(d, ds, y), roi.width, [&](T* block, int first, int n) {
                kernels::shift_row<Dir, T>(src + 4 * first, block, 4 * n, counts4, 4);
            });
        });
    } else {
        // Rows laid end to end make one row: the channel pattern runs on
        // unbroken, since every row holds whole pixels.
        const long long bytes = samples * static_cast<long long>(sizeof(T));
        if (ss == bytes && ds == bytes && samples * roi.height <= INT_MAX) {
            kernels::shift_row<Dir, T>(s, d, int(samples * roi.height), counts, ch);
            return rokStatusOk;
        }
        return serial_rows(roi.height, [&](int y) {
            kernels::shift_row<Dir, T>(row(s, ss, y), row(d, ds, y), int(samples), counts, ch);
        });
    }
}

template <class T, Layout L, bool I = false>
RokStatus lshift_c(const T* s, int ss, const std::uint32_t* counts, T* d, int ds, RokiSize roi) {
    return shift<ShiftDir::Left, T, L, I>(s, ss, counts, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus rshift_c(const T* s, int ss, const std::uint32_t* counts, T* d, int ds, RokiSize roi) {
    return shift<ShiftDir::Right, T, L, I>(s, ss, counts, d, ds, roi);
}

}  // namespace rok::arith
