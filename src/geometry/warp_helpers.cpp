// The geometry functions of the warps: quadrangles, bounding boxes and
// transforms of a rectangle, the rotation shifts, without pixels.
#include <algorithm>
#include <cmath>

#include "geometry/warp.h"

namespace rok::geometry {

namespace {

bool bad_rect(RokiRect r) { return r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1; }

PlaneMap map_of(MapKind k, const double* c) {
    return k == MapKind::Affine ? affine_map(c) : k == MapKind::Perspective ? perspective_map(c) : bilinear_map(c);
}

// The quadrangle of srcRoi under m, written whatever its shape: -56 when it
// is degenerate or not convex (or a corner has no image).
RokStatus quad_of(const PlaneMap& m, RokiRect srcRoi, double quad[4][2]) {
    if (!map_corners(m, srcRoi, quad)) {
        for (int k = 0; k < 4; ++k) quad[k][0] = quad[k][1] = NAN;
        return rokStatusBadQuad;
    }
    return quad_shape(quad) == Shape::Convex ? rokStatusOk : rokStatusBadQuad;
}

void bound_of(const double q[4][2], double bound[2][2]) {
    bound[0][0] = std::min({q[0][0], q[1][0], q[2][0], q[3][0]});
    bound[0][1] = std::min({q[0][1], q[1][1], q[2][1], q[3][1]});
    bound[1][0] = std::max({q[0][0], q[1][0], q[2][0], q[3][0]});
    bound[1][1] = std::max({q[0][1], q[1][1], q[2][1], q[3][1]});
}

RokStatus rotate_map(double angle, double xShift, double yShift, PlaneMap* m) {
    if (!std::isfinite(angle) || !std::isfinite(xShift) || !std::isfinite(yShift)) return rokStatusOutOfRange;
    double a, c, s;
    rotation(angle, &a, &c, &s);
    const double k[6] = {c, s, xShift, -s, c, yShift};
    *m = affine_map(k);
    return rokStatusOk;
}

PlaneMap shear_map(double xShear, double yShear, double xShift, double yShift) {
    const double k[6] = {1.0, xShear, xShift, yShear, 1.0, yShift};
    return affine_map(k);
}

RokStatus bound_from(RokStatus quadStatus, const double q[4][2], double bound[2][2]) {
    bound_of(q, bound);
    return quadStatus;
}

}  // namespace

template <MapKind K, int R, int C>
RokStatus get_quad(RokiRect srcRoi, double quad[4][2], const double coeffs[R][C]) {
    if (!quad || !coeffs) return rokStatusNullPtr;
    if (bad_rect(srcRoi)) return rokStatusBadSize;
    return quad_of(map_of(K, &coeffs[0][0]), srcRoi, quad);
}

template <MapKind K, int R, int C>
RokStatus get_bound(RokiRect srcRoi, double bound[2][2], const double coeffs[R][C]) {
    if (!bound || !coeffs) return rokStatusNullPtr;
    if (bad_rect(srcRoi)) return rokStatusBadSize;
    double q[4][2];
    return bound_from(quad_of(map_of(K, &coeffs[0][0]), srcRoi, q), q, bound);
}

template <MapKind K, int R, int C>
RokStatus get_transform(RokiRect srcRoi, const double quad[4][2], double coeffs[R][C]) {
    if (!quad || !coeffs) return rokStatusNullPtr;
    if (bad_rect(srcRoi)) return rokStatusBadSize;
    if (quad_shape(quad) != Shape::Convex) return rokStatusBadCoeffs;
    if (srcRoi.width == 1 || srcRoi.height == 1) return rokStatusBadRect;
    double corners[4][2];
    rect_corners(srcRoi, corners);
    PlaneMap m;
    bool fits = true;
    const bool solved = K == MapKind::Affine ? affine_fit(corners, quad, &m, &fits)
                        : K == MapKind::Perspective ? perspective_fit(corners, quad, &m)
                                                    : bilinear_fit(corners, quad, &m);
    if (!solved) return rokStatusBadCoeffs;
    for (int r = 0; r < R; ++r)
        for (int c = 0; c < C; ++c) coeffs[r][c] = m.c[r][c];
    return fits ? rokStatusOk : rokStatusQuadNotParallelogram;
}

template RokStatus get_quad<MapKind::Affine, 2, 3>(RokiRect, double[4][2], const double[2][3]);
template RokStatus get_quad<MapKind::Perspective, 3, 3>(RokiRect, double[4][2], const double[3][3]);
template RokStatus get_quad<MapKind::Bilinear, 2, 4>(RokiRect, double[4][2], const double[2][4]);
template RokStatus get_bound<MapKind::Affine, 2, 3>(RokiRect, double[2][2], const double[2][3]);
template RokStatus get_bound<MapKind::Perspective, 3, 3>(RokiRect, double[2][2], const double[3][3]);
template RokStatus get_bound<MapKind::Bilinear, 2, 4>(RokiRect, double[2][2], const double[2][4]);
template RokStatus get_transform<MapKind::Affine, 2, 3>(RokiRect, const double[4][2], double[2][3]);
template RokStatus get_transform<MapKind::Perspective, 3, 3>(RokiRect, const double[4][2], double[3][3]);
template RokStatus get_transform<MapKind::Bilinear, 2, 4>(RokiRect, const double[4][2], double[2][4]);

RokStatus get_rotate_quad(RokiRect srcRoi, double quad[4][2], double angle, double xShift, double yShift) {
    if (!quad) return rokStatusNullPtr;
    if (bad_rect(srcRoi)) return rokStatusBadSize;
    PlaneMap m;
    if (RokStatus s = rotate_map(angle, xShift, yShift, &m)) return s;
    return quad_of(m, srcRoi, quad);
}

RokStatus get_rotate_bound(RokiRect srcRoi, double bound[2][2], double angle, double xShift, double yShift) {
    if (!bound) return rokStatusNullPtr;
    if (bad_rect(srcRoi)) return rokStatusBadSize;
    PlaneMap m;
    if (RokStatus s = rotate_map(angle, xShift, yShift, &m)) return s;
    double q[4][2];
    return bound_from(quad_of(m, srcRoi, q), q, bound);
}

RokStatus get_rotate_shift(double xCenter, double yCenter, double angle, double* xShift, double* yShift) {
    if (!xShift || !yShift) return rokStatusNullPtr;
    if (!std::isfinite(xCenter) || !std::isfinite(yCenter) || !std::isfinite(angle)) return rokStatusOutOfRange;
    double a, c, s;
    rotation(angle, &a, &c, &s);
    // The shifts that keep the centre in place; exact at the quarter turns,
    // where c and s are exactly 0 and +-1.
    *xShift = xCenter - xCenter * c - yCenter * s;
    *yShift = yCenter - yCenter * c + xCenter * s;
    return rokStatusOk;
}

RokStatus add_rotate_shift(double xCenter, double yCenter, double angle, double* xShift, double* yShift) {
    double dx, dy;
    if (!xShift || !yShift) return rokStatusNullPtr;
    if (RokStatus s = get_rotate_shift(xCenter, yCenter, angle, &dx, &dy)) return s;
    *xShift += dx;
    *yShift += dy;
    return rokStatusOk;
}

RokStatus get_shear_quad(RokiRect srcRoi, double quad[4][2], double xShear, double yShear, double xShift,
                         double yShift) {
    if (!quad) return rokStatusNullPtr;
    if (bad_rect(srcRoi)) return rokStatusBadSize;
    return quad_of(shear_map(xShear, yShear, xShift, yShift), srcRoi, quad);
}

RokStatus get_shear_bound(RokiRect srcRoi, double bound[2][2], double xShear, double yShear, double xShift,
                          double yShift) {
    if (!bound) return rokStatusNullPtr;
    if (bad_rect(srcRoi)) return rokStatusBadSize;
    double q[4][2];
    return bound_from(quad_of(shear_map(xShear, yShear, xShift, yShift), srcRoi, q), q, bound);
}

}  // namespace rok::geometry
