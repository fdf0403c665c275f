// One-dimensional orthonormal DCT (type II forward, type III inverse) of any
// length on eight sequences side by side (real packets, as the FFT engines),
// through one real FFT of the same length: the even samples in order followed
// by the odd ones reversed have a spectrum V with
// X(k) = a(k) Re(exp(-i pi k / 2n) V(k)), a(0) = sqrt(1/n), a(k) = sqrt(2/n),
// and the inverse runs the same mapping backwards. O(n log n) for every n.
#pragma once

#include <cstddef>

#include "kernels/transform/fft_engine.h"

namespace rok::kernels::dct {

struct DctPlan;

// Builds (or sizes, while the arena counts) a plan of length n (1 ..
// kMaxLength); needs.work_bytes is the per-call scratch besides the packets,
// needs.init_bytes the scratch `init` while building.
const DctPlan* build_dct(fft::Arena& arena, int n, fft::PlanNeeds& needs, void* init);

// In place on n real packets at `packets`; `work` holds n more packets and
// then the FFT's own scratch (64-byte aligned, needs.work_bytes + 32 n bytes
// rounded to 64).
void dct_forward(const DctPlan* plan, float* packets, float* work);
void dct_inverse(const DctPlan* plan, float* packets, float* work);

// Bytes of `work` for a plan built with these needs.
std::size_t dct_work_bytes(int n, const fft::PlanNeeds& needs);

}  // namespace rok::kernels::dct
