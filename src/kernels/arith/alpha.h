// Alpha premultiplication of four-channel pixels whose fourth sample is
// alpha. The product of a colour sample c and an alpha a is the MulScale
// rule (t + 1 + (t >> bits)) >> bits with t = c * a, bits 8 or 16.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// Channels 0..2 of each pixel times the pixel's own alpha; the alpha goes to
// the destination as it was. 8u and 16u; s may equal d.
template <class T>
void premultiply_ac4(const T* s, T* d, int pixels);

// Channels 0..2 of each pixel times `alpha`; the destination alpha is set to
// `alpha`. 8u and 16u; s may equal d.
template <class T>
void premultiply_ac4_by(const T* s, T alpha, T* d, int pixels);

}  // namespace rok::kernels
