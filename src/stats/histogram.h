// Histograms over caller levels (HistogramRange) or evenly spaced integer
// levels (HistogramEven). Bin k counts levels[k] <= x < levels[k + 1].
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"
#include "frame/layout.h"

namespace rok::stats {

// Levels are signed 32-bit for integer images, float for float images.
template <class T>
struct HistLevelOf {
    using type = Rok32s;
};
template <>
struct HistLevelOf<Rok32f> {
    using type = Rok32f;
};
template <class T>
using HistLevel = typename HistLevelOf<T>::type;

// How a 16-bit or float channel is counted. All four give the same counts;
// they differ in speed, and the table needs 256 KiB from the core allocator.
enum class HistMethod { LinearSearch, BinarySearch, BruteForce, Table };

// 16-bit images, by the ROI's pixel count and the number of levels; the
// searches need strictly increasing levels.
HistMethod method_16(std::int64_t pixels, int nLevels, bool increasing);
// Float images.
HistMethod method_32f(int nLevels, bool increasing);

// levels[k] for k = 0 .. n - 1: lower, then steps of (upper - lower) / (n - 1)
// truncated, the first |remainder| steps one unit longer (one unit shorter
// when upper < lower), so the last level is upper.
void even_levels(Rok32s* levels, int n, Rok32s lower, Rok32s upper);

template <class T, Layout L>
RokStatus histogram_range(const T* src, int step, RokiSize roi, Rok32s* const* hist,
                          const HistLevel<T>* const* levels, const int* nLevels);

template <class T, Layout L>
RokStatus histogram_even(const T* src, int step, RokiSize roi, Rok32s* const* hist, Rok32s* const* levels,
                         const int* nLevels, const Rok32s* lower, const Rok32s* upper);

}  // namespace rok::stats
