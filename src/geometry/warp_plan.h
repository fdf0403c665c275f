// What the warp frame (warp.cpp) hands the row engine (warp_engine.cpp) once
// every check has passed: the box of source positions, the map from
// destination to source, and the span of pixels to write on each row.
#pragma once

#include <cstdint>

#include "geometry/warp.h"
#include "geometry/warp_geometry.h"

namespace rok::geometry {

enum class Inverse {
    Affine,        // map: destination to source
    Perspective,   // map: destination to source (homogeneous)
    Bilinear,      // map: destination to source, a bilinear map (affine along each row)
    BilinearSolve  // map: the forward bilinear map, solved at every pixel
};

struct WarpPlan {
    const WarpImages* images;
    int method;
    bool smooth;
    int bx0, by0, bx1, by1;  // the source rectangle cut to the image, inclusive
    Inverse inverse;
    PlaneMap map;
    int firstRow, rows;
    const std::int32_t* spans;  // left and right column of each row; left > right on an empty row
    // -1: interpolate. 0..3: the exact path of the rotation by that many
    // quarter turns with whole shifts, which moves pixels.
    int quarter;
    long long shiftX, shiftY;
};

// Writes the spans of a prepared plan for sample type T (warp_engine.cpp).
template <class T>
void run_warp(const WarpPlan& plan);

}  // namespace rok::geometry
