// Pixel-repeating fill used by the border extension.
#pragma once

#include <cstddef>

namespace rok::kernels {

// Writes `count` copies of the pixel at `pixel` (pixelBytes bytes, at most 16)
// to dst, one after the other. Only the first writeBytes bytes of each pixel
// are written (writeBytes < pixelBytes leaves the tail of every destination
// pixel untouched: the alpha of AC4). `pixel` may lie in the same row as dst
// but must not overlap the run being written.
void fill_pixels(void* dst, const void* pixel, int pixelBytes, int writeBytes, int count);

// Copies n bytes between non-overlapping ranges (one image row).
void copy_row_bytes(void* dst, const void* src, std::size_t n);

// One middle row of a replicated border, whole pixels of pixelBytes bytes:
// copies n pixels from src (unless src is null: already in place) to
// d + left pixels, then repeats the first of them over the left pixels
// and the last over the right pixels.
void replicate_row(void* d, const void* src, int left, int n, int right, int pixelBytes);

}  // namespace rok::kernels
