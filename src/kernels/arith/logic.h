// Bitwise logic over a run of bytes: the sample type does not matter, only
// the bytes do, so one kernel serves every sample width and layout.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/arith/arith.h"

namespace rok::kernels {

// d[i] = a[i] op b[i] for n bytes, op And, Or or Xor. b may equal d (in place).
template <ArithOp Op>
void logic_bytes(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* d, std::size_t n);

}  // namespace rok::kernels
