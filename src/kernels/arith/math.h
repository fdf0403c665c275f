// Square root, natural logarithm and exponential rows: single precision
// within a stated error, integers by the scale-factor rule.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// ---- single precision (s may equal d) ----
// The rows of the ROI that follow a row, for a streamed row to prefetch
// from once its own samples run out: `count` rows, `src_step` and
// `dst_step` bytes apart.
struct RowsAfter {
    int count = 0;
    long long src_step = 0, dst_step = 0;
};
// `stream`: the whole vectors go to memory past the cache (non-temporal
// stores), for outputs too large to stay in it, where a store that first
// reads its line in costs a third of the traffic.
// d = sqrt(s), correctly rounded (IEEE square root).
void sqrt_row(const Rok32f* s, Rok32f* d, int n, bool stream = false);
// d = ln(s) within 0.79 ulp (the largest error over every float),
// denormals included;
// ln(+-0) = -inf, ln(x < 0) = NaN, ln(+inf) = +inf, a NaN stays a NaN.
// Returns rokStatusLnNegArg when a sample was below 0 (-0.0 is not),
// else rokStatusLnZeroArg when one was +-0, else rokStatusOk.
RokStatus ln_row(const Rok32f* s, Rok32f* d, int n, bool stream = false, RowsAfter next = {});
// d = e^s within 0.99 ulp (the largest error over every float is 0.983),
// denormal results included; overflow gives +inf, e^-inf = 0, a NaN stays a NaN.
void exp_row(const Rok32f* s, Rok32f* d, int n, bool stream = false, RowsAfter next = {});

// ---- 8u, 16u, 16s with scale factor (s may equal d) ----
// d = the integer nearest sqrt(s) * 2^-sf (ties, which only perfect squares
// reach, to even), saturated; negative samples give 0.
template <class T>
void sqrt_row(const T* s, T* d, int n, int sf);
// d = the integer nearest ln(s) * 2^-sf, saturated; 0 gives the type's
// minimum (the saturated -infinity), negative samples give 0. Returns the
// warnings as the float row does.
template <class T>
RokStatus ln_row(const T* s, T* d, int n, int sf);

// The integer exponential depends on the sample only within a window of
// 16 consecutive values: below it every result is values[0], above it
// values[15]. exp_window computes it once per call for a scale factor.
template <class T>
struct ExpWindow {
    int lo;       // sample value of values[0]
    T values[16]; // the results for lo .. lo + 15
};
template <class T>
ExpWindow<T> exp_window(int sf);
// d = the integer nearest e^s * 2^-sf (ties to even), saturated.
template <class T>
void exp_row(const T* s, T* d, int n, const ExpWindow<T>& window);

}  // namespace rok::kernels
