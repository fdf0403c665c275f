// Row kernels of the fixed-kernel filters: one kernel per filter, mask size
// and type pair, each specialised at compile time on its plan
// (fixed_plans.h), so that its weights are constants and its loops unrolled.
#pragma once

#include <cstddef>

#include "frame/generated/roki_types.h"
#include "kernels/filter/fixed_plans.h"

namespace rok::kernels::fixed {

// One destination row of `pixels` pixels of nc samples. rows[j] points at
// the first sample of the neighbourhood's left column in its row j (j below
// the plan's size). mids is scratch for the plan's
// mids, each midStride samples of mid_bytes<S>() bytes, at least
// (pixels + size - 1) * nc samples long. For AC4 the alpha samples are
// computed too (the family keeps the destination's alpha). With `stream`
// the aligned stores bypass the cache; the caller ends its rows with
// kernels::store_fence().
template <class S, class D>
using Strip = void (*)(const S* const* rows, int pixels, int nc, void* mids, int midStride, D* out, bool stream);

// Two destination rows straight from the source rows: rows[j] as for
// Strip, j up to size, for out0 and the row below it, out1. Same `stream`
// rule as Strip.
template <class S, class D>
using Rows = void (*)(const S* const* rows, int pixels, int nc, D* out0, D* out1, bool stream);

// One-channel 8u Gauss 5x5 over destination rows first..last-1 of a ROI
// at least kGauss5Width pixels wide: src and dst point at the ROI's first
// pixel, source rows first-2..last+1 and columns -2..width+1 are read.
// `ring` is scratch of gauss5_ring_bytes(width) bytes, private to the call.
// Same `stream` rule as Strip.
constexpr int kGauss5Width = 32;
std::size_t gauss5_ring_bytes(int width);
void gauss5_rows(const Rok8u* src, int srcStep, Rok8u* dst, int dstStep, int width, int first, int last, void* ring,
                 bool stream);

template <class S>
constexpr int mid_bytes() {
    return sizeof(S) == 1 ? 2 : 4;
}

// The kernel of filter f with a size x size mask for the type pair, or null
// where the library has no such member.
void select(Fixed f, int size, Strip<Rok8u, Rok8u>& fn);
void select(Fixed f, int size, Strip<Rok8u, Rok16s>& fn);
void select(Fixed f, int size, Strip<Rok8s, Rok16s>& fn);
void select(Fixed f, int size, Strip<Rok16s, Rok16s>& fn);
void select(Fixed f, int size, Strip<Rok16u, Rok16u>& fn);
// Float data: the kernel that makes rows of filter f without mid rows, or
// null where the library has no such member.
void select_rows(Fixed f, int size, Rows<Rok32f, Rok32f>& fn);

}  // namespace rok::kernels::fixed
