// The 8-bit median of any mask by sliding histograms, at a cost per output
// that does not grow with the mask. Every source column of a stripe keeps,
// per channel, the histogram of its samples in the mask's rows: 16 coarse
// bins (the high four bits) and 256 fine bins. Moving down a row subtracts
// the sample that leaves each column and adds the one that enters, shortly
// before that column enters the mask on the output row, so that it is
// still cached when it leaves the mask mw outputs later. Along the row the
// mask's histogram is the sum of its columns' histograms, updated by one
// column in and one out per output; the coarse bins give the 16 fine bins
// that hold the median, and those give the median.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// Count widths: masks of at most 255 samples count in bytes (the mask's
// whole fine histogram then fits in eight registers), larger masks in 16
// bits up to 65535 samples and in 32 bits above.
enum class HistCounts { Bytes, Words, Dwords };

constexpr HistCounts hist_counts_for(long long maskSamples) {
    return maskSamples <= 255 ? HistCounts::Bytes : maskSamples <= 65535 ? HistCounts::Words : HistCounts::Dwords;
}

// Column histograms of `columns` source columns of `stride`-sample pixels,
// for the first `channels` samples of each pixel.
struct HistColumns {
    void* counts;
    int columns;
    int channels;
    int stride;
    HistCounts kind;
};

std::size_t hist_columns_bytes(int columns, int channels, HistCounts kind);

// Empties every histogram.
void hist_clear(const HistColumns& h);

// Adds the samples of one source row (its first column at `row`).
void hist_add_row(const HistColumns& h, const Rok8u* row);

// Writes `width` output pixels: output x is the value of rank `rank`
// (1-based) of columns x .. x + maskWidth - 1, per channel, at dst[x *
// stride + channel]; other samples of dst are not written. With `leaving`
// and `entering` given, each column first drops its sample of row `leaving`
// and takes that of row `entering` (the mask moving down one row).
void hist_median_row(const HistColumns& h, const Rok8u* leaving, const Rok8u* entering, int maskWidth,
                     std::uint32_t rank, Rok8u* dst, int width);

}  // namespace rok::kernels
