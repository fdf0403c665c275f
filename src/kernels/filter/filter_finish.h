// Finishing rules of the general linear filters: turn a row of sums into
// destination samples.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// How an exact 32-bit integer sum s becomes a result before saturation.
enum class IntFinish {
    Saturate,       // divisor 1
    ShiftEven,      // s / 2^shift, ties to even (arithmetic shift, 32-bit wrap)
    Reciprocal,     // float(s) * reciprocal in single precision, nearest, ties to even
    TruncShift,     // s / 2^shift toward zero
    TruncDivide,    // s / divisor toward zero (integer division)
    DoubleEven,     // s / divisor in double precision, nearest, ties to even
    HalfAwayShift,  // s / 2^shift, ties away from zero
    HalfAwayDivide, // s / divisor in double precision, ties away from zero
};

struct IntRule {
    IntFinish kind = IntFinish::Saturate;
    int shift = 0;
    int divisor = 1;
    float reciprocal = 1.0f;
};

void filter_finish(const std::int32_t* acc, int n, const IntRule& rule, Rok8u* dst);
void filter_finish(const std::int32_t* acc, int n, const IntRule& rule, Rok16s* dst);
void filter_finish(const std::int32_t* acc, int n, const IntRule& rule, Rok16u* dst);

// Rounding of a single-precision sum to an integer type, then saturation.
enum class FloatFinish { Truncate = 0, NearestEven = 1, HalfAway = 2 };

void filter_finish(const float* acc, int n, FloatFinish mode, Rok8u* dst);
void filter_finish(const float* acc, int n, FloatFinish mode, Rok8s* dst);
void filter_finish(const float* acc, int n, FloatFinish mode, Rok16s* dst);
void filter_finish(const float* acc, int n, FloatFinish mode, Rok16u* dst);
void filter_finish(const float* acc, int n, FloatFinish mode, Rok32s* dst);

}  // namespace rok::kernels
