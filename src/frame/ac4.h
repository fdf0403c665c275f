// AC4 through a stack block: a four-channel kernel computes up to 1024
// samples into the block and only channels 0..2 go to the destination, so no
// family needs a second kernel to keep the alpha channel untouched.
#pragma once

#include <algorithm>

#include "kernels/copy/channels.h"

namespace rok {

constexpr int kAc4BlockPixels = 256;

// kernel(T* block, int firstPixel, int pixels) writes `pixels` four-channel
// results for the pixels starting at firstPixel into block.
template <class T, class Kernel>
void ac4_row(T* dst, int pixels, Kernel&& kernel) {
    alignas(64) T block[kAc4BlockPixels * 4];
    for (int x = 0; x < pixels; x += kAc4BlockPixels) {
        const int n = std::min(kAc4BlockPixels, pixels - x);
        kernel(block, x, n);
        kernels::copy_ac4(block, dst + 4 * x, n, sizeof(T));
    }
}

// As ac4_row for a kernel that computes two destination rows at once:
// kernel(block0, block1, firstPixel, pixels).
template <class T, class Kernel>
void ac4_row_pair(T* dst0, T* dst1, int pixels, Kernel&& kernel) {
    alignas(64) T block0[kAc4BlockPixels * 4];
    alignas(64) T block1[kAc4BlockPixels * 4];
    for (int x = 0; x < pixels; x += kAc4BlockPixels) {
        const int n = std::min(kAc4BlockPixels, pixels - x);
        kernel(block0, block1, x, n);
        kernels::copy_ac4(block0, dst0 + 4 * x, n, sizeof(T));
        kernels::copy_ac4(block1, dst1 + 4 * x, n, sizeof(T));
    }
}

}  // namespace rok
