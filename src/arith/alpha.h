// Alpha premultiplication: AlphaPremul (each pixel's own alpha) and
// AlphaPremulC (one alpha for the image). Colour samples are multiplied by
// the MulScale rule, so the C1, C3, C4 and AP4 colour planes run on the
// MulScale row loop; AC4 has its own kernels, since this family writes the
// destination alpha. Checks: null -8 (every plane pointer of AP4 forms,
// before the size), size -6; steps are not checked. All on the calling
// thread.
#pragma once

#include "arith/arith.h"
#include "copy/copy.h"
#include "copy/set.h"
#include "kernels/arith/alpha.h"

namespace rok::arith {

namespace detail {

template <class P>
bool any_null_plane(P* const* planes) {
    return !planes || !planes[0] || !planes[1] || !planes[2] || !planes[3];
}

}  // namespace detail

// AC4: channels 0..2 times the pixel's alpha; the alpha is written back as
// it was. The last argument is the shapes' scale-factor slot, unused.
template <class T, Layout L, bool I = false>
RokStatus alpha_premul(const T* s, int ss, T* d, int ds, RokiSize roi, int) {
    if (any_null(s, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    for (int y = 0; y < roi.height; ++y) kernels::premultiply_ac4(row(s, ss, y), row(d, ds, y), roi.width);
    return rokStatusOk;
}

// AP4: colour plane k = plane k times plane 3, for k = 0, 1, 2 in turn;
// then plane 3 is copied (in place it stays as it is).
template <class T, bool InPlace = false>
RokStatus alpha_premul_planes(const T* const* s, int ss, T* const* d, int ds, RokiSize roi) {
    if (detail::any_null_plane(s) || detail::any_null_plane(d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    for (int k = 0; k < 3; ++k)
        run<ArithOp::MulScale, Source::Image, T, Layout::C1, InPlace>(s[3], ss, s[k], ss, d[k], ds, roi, 0, 0);
    if constexpr (!InPlace) return copy::copy<T, Layout::C1>(s[3], ss, d[3], ds, roi);
    return rokStatusOk;
}

// C1, C3, C4: every sample times alpha (C4's fourth channel too); AC4:
// channels 0..2 times alpha, the destination alpha set to alpha.
template <class T, Layout L, bool I = false>
RokStatus alpha_premul_c(const T* s, int ss, T alpha, T* d, int ds, RokiSize roi) {
    if (any_null(s, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if constexpr (L == Layout::AC4) {
        for (int y = 0; y < roi.height; ++y) kernels::premultiply_ac4_by(row(s, ss, y), alpha, row(d, ds, y), roi.width);
        return rokStatusOk;
    } else {
        const T factors[4] = {alpha, alpha, alpha, alpha};
        return run<ArithOp::MulScale, Source::Constant, T, L, I>(factors, 0, s, ss, d, ds, roi, 0, 0);
    }
}

// AP4: colour planes times alpha, then destination plane 3 (the source's in
// place) filled with alpha through the image set.
template <class T, bool InPlace = false>
RokStatus alpha_premul_c_planes(const T* const* s, int ss, T alpha, T* const* d, int ds, RokiSize roi) {
    if (detail::any_null_plane(s) || detail::any_null_plane(d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    for (int k = 0; k < 3; ++k)
        run<ArithOp::MulScale, Source::Constant, T, Layout::C1, InPlace>(&alpha, 0, s[k], ss, d[k], ds, roi, 0, 0);
    return copy::set<T, Layout::C1>(&alpha, d[3], ds, roi);
}

}  // namespace rok::arith
