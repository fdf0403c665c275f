// Counting kernels of the histograms. Each walks one channel (or, for the
// 256-bin counts, every channel) of a ROI of w pixels by h rows of nc
// interleaved samples at `step` bytes; p points at the channel's first sample.
// Bin k holds levels[k] <= x < levels[k + 1]. Counts are added to what the
// caller's arrays hold, in unsigned 32-bit arithmetic.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// counts[c][v] += the number of samples of channel c (c < processed) equal
// to v.
void histogram_8u(const Rok8u* p, int step, int w, int h, int nc, int processed, std::uint32_t (*counts)[256]);

// One channel: atLeast[i] += the number of samples x >= thresholds[i], for
// up to 16 thresholds in 1..255 (compares of 32 samples at once).
constexpr int kMaxAtLeast8u = 16;
void count_at_least_8u(const Rok8u* p, int step, int w, int h, const Rok8u* thresholds, int m, std::uint64_t* atLeast);

// counts[v ^ flip] += 1 for every 16-bit sample v (flip 0x8000 orders signed
// samples); counts holds 65536 entries.
void histogram_16(const std::uint16_t* p, int step, int w, int h, int nc, unsigned flip, std::uint32_t* counts);

// Bins by a forward search from the first interval (levels increasing).
void bins_linear(const Rok16s* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins);
void bins_linear(const Rok16u* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins);
void bins_linear(const Rok32f* p, int step, int w, int h, int nc, const Rok32f* levels, int n, std::uint32_t* bins);

// Bins by binary search (levels increasing). Float levels narrow the search
// first by a table of equal buckets over their range, when such a table of
// at most a few thousand entries can hold at most one level per bucket.
void bins_binary(const Rok16s* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins);
void bins_binary(const Rok16u* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins);
void bins_binary(const Rok32f* p, int step, int w, int h, int nc, const Rok32f* levels, int n, std::uint32_t* bins);

// Every bin whose interval holds the sample counts it (any levels: with
// overlapping or decreasing levels a sample counts in several bins or none).
void bins_brute(const Rok16s* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins);
void bins_brute(const Rok16u* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins);
void bins_brute(const Rok32f* p, int step, int w, int h, int nc, const Rok32f* levels, int n, std::uint32_t* bins);

// One float channel, levels increasing: atLeast[k] += the number of samples
// x >= levels[k] (NaN never counts), eight samples per compare.
void count_at_least_32f(const Rok32f* p, int step, int w, int h, int nc, const Rok32f* levels, int n,
                        std::uint64_t* atLeast);

}  // namespace rok::kernels
