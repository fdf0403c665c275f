// Row and block kernels that reorder samples: channel swaps, mirrored rows
// and transposed blocks. Samples are addressed by width only.
#pragma once

#include <cstdint>

namespace rok::kernels {

// Channel reorder of n pixels from SC to DC samples; destination channels
// 0..NP-1 are written, any others are left alone. For destination channel k
// the action is `order[k]`: below SC copies that source channel, equal to SC
// writes `fill`, above SC leaves the destination sample unchanged. Each pixel
// is read whole before it is written, so src == dst is allowed.
template <class U, int SC, int DC, int NP>
void reorder_channels(const U* src, U* dst, int n, const int* order, U fill);

// dst pixel i = src pixel n-1-i, pixels of PB bytes (alpha kept when
// KeepAlpha). src and dst must not overlap.
template <int PB, bool KeepAlpha>
void reverse_pixels(const std::uint8_t* src, std::uint8_t* dst, int n);

// Reverses the pixel order of one row in place.
template <int PB, bool KeepAlpha>
void reverse_pixels_inplace(std::uint8_t* row, int n);

// Swaps the two rows a and b in place, pixel by pixel (alpha kept when
// KeepAlpha), n pixels.
template <int PB, bool KeepAlpha>
void swap_rows(std::uint8_t* a, std::uint8_t* b, int n);

// As swap_rows, with each row reversed as well: a[i] <-> b[n-1-i].
template <int PB, bool KeepAlpha>
void swap_rows_reversed(std::uint8_t* a, std::uint8_t* b, int n);

// Transposes a block of w x h pixels of PB bytes: dst row x, pixel y =
// src row y, pixel x.
template <int PB>
void transpose_block(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, int w, int h);

// Transposes a w x h pixel region by recursive halving of its longer side
// down to 32-pixel tiles: the cache-oblivious order for images larger than
// the cache.
template <int PB>
void transpose_recursive(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, int w, int h);

// In-place transpose step in one image of step `step`: exchanges pixel
// (r, c) of the rows x cols block at a with pixel (c, r) of the block at b;
// when a == b (a square block on the diagonal) it transposes that block.
// rows and cols are at most 32.
template <int PB>
void transpose_swap_blocks(std::uint8_t* a, std::uint8_t* b, int step, int rows, int cols);

}  // namespace rok::kernels
