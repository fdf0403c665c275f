// Bit shifts of a row by per-channel counts.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

enum class ShiftDir { Left, Right };

// d[i] = s[i] shifted by counts[i % channels] (channels 1, 3 or 4; the
// samples are interleaved channels starting at channel 0). Bits shifted out
// are lost; a left shift or an unsigned right shift by the bit width or more
// gives 0, a signed right shift by the bit width or more gives the sign fill
// (-1 for negative samples, 0 otherwise). Left: 8u, 16u, 32s; right: 8u, 8s,
// 16u, 16s, 32s. s may equal d (in place).
template <ShiftDir Dir, class T>
void shift_row(const T* s, T* d, int n, const std::uint32_t* counts, int channels);

}  // namespace rok::kernels
