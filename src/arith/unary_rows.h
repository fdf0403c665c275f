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

namespace detail {

// Results go past the cache (non-temporal stores) from this many
// destination bytes: with a source of the same size the two no longer fit a
// last-level cache of the common size (32 MiB), and each line written would
// first be read in. Measured on such a machine with the streamed loop that
// prefetches pages ahead: streaming is 1.05-1.25x faster at 14 MiB of
// output and 1.3-1.5x faster at 32 MiB; at 8 MiB it gains only 5-10% in
// repeated calls, too little to give up leaving the results in the cache
// for whatever reads them next. The thresholds, bound by memory alone, went
// from 2.55 to 1.8-2.0 ms on a 3840x2160 32f image.
constexpr long long kStreamBytes = 12LL << 20;

template <class T, Layout L>
bool streams(RokiSize roi) {
    return (long long)roi.width * roi.height * channels(L) * (long long)sizeof(T) >= kStreamBytes;
}

}  // namespace detail

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
