// Vector blocks of the per-pixel interpolation: eight destination pixels at
// a time, for the sample types, layouts and methods that have one. Internal
// to the kernels.
#pragma once

#include "kernels/geometry/pixel_interp.h"

namespace rok::kernels::pixel {

// Interpolates n pixels: each block of eight whose taps (and the bytes the
// vector loads read with them) all lie inside the box goes through the
// vector body, every other pixel through the rule of pixel_rules.h, with the
// same results. Returns false, doing nothing, where no vector body serves
// this source and rule.
template <class T, class P>
bool fast_row(const PixelSource<T>& src, const PixelRule& rule, const P* xs, const P* ys, int n, T* dst);

// The same for the positions of a warp's map along a row (interpolate_row),
// generated in the registers.
template <class T>
bool fast_map_row(const PixelSource<T>& src, const PixelRule& rule, const RowMap& map, int x, int n, T* dst);

}  // namespace rok::kernels::pixel
