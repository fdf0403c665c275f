// Vector blocks of the per-pixel interpolation: eight destination pixels at
// a time, for the sample types, layouts and methods that have one. Internal
// to the kernels.
#pragma once

#include "kernels/geometry/pixel_interp.h"

namespace rok::kernels::pixel {

// Computes the eight pixels at xs[0..7], ys[0..7] into dst and returns true
// when every tap they read lies inside the box (so the rule needs no edge
// treatment); returns false, writing nothing, otherwise.
template <class T, class P>
using Block = bool (*)(const PixelSource<T>& src, const P* xs, const P* ys, T* dst);

// The block for this source and rule, or null where there is none.
template <class T, class P>
Block<T, P> fast_block(const PixelSource<T>& src, const PixelRule& rule);

}  // namespace rok::kernels::pixel
