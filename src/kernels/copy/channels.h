// Channel-moving row kernels shared by every family.
#pragma once

#include <cstddef>

namespace rok::kernels {

// Copies channels 0..2 of n four-channel pixels of `sampleBytes`-byte samples
// from src to dst; dst's fourth channel is never written.
void copy_ac4(const void* src, void* dst, int n, std::size_t sampleBytes);

}  // namespace rok::kernels
