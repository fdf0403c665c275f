// The two-stage engine of the fixed-kernel filters: for every destination
// row a column stage combines the neighbourhood's source rows into a few
// intermediate rows (mids), and a row stage combines the mids at column
// offsets into the destination row. A plan states both stages as weighted
// sums (kernels/filter/separable.h) and how the result is finished.
//
// The engine works in vertical strips sized so that the strip's source rows
// and its mids stay in the level-1 cache while it walks down the rows; 8-bit
// sources are combined in 16-bit lanes (byte multiply-adds), 16-bit sources
// in 32-bit lanes, float data in single precision. Rows are split among
// threads for images wider and higher than 63 pixels; every row is computed
// the same way whatever the split.
#pragma once

#include "frame/layout.h"
#include "frame/generated/roki_types.h"
#include "kernels/filter/separable.h"

namespace rok::filter {

struct SepPlan {
    int size;  // the neighbourhood is size x size, centred on the destination pixel
    int mids;
    kernels::sep::Sum column[kernels::sep::kMaxMids];
    kernels::sep::Sum row;
};

// Runs the plan over the ROI; src and dst point at the ROI's first pixel.
// With an 8-bit source every mid must fit 16 bits, signed or unsigned, and
// every pair of rows' weights one byte multiply-add (|wa| + |wb| <= 128).
// Returns rokStatusNoMemory when the scratch rows cannot be allocated.
template <class S, class D>
RokStatus run_separable(const SepPlan& plan, const kernels::sep::FinishRule& finish, const S* src, int srcStep,
                        D* dst, int dstStep, RokiSize roi, Layout layout);

}  // namespace rok::filter
