// Per-channel totals shared by the sum, mean, norm, norm-of-difference and
// relative-norm families: exact 64-bit integers for integer data, the
// hint's precision for float data.
#pragma once

#include <cstdint>
#include <type_traits>

#include "frame/layout.h"
#include "kernels/stats/stats.h"
#include "frame/generated/roki_types.h"

namespace rok::stats {

using kernels::FloatTerm;

// Float data accumulates in double precision for narrow ROIs or on request.
inline bool double_precision(RokiSize roi, int hint) { return hint == rokHintAccurate || roi.width <= 16; }

// Channel c of double partials laid out as sample i -> partial i mod
// (count x nc): its `count` partials added in order.
inline void combine_double(const double* part, int nc, int outs, Rok64f* out, int count = 8) {
    for (int c = 0; c < outs; ++c) {
        double s = 0;
        for (int k = 0; k < count; ++k) s += part[k * nc + c];
        out[c] = s;
    }
}

template <class T>
void integer_totals(FloatTerm term, const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc,
                    std::int64_t* acc) {
    if (b) {
        if (term == FloatTerm::Square)
            kernels::diff_sq_sum(a, as, b, bs, m, h, nc, acc);
        else
            kernels::diff_abs_sum(a, as, b, bs, m, h, nc, acc);
    } else if (term == FloatTerm::Square) {
        kernels::sq_sum(a, as, m, h, nc, acc);
    } else {
        if constexpr (std::is_signed_v<T>) {
            if (term == FloatTerm::Abs) return kernels::abs_sum(a, as, m, h, nc, acc);
        }
        kernels::sum(a, as, m, h, nc, acc);
    }
}

// out[c] = total over the ROI of the term of x (b null) or of a - b, for
// each processed channel of L.
template <class T, Layout L>
void totals(FloatTerm term, const T* a, int as, const T* b, int bs, RokiSize roi, int hint, Rok64f* out) {
    constexpr int nc = channels(L), outs = processed_channels(L);
    const std::size_t m = std::size_t(roi.width) * nc;
    if constexpr (std::is_same_v<T, Rok32f>) {
        if (double_precision(roi, hint)) {
            double part[32] = {};
            kernels::double_partials(a, as, b, bs, m, roi.height, nc, term, part);
            combine_double(part, nc, outs, out);
        } else {
            float part[kernels::kFloatPartials] = {};
            kernels::float_partials(a, as, b, bs, m, roi.height, term, part);
            for (int c = 0; c < outs; ++c) out[c] = 0;
            for (int j = 0; j < kernels::kFloatPartials; ++j)
                if (j % nc < outs) out[j % nc] += double(part[j]);
        }
    } else {
        std::int64_t acc[4] = {};
        integer_totals(term, a, as, b, bs, m, roi.height, nc, acc);
        for (int c = 0; c < outs; ++c) out[c] = double(acc[c]);
    }
}

}  // namespace rok::stats
