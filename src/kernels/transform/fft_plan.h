// Inside the one-dimensional engines: the plan records that fft_plan.cpp
// builds and the stage and real-transform code runs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/transform/fft_engine.h"

namespace rok::kernels::fft {

// One pass of the self-sorting transform. Before it the data is L
// interleaved sub-problems of length radix * Mp (element n of sub-problem j
// at j + L * n); after it, radix * L sub-problems of length Mp. Twiddles:
// for n1 = 1 .. Mp-1 and k = 1 .. radix-1, the pair (cos, -sin) of
// 2 pi n1 k / (radix Mp) at tw[2 ((n1 - 1) (radix - 1) + k - 1)]; null when
// Mp is 1.
struct Stage {
    int radix;
    int L;
    int Mp;
    const float* tw;
};

constexpr int kMaxStages = 32;

struct ComplexPlan {
    int n;
    float forward_scale;
    float inverse_scale;
    int stages;
    const Stage* stage;
    // Bluestein: the smooth-length plan, the chirp exp(-i pi k^2 / n) for
    // k < n and the filter DFT_M(conj chirp, wrapped round) / M (pairs).
    const ComplexPlan* sub;
    const float* chirp;
    const float* filter;
};

struct RealPlan {
    int n;
    float forward_scale;
    float inverse_scale;
    // Unscaled complex plan of length n/2 (even n) or n (odd n).
    const ComplexPlan* complex;
    // Even n: (cos, -sin) of 2 pi k / n for k = 0 .. n/4.
    const float* tw;
};

}  // namespace rok::kernels::fft
