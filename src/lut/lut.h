// Piecewise look-up tables (constant, linear, cubic) given by levels and
// values per channel. Integer images get a full table over their sample
// range, built first and then applied; float images evaluate the curve per
// sample.
#pragma once

#include "frame/generated/roki_types.h"
#include "frame/layout.h"
#include "kernels/lut/lut.h"

namespace rok::lut {

using kernels::LutShape;

// Levels and values are signed 32-bit for integer images, float for float.
template <class T>
struct LevelOf {
    using type = Rok32s;
};
template <>
struct LevelOf<Rok32f> {
    using type = Rok32f;
};
template <class T>
using Level = typename LevelOf<T>::type;

// Checks, in order: null pointers (images, the per-channel arrays and each
// processed channel's values and levels), ROI size, steps below 1, then
// fewer than 2 levels in any processed channel. 16-bit tables (128 KiB per
// channel) come from the core allocator: rokStatusNoMemory when it fails.
template <class T, Layout L>
RokStatus piecewise(LutShape shape, const T* src, int srcStep, T* dst, int dstStep, RokiSize roi,
                    const Level<T>* const* values, const Level<T>* const* levels, const int* nLevels);

// The three families, as the entry points name them.
template <class T, Layout L, class... A>
RokStatus constant(A... a) {
    return piecewise<T, L>(LutShape::Constant, a...);
}
template <class T, Layout L, class... A>
RokStatus linear(A... a) {
    return piecewise<T, L>(LutShape::Linear, a...);
}
template <class T, Layout L, class... A>
RokStatus cubic(A... a) {
    return piecewise<T, L>(LutShape::Cubic, a...);
}

// Entry v - min(T) of `table` gets what sample v maps to, for every v of
// T's range (T is Rok8u, Rok16u or Rok16s).
template <class T>
void build_table(LutShape shape, const Rok32s* values, const Rok32s* levels, int n, T* table);

// Applies one 256-entry table per processed channel to an 8-bit image
// (shared with the palettes). Identical tables take the shuffle kernel.
template <Layout L>
void apply_8u(const Rok8u* src, int srcStep, Rok8u* dst, int dstStep, RokiSize roi, const Rok8u (*tables)[256]);

}  // namespace rok::lut
