// The 8-bit median of any mask by sliding histograms, at a cost per output
// that does not grow with the mask. Every source column of a stripe keeps,
// per channel, the histogram of its samples in the mask's rows: 16 coarse
// bins (the high four bits) and 256 fine bins. Moving down a row subtracts
// the sample that leaves each column and adds the one that enters. Along an
// output row the mask's coarse histogram is the sum of its columns' coarse
// histograms, updated by one column in and one out per pixel; the coarse bin
// that holds the median is found from it, and only that bin's 16 fine
// counts are brought up to date (from where that bin was last used, or
// summed afresh when that is cheaper) to find the median inside it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// Column histograms of `columns` source columns of `stride`-sample pixels,
// for the first `channels` samples of each pixel. Counts are 16-bit when the
// mask holds at most 65535 samples, 32-bit (`wide`) above.
struct HistColumns {
    void* counts;
    int columns;
    int channels;
    int stride;
    bool wide;
};

constexpr int kHistBins = 16 + 256;

std::size_t hist_columns_bytes(int columns, int channels, bool wide);

// Empties every histogram.
void hist_clear(const HistColumns& h);

// Adds the samples of one source row (its first column at `row`).
void hist_add_row(const HistColumns& h, const Rok8u* row);

// Removes the samples of row `leaving` and adds those of row `entering`.
void hist_slide(const HistColumns& h, const Rok8u* leaving, const Rok8u* entering);

// Writes `width` output pixels: output x is the value of rank `rank`
// (1-based) of columns x .. x + maskWidth - 1, per channel, at dst[x *
// stride + channel]; other samples of dst are not written.
void hist_median_row(const HistColumns& h, int maskWidth, std::uint32_t rank, Rok8u* dst, int width);

}  // namespace rok::kernels
