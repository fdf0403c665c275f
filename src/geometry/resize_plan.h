// The working record of one resize call, filled once by the preparation
// step (resize.cpp) and read by the row engines (resize_engine.cpp).
#pragma once

#include <cstddef>
#include <cstdint>

#include "geometry/resize.h"

namespace rok::geometry {

struct ResizeRecord {
    // Destination region of fully computed pixels (destination image coordinates).
    std::int32_t x, y, width, height;
    double invX, invY;     // 1 / xFactor, 1 / yFactor
    double offX, offY;     // -xShift / xFactor, -yShift / yFactor
    double area;           // xFactor * yFactor for super-sampling, 0 otherwise
    double x0, x1, y0, y1; // unrounded bounds of the mapped source rectangle, cut to dstRoi
    std::uint32_t method;  // after the small-image rule
    std::uint32_t smooth, subpixel, antialias;  // the flag bits, masked
};

struct ResizePlan {
    ResizeRecord rec;
    const ResizeArgs* args;
    // Region written: rec's region plus, for the smooth and sub-pixel edges,
    // the partly covered pixels round it (cov* > 0 where there is one).
    int ox, oy, ow, oh;
    float covLeft, covRight, covTop, covBottom;
    // Effective source rectangle [sx0, sx1) x [sy0, sy1).
    int sx0, sx1, sy0, sy1;
    // Per-thread slice of the caller's buffer, and the team size.
    std::size_t sliceBytes;
    int team;

    // Source positions of region column x and row y (pixel centres on
    // integers), and the pixel-edge coordinate where region column x begins.
    double col_pos(int x) const { return cols().at(x); }
    double row_pos(int y) const { return rows().at(y); }
    Positions cols() const { return {ox, rec.invX, rec.offX}; }
    Positions rows() const { return {oy, rec.invY, rec.offY}; }
    double col_edge(int x) const { return bounded(double(ox + x) * rec.invX + rec.offX); }
    double row_edge(int y) const { return bounded(double(oy + y) * rec.invY + rec.offY); }

    static double bounded(double v) { return bounded_position(v); }
};

// Runs the resize of a prepared plan for sample type T (resize_engine.cpp).
template <class T>
RokStatus run_resize(const ResizePlan& plan);

}  // namespace rok::geometry
