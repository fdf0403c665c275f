// The row loop of the one-operand families: each row (or, for images laid
// end to end, the whole image as one row) through a kernel
// k(src, dst, samples) -> RokStatus, AC4 through the four-channel block.
// Warnings combine by their value, so a larger one (Ln's 8 over 7) wins
// wherever in the image it arose.
#pragma once

#include <algorithm>
#include <climits>

#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "frame/generated/roki_types.h"

namespace rok::arith {

template <class T, Layout L, class Kernel>
RokStatus unary_rows(const T* s, int ss, T* d, int ds, RokiSize roi, Kernel&& k) {
    constexpr int ch = channels(L);
    RokStatus status = rokStatusOk;
    auto note = [&](RokStatus r) { status = std::max(status, r); };
    if constexpr (L == Layout::AC4) {
        for (int y = 0; y < roi.height; ++y) {
            const T* src = row(s, ss, y);
            ac4_row(row(d, ds, y), roi.width, [&](T* block, int first, int n) { note(k(src + 4 * first, block, 4 * n)); });
        }
        return status;
    } else {
        const long long samples = static_cast<long long>(roi.width) * ch;
        const long long bytes = samples * static_cast<long long>(sizeof(T));
        if (ss == bytes && ds == bytes && samples * roi.height <= INT_MAX) return k(s, d, int(samples * roi.height));
        for (int y = 0; y < roi.height; ++y) note(k(row(s, ss, y), row(d, ds, y), int(samples)));
        return status;
    }
}

}  // namespace rok::arith
