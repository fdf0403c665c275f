// Sample comparisons into 8-bit masks, and the fold of a pixel's channel
// masks into one mask byte.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// The comparison codes 0..4 of the public enumeration, and |a - b| <= eps.
enum class CompareKind { Less = 0, LessEq = 1, Eq = 2, GreaterEq = 3, Greater = 4, EqualEps = 5 };

// out[i] = 255 where a[i] OP b[i] holds, else 0, for n samples. Greater and
// GreaterEq are Less and LessEq with the operands exchanged. Floats compare
// as IEEE does: a NaN operand (or NaN difference for EqualEps, which only
// 32f has) makes every test false. eps is used by EqualEps alone.
template <class T>
void compare_samples(const T* a, const T* b, Rok8u* out, int n, CompareKind kind, float eps);

// dst[p] = 255 where masks[channels * p + k] is 255 for every k < `tested`, else 0,
// for `pixels` pixels of `channels` (3 or 4) masks each; tested is 3 or 4.
// Mask bytes are 0 or 255.
void fold_masks(const Rok8u* masks, Rok8u* dst, int pixels, int channels, int tested);

}  // namespace rok::kernels
