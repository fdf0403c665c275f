// Warps, rotation and shear: the exports' templates, which only describe the
// call (images, transform, interpolation) to the one frame in warp.cpp, and
// the geometry functions of warp_helpers.cpp.
#pragma once

#include "frame/generated/roki_types.h"
#include "frame/layout.h"
#include "geometry/resize.h"
#include "geometry/warp_geometry.h"

namespace rok::geometry {

// The images of one call: plane pointers (one for the interleaved layouts).
struct WarpImages {
    const void* src[4];
    void* dst[4];
    bool srcGiven, dstGiven;  // the pointer (or the array of plane pointers) is not null
    int planes;
    RokiSize srcSize;
    int srcStep;
    RokiRect srcRoi;
    int dstStep;
    RokiRect dstRoi;
    SampleType type;
    int nc;    // samples per pixel in memory (1 per plane for the planar layouts)
    bool ac4;  // the fourth sample of each pixel is left alone
};

template <class T, Layout L>
struct Interleaved {
    using Src = const T*;
    using Dst = T*;
    static WarpImages images(Src s, RokiSize ss, int sst, RokiRect sr, Dst d, int dst, RokiRect dr) {
        return {{s}, {d}, s != nullptr, d != nullptr, 1, ss, sst, sr, dst, dr, sample_type_of<T>(), channels(L),
                L == Layout::AC4};
    }
};

template <class T, int P>
struct Planar {
    using Src = const T* const*;
    using Dst = T* const*;
    static WarpImages images(Src s, RokiSize ss, int sst, RokiRect sr, Dst d, int dst, RokiRect dr) {
        WarpImages im{{}, {}, s != nullptr, d != nullptr, P, ss, sst, sr, dst, dr, sample_type_of<T>(), 1, false};
        for (int p = 0; p < P; ++p) {
            if (s) im.src[p] = s[p];
            if (d) im.dst[p] = d[p];
        }
        return im;
    }
};

// What maps the source to the destination.
enum class WarpForm { Forward, Back, Quad, Rotate, RotateCenter, Shear };
struct WarpRequest {
    WarpForm form;
    MapKind kind;
    const double* coeffs;   // Forward and Back: the coefficients, row-major
    const double* srcQuad;  // Quad
    const double* dstQuad;
    double p[4];  // Rotate: angle, xShift, yShift; RotateCenter: angle, xCenter, yCenter; Shear: xShear, yShear, xShift, yShift
};

RokStatus warp(const WarpImages& images, const WarpRequest& request, int interpolation);

#define ROK_WARP_ARGS                                                                                      \
    typename I::Src pSrc, RokiSize srcSize, int srcStep, RokiRect srcRoi, typename I::Dst pDst, int dstStep, \
        RokiRect dstRoi
#define ROK_WARP_IMAGES I::images(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoi)

template <class I, MapKind K, WarpForm F, int R, int C>
RokStatus warp_coeffs(ROK_WARP_ARGS, const double coeffs[R][C], int interpolation) {
    return warp(ROK_WARP_IMAGES, {F, K, coeffs ? &coeffs[0][0] : nullptr, nullptr, nullptr, {}}, interpolation);
}

template <class I, MapKind K>
RokStatus warp_quad(ROK_WARP_ARGS, const double srcQuad[4][2], const double dstQuad[4][2], int interpolation) {
    return warp(ROK_WARP_IMAGES,
                {WarpForm::Quad, K, nullptr, srcQuad ? &srcQuad[0][0] : nullptr, dstQuad ? &dstQuad[0][0] : nullptr, {}},
                interpolation);
}

// Rotate (angle, xShift, yShift) and RotateCenter (angle, xCenter, yCenter).
template <class I, WarpForm F>
RokStatus warp_rotate(ROK_WARP_ARGS, double angle, double a, double b, int interpolation) {
    return warp(ROK_WARP_IMAGES, {F, MapKind::Affine, nullptr, nullptr, nullptr, {angle, a, b, 0.0}}, interpolation);
}

template <class I>
RokStatus warp_shear(ROK_WARP_ARGS, double xShear, double yShear, double xShift, double yShift, int interpolation) {
    return warp(ROK_WARP_IMAGES, {WarpForm::Shear, MapKind::Affine, nullptr, nullptr, nullptr,
                                  {xShear, yShear, xShift, yShift}},
                interpolation);
}

#undef ROK_WARP_ARGS
#undef ROK_WARP_IMAGES

// ---- geometry functions (no pixels) ----

// The angle reduced to [0, 360) and its cosine and sine, exact at the
// quarter turns.
void rotation(double angle, double* reduced, double* c, double* s);

template <MapKind K, int R, int C>
RokStatus get_quad(RokiRect srcRoi, double quad[4][2], const double coeffs[R][C]);
template <MapKind K, int R, int C>
RokStatus get_bound(RokiRect srcRoi, double bound[2][2], const double coeffs[R][C]);
template <MapKind K, int R, int C>
RokStatus get_transform(RokiRect srcRoi, const double quad[4][2], double coeffs[R][C]);

RokStatus get_rotate_quad(RokiRect srcRoi, double quad[4][2], double angle, double xShift, double yShift);
RokStatus get_rotate_bound(RokiRect srcRoi, double bound[2][2], double angle, double xShift, double yShift);
RokStatus get_rotate_shift(double xCenter, double yCenter, double angle, double* xShift, double* yShift);
RokStatus add_rotate_shift(double xCenter, double yCenter, double angle, double* xShift, double* yShift);
RokStatus get_shear_quad(RokiRect srcRoi, double quad[4][2], double xShear, double yShear, double xShift,
                         double yShift);
RokStatus get_shear_bound(RokiRect srcRoi, double bound[2][2], double xShear, double yShear, double xShift,
                          double yShift);

}  // namespace rok::geometry
