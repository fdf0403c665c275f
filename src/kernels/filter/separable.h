// Row kernels of the two-stage (column, then row) engine of the fixed-kernel
// filters. A filter is two weighted sums: the column stage combines the kh
// source rows of a neighbourhood into up to kMaxMids intermediate rows
// ("mids"), the row stage combines the mids at column offsets into one
// destination row and finishes the result.
//
// A weighted sum is a list of groups, each a weight and a list of terms with
// a sign: value = sum over groups of w * (sum over terms of sign * input).
// Float kernels evaluate it exactly in that order (terms left to right into
// the group's sum, then w times it added to the running value; a weight of 1
// multiplies nothing), so the order is part of each float filter's rule.
// Integer kernels give the exact integer value, which does not depend on the
// order.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels::sep {

constexpr int kMaxRows = 5, kMaxMids = 3, kMaxTerms = 5, kMaxGroups = 6;

// Column stage: src is a source row (0 = top of the neighbourhood).
// Row stage: src is a mid and off a pixel column (0 = left of the
// neighbourhood).
struct Term {
    int src;
    int off;
    int sign;  // +1 or -1
};

struct Group {
    double w;
    int n;
    Term t[kMaxTerms];
};

struct Sum {
    int n;
    Group g[kMaxGroups];
};

// How a row-stage value becomes a destination sample.
enum class Finish {
    Exact,      // integer: saturated to the destination; float: stored as it is
    ShiftEven,  // integer value / 2^shift, ties to even, then saturated
    Nearest,    // integer value times c rounded to the nearest integer, saturated;
                // used only where that is the exact nearest integer of value / d
    Scale,      // float value times c
    Divide,     // float value divided by c
};

struct FinishRule {
    Finish kind = Finish::Exact;
    int shift = 0;
    double c = 1.0;
    bool wide = false;  // Nearest in double precision (values beyond 2^22)
};

// Column stage of 8-bit sources into 16-bit mids that wrap modulo 2^16 (the
// engine reads them back as signed or unsigned, whichever holds every
// value). Rows are taken in pairs so that one byte multiply-add forms
// wa * a + wb * b; a pair's weights satisfy |wa| + |wb| <= 128 and each
// lies in -127..127, so no pair's sum saturates. Signed sources are biased
// by 128 on loading and each mid subtracts 128 * (its weights' sum).
struct BytePairs {
    int pairs;
    int a[kMaxRows], b[kMaxRows];                 // row indices; b = -1: a alone
    std::int16_t weights[kMaxMids][kMaxRows];     // (wb << 8) | (wa & 0xFF)
    std::int16_t bias[kMaxMids];                  // signed sources only
};
void column_bytes(const Rok8u* const* rows, bool signedSource, const BytePairs& plan, int mids, int n,
                  std::int16_t* const* out);

// An integer weighted sum with its groups multiplied out and equal inputs
// merged: value = sum over i of w[i] * input src[i] at sample offset off[i].
constexpr int kMaxWeights = kMaxGroups * kMaxTerms;
struct Weights {
    int n;
    int src[kMaxWeights];
    int off[kMaxWeights];
    std::int32_t w[kMaxWeights];
};

// Column stage of 16-bit and float sources: out[m][x] = sum m over rows[.][x].
void column_sums(const Rok16s* const* rows, const Weights* sums, int mids, int n, std::int32_t* const* out);
void column_sums(const Rok16u* const* rows, const Weights* sums, int mids, int n, std::int32_t* const* out);
void column_sums(const Rok32f* const* rows, const Sum* sums, int mids, int n, float* const* out);

// Row stage: dst[x] = finish(the sum over mids[src][x + off]) for x < n
// samples (the float form's offsets are pixels, times nc samples). The
// 16-bit forms read the mids as signed, or as unsigned when unsignedMids is
// set; `narrow` says whether every value (with the rounding bias of
// ShiftEven) fits in a signed 16-bit lane, else the sums widen to 32 bits.
void row_sums(const std::int16_t* const* mids, bool unsignedMids, bool narrow, const Weights& sum,
              const FinishRule& f, int n, Rok8u* dst);
void row_sums(const std::int16_t* const* mids, bool unsignedMids, bool narrow, const Weights& sum,
              const FinishRule& f, int n, Rok16s* dst);
void row_sums(const std::int32_t* const* mids, const Weights& sum, const FinishRule& f, int n, Rok16s* dst);
void row_sums(const std::int32_t* const* mids, const Weights& sum, const FinishRule& f, int n, Rok16u* dst);
void row_sums(const float* const* mids, const Sum& sum, int nc, const FinishRule& f, int n, Rok32f* dst);

}  // namespace rok::kernels::sep
