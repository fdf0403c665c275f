// The neighbourhood-extrema engine behind dilation, erosion and the minimum
// and maximum filters. A neighbourhood (a rectangle, or the non-zero entries
// of a caller's mask, laid as stored: entry (i, j) selects the source pixel
// i - anchor.x columns right and j - anchor.y rows below the output pixel) is
// split into vertical runs, the rows of one column that the neighbourhood
// selects together. Each distinct run is combined once per output row over
// every column the row needs (directly, by extending a shorter run it
// contains, or by van Herk/Gil-Werman running extrema down the image when it
// is tall, so that its cost does not grow with its height); runs that many
// adjacent columns share are widened by doubling passes; the output row is
// then the extremum of a few taps into those rows. A rectangle is one run and
// one horizontal span; a full 3x3 block has a fused kernel of its own that
// needs no scratch.
#pragma once

#include "frame/generated/roki_types.h"
#include "kernels/morph/extrema.h"

namespace rok::morph {

using kernels::Extremum;

// The images of one call: pointers at ROI pixel (0, 0). src == dst with equal
// steps asks for the in-place computation.
struct Frame {
    const void* src;
    int srcStep;
    void* dst;
    int dstStep;
    RokiSize roi;
    int channels;  // samples stored per pixel
    bool ac4;      // the destination's fourth sample is never written
};

// mask == nullptr: every entry of the size x size rectangle is selected.
// Otherwise at least one entry of the mask must be non-zero.
struct Neighbourhood {
    const Rok8u* mask;
    RokiSize size;
    RokiPoint anchor;
};

// Computes the extremum over the neighbourhood for every ROI pixel and
// channel. `threaded` lets an out-of-place call share its rows among the
// library's threads. The checks are the caller's; the only status of its own
// is rokStatusNoMemory, when scratch is needed and cannot be had (never for a
// full 3x3 block out of place).
template <class T, Extremum E>
RokStatus extrema(const Frame& frame, const Neighbourhood& nb, bool threaded);

// Whether every byte of a width x height mask is zero.
bool all_zero(const Rok8u* mask, RokiSize size);

}  // namespace rok::morph
