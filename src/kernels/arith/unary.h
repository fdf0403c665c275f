// One-operand row kernels: absolute value and the sign-magnitude complement.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// d = |s|: 16s saturates (-32768 gives 32767), 32f clears the sign bit (NaNs
// keep their payload). s may equal d.
template <class T>
void abs_row(const T* s, T* d, int n);

// Two's complement to sign and magnitude: x >= 0 stays, x < 0 becomes the
// sign bit with -x in bits 0..30 (-2147483648 keeps its pattern). s may
// equal d.
void complement_row(const Rok32s* s, Rok32s* d, int n);

}  // namespace rok::kernels
