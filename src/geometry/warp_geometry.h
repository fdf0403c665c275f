// Plane geometry of the warps, without pixels: the three kinds of transform,
// the corners of a rectangle, the convexity test, transforms fitted to
// quadrangles, and the cut of a quadrangle against the destination box into
// one span of pixels per row. Coordinates put pixel centres on integers.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::geometry {

enum class MapKind { Affine, Perspective, Bilinear };

// One transform of the plane:
//   affine       x' = c00 x + c01 y + c02,  y' = c10 x + c11 y + c12
//   perspective  x' = (c00 x + c01 y + c02) / (c20 x + c21 y + c22), y' likewise
//   bilinear     x' = c00 xy + c01 x + c02 y + c03,  y' likewise with row 1
struct PlaneMap {
    MapKind kind;
    double c[3][4];

    // Maps (x, y); false where the map is undefined (a perspective
    // denominator of 0).
    bool apply(double x, double y, double* X, double* Y) const;
};

PlaneMap affine_map(const double* c);       // 2 x 3, row-major
PlaneMap perspective_map(const double* c);  // 3 x 3
PlaneMap bilinear_map(const double* c);     // 2 x 4

// The equality test of the singularity and parallelogram checks: with
// |p| <= 1e-200, |q| <= 1e-10; otherwise |(p - q) / p| <= 1e-10. Values that
// are not finite count as equal, so a transform made of them is singular.
bool nearly_equal(double p, double q);

// Any coefficient that is not a finite number; then, affine: p = c00 c11 and
// q = c01 c10 nearly equal; perspective: the determinant nearly cancels, its
// three first-row terms tested as p = t0 and q = -(t1 + t2). Bilinear maps
// have no further test.
bool singular(const PlaneMap& m);

// The inverse of an affine or perspective map that is not singular (the
// perspective one as the adjugate, which has the same ratios).
PlaneMap inverse(const PlaneMap& m);

// The corners of a rectangle: (x, y), (x + w - 1, y), (x + w - 1, y + h - 1),
// (x, y + h - 1).
void rect_corners(RokiRect r, double q[4][2]);

enum class Shape { Convex, NonConvex, Degenerate };

// The four cross products d0..d3 at the vertices: any of them 0 (or not a
// finite number) is degenerate, differing signs are not convex.
Shape quad_shape(const double q[4][2]);

// Maps the corners of `rect` into q; false if a corner has no image.
bool map_corners(const PlaneMap& m, RokiRect rect, double q[4][2]);

// Transforms fitted to quadrangles. Each returns false where none can be
// formed (the vertices it divides by are degenerate).
//  affine: vertices 0, 1 and 3 of `s` onto those of `d`; *fits tells whether
//  vertex 2 lands on d's vertex 2 (nearly_equal in each coordinate).
bool affine_fit(const double s[4][2], const double d[4][2], PlaneMap* out, bool* fits);
//  perspective: the map taking the four vertices of `s` onto those of `d`.
bool perspective_fit(const double s[4][2], const double d[4][2], PlaneMap* out);
//  bilinear: the map taking the four vertices of `s` onto those of `d`
//  (two systems of four equations in xy, x, y, 1).
bool bilinear_fit(const double s[4][2], const double d[4][2], PlaneMap* out);

// The bilinear map's preimage of (X, Y): of the (at most two) points that
// map there, the one nearest the box [bx0, bx1] x [by0, by1] (0 inside it);
// false when the map reaches no such point.
bool bilinear_preimage(const PlaneMap& m, double X, double Y, double bx0, double by0, double bx1, double by1,
                       double* x, double* y);

// The quadrangle cut, as a polygon, against the closed box [x0, x1] x
// [y0, y1]: rows ceil(ymin) .. floor(ymax) of what is left. False when that
// range is empty or floor(xmax) < ceil(xmin): no pixel is covered.
struct Cut {
    double v[8][2];
    int count;
    int firstRow, lastRow;
};
bool cut_quad(const double q[4][2], double x0, double y0, double x1, double y1, Cut* out);

// Fills spans[2r], spans[2r + 1] with the first and last column of the
// pixels whose centres lie inside the cut polygon on row firstRow + r, within
// columns [boxX0, boxX1] (left > right on a row without any).
void fill_spans(const Cut& cut, int boxX0, int boxX1, std::int32_t* spans);

}  // namespace rok::geometry
