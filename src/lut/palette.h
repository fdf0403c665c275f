// Palettes: the sample's low nBitSize bits index a caller table per channel.
// Checks, in order: null pointers (images, the table array and each table),
// ROI size, then nBitSize outside 1..8 (rokStatusOutOfRange). Steps are not
// checked. Only table entries 0 .. 2^nBitSize - 1 are read.
#pragma once

#include <cstdint>
#include <limits>

#include "frame/generated/roki_types.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "kernels/lut/lut.h"
#include "lut/lut.h"

namespace rok::lut {

namespace detail {

template <class D>
RokStatus check_palette(const void* src, const void* dst, RokiSize roi, const D* const* tables, int count,
                        int nBitSize) {
    if (any_null(src, dst, tables)) return rokStatusNullPtr;
    for (int c = 0; c < count; ++c)
        if (!tables[c]) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (unsigned(nBitSize) - 1u > 7u) return rokStatusOutOfRange;
    return rokStatusOk;
}

template <class S, class D>
void palette_rows(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, int srcNc, int dstNc, int processed,
                  const D* const* tables, int nBitSize, bool reverse, std::int64_t alpha) {
    const unsigned mask = (1u << nBitSize) - 1u;
    for (int y = 0; y < roi.height; ++y)
        kernels::palette(row(src, srcStep, y), row(dst, dstStep, y), std::size_t(roi.width), srcNc, dstNc, processed,
                         tables, mask, reverse, alpha);
}

}  // namespace detail

// C1, C3, C4 and AC4 (alpha untouched) of one source and destination type.
template <class S, class D, Layout L>
RokStatus palette(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, const D* const* tables, int nBitSize) {
    constexpr int nc = channels(L), outs = processed_channels(L);
    if (RokStatus s = detail::check_palette(src, dst, roi, tables, outs, nBitSize); s != rokStatusOk) return s;
    if constexpr (std::is_same_v<S, Rok8u> && std::is_same_v<D, Rok8u>) {
        // A full byte table repeats the palette, so the byte kernels serve.
        alignas(32) Rok8u full[4][256];
        const unsigned mask = (1u << nBitSize) - 1u;
        for (int c = 0; c < outs; ++c)
            for (unsigned v = 0; v < 256; ++v) full[c][v] = tables[c][v & mask];
        apply_8u<L>(src, srcStep, dst, dstStep, roi, full);
    } else {
        detail::palette_rows(src, srcStep, dst, dstStep, roi, nc, nc, outs, tables, nBitSize, false, -1);
    }
    return rokStatusOk;
}

// C1 onto three-byte samples: table entry i is the bytes 3i .. 3i + 2.
template <class S>
RokStatus palette_24(const S* src, int srcStep, Rok8u* dst, int dstStep, RokiSize roi, const Rok8u* table,
                     int nBitSize) {
    if (RokStatus s = detail::check_palette(src, dst, roi, &table, 1, nBitSize); s != rokStatusOk) return s;
    const unsigned mask = (1u << nBitSize) - 1u;
    for (int y = 0; y < roi.height; ++y)
        kernels::palette_24(row(src, srcStep, y), row(dst, dstStep, y), std::size_t(roi.width), table, mask);
    return rokStatusOk;
}

// Three channels in, four out with the fourth set to 0.
template <class S, class D>
RokStatus palette_a0(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, const D* const* tables,
                     int nBitSize) {
    if (RokStatus s = detail::check_palette(src, dst, roi, tables, 3, nBitSize); s != rokStatusOk) return s;
    detail::palette_rows(src, srcStep, dst, dstStep, roi, 3, 4, 3, tables, nBitSize, false, 0);
    return rokStatusOk;
}

// Three channels in reversed order, four out: (t2[s2], t1[s1], t0[s0], alpha).
// An alpha outside the destination sample's range (above it, or negative)
// leaves the fourth channel as it was.
template <class S, class D>
RokStatus palette_swap(const S* src, int srcStep, int alpha, D* dst, int dstStep, RokiSize roi, const D* const* tables,
                       int nBitSize) {
    if (RokStatus s = detail::check_palette(src, dst, roi, tables, 3, nBitSize); s != rokStatusOk) return s;
    const bool keep = unsigned(alpha) > unsigned(std::numeric_limits<D>::max());
    detail::palette_rows(src, srcStep, dst, dstStep, roi, 3, 4, 3, tables, nBitSize, true, keep ? -1 : alpha);
    return rokStatusOk;
}

}  // namespace rok::lut
