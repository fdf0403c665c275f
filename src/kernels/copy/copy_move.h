// Row kernels that move bytes without interpreting them: the copy engine's
// row copies, masked copies and fills, channel-strided copies, planar
// conversions and duplication. Samples are addressed by width only (1, 2 or
// 4 bytes), so one kernel serves every type of that width. A pixel of PB
// bytes is a run of PB bytes; "keep alpha" means the last quarter of each
// pixel (the fourth sample) is never changed. Whole-pixel copies, masks and
// fills are in copy_move.cpp; the kernels that move single channels (one
// channel, planes, alpha, reorders, duplication) in copy_lanes.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rok::kernels {

// Ordinary-store copy of n bytes. Below 64 bytes it moves 32/16/8/4-byte
// pieces and a 1-3-byte tail; otherwise the destination is brought to a
// 16-byte boundary with one unaligned move and the rest goes in 64-byte
// blocks. src and dst must not overlap.
void copy_bytes(const void* src, void* dst, std::size_t n);

// Copy of n bytes with non-temporal (streaming) stores for every whole
// 64-byte line of the destination; the partial lines at either end use
// ordinary stores. The caller ends a run of such copies with store_fence().
void copy_bytes_streaming(const void* src, void* dst, std::size_t n);

// Ordinary stores; the destination is first brought to a 64-byte boundary by
// 1-, 2-, 4- and 8-byte moves, then the body goes in 64-byte blocks.
void copy_bytes_aligned64(const void* src, void* dst, std::size_t n);

// Orders the streaming stores before every later store.
void store_fence();

// For each of n pixels of PB bytes: where mask[i] != 0 the pixel is copied
// from src (keeping the destination's alpha when KeepAlpha); otherwise the
// destination pixel is left as it was. Mask bytes go 16 at a time: an
// all-zero block is passed over, an all-set block is stored whole, a mixed
// block is blended.
template <int PB, bool KeepAlpha>
void copy_masked(const std::uint8_t* src, std::uint8_t* dst, const std::uint8_t* mask, int n);

// As copy_masked, with every selected pixel set to the PB bytes at `pixel`.
template <int PB, bool KeepAlpha>
void set_masked(const std::uint8_t* pixel, std::uint8_t* dst, const std::uint8_t* mask, int n);

// Writes the PB bytes at `pixel` into each of n destination pixels (the
// destination's alpha kept when KeepAlpha). With `stream` (not with
// KeepAlpha) the whole 64-byte lines from the first pixel that starts one
// get streaming stores; the caller ends a run of such rows with
// store_fence().
template <int PB, bool KeepAlpha>
void set_pixels(const std::uint8_t* pixel, std::uint8_t* dst, int n, bool stream);

// Sample-strided copy of n samples: dst[i * DS] = src[i * SS]. Covers one
// channel to or from a C1 image and one channel between two images.
template <class U, int SS, int DS>
void copy_channel(const U* src, U* dst, int n);

// Writes `value` into every DS-th sample, n times (one channel of an image).
template <class U, int DS>
void set_channel(U value, U* dst, int n);

// Four-channel pixels to three-channel ones (alpha dropped) and back (the
// destination's alpha kept).
template <class U>
void copy_ac4_to_c3(const U* src, U* dst, int n);
template <class U>
void copy_c3_to_ac4(const U* src, U* dst, int n);

// Interleaved C-channel pixels to C planes, and back. With `stream` the
// whole 64-byte lines of the destination (all planes on the same line
// offset, for the split) are written with streaming stores; the caller
// ends a run of such rows with store_fence(). The rest use ordinary stores.
template <class U, int C>
void split_planes(const U* src, U* const* planes, int n, bool stream);
template <class U, int C>
void merge_planes(const U* const* planes, U* dst, int n, bool stream);

// The vector body of reorder_channels (copy_order.h): whole runs of pixels
// from the start of the row, as many as fit; returns how many pixels it
// reordered (the caller finishes the rest). Each run is read whole before it
// is written, so src == dst works when SC == DC.
template <class U, int SC, int DC, int NP>
int reorder_runs(const U* src, U* dst, int n, const int* order, U fill);

// Each of n samples of src written to all C channels of a destination pixel.
// With `stream`, whole destination lines get streaming stores, as in
// merge_planes (the caller fences).
template <int C>
void dup_channel(const std::uint8_t* src, std::uint8_t* dst, int n, bool stream);

}  // namespace rok::kernels
