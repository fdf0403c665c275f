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

// d[i] = s[i] op value[i % period] for n bytes: a constant of `period` bytes
// (one pixel: 1, 2, 3, 4, 6, 8, 12 or 16) repeated from the first byte. s may
// equal d.
template <ArithOp Op>
void logic_constant_bytes(const std::uint8_t* s, const std::uint8_t* value, int period, std::uint8_t* d,
                          std::size_t n);

}  // namespace rok::kernels
