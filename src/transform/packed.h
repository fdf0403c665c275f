// Functions on packed spectra: products (MulPack, MulPackConj), magnitude
// and phase, and the conversions between the packed layout and the full
// complex spectrum. Each walks the rows once on the calling thread; the
// column elements of pixel 0 and (even W) W-1 pair up vertically, so they
// are taken a pair of rows at a time.
#pragma once

#include <cfenv>

#include "convert/rounding.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "kernels/transform/spectrum.h"

namespace rok::transform {

namespace detail {

// d = a * b (or a * conj b) over the whole packed image, a pair of rows at
// a time so that the column elements are taken while their rows are still
// in cache (a second pass over the image for them costs a miss per row).
template <class T, Layout L, class Param>
void multiply(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, Param param) {
    namespace ks = kernels::spectrum;
    constexpr int nc = channels(L), pc = processed_channels(L);
    const int w = roi.width, h = roi.height;
    auto inner = [&](int y) { ks::mul_inner(row(a, as, y), row(b, bs, y), row(d, ds, y), w, nc, pc, param); };
    auto real = [&](int y) {
        inner(y);
        if constexpr (std::is_same_v<T, Rok32f>)
            ks::mul_real(row(a, as, y), row(b, bs, y), row(d, ds, y), w, nc, pc);
        else
            ks::mul_real(row(a, as, y), row(b, bs, y), row(d, ds, y), w, nc, pc, param);
    };
    real(0);
    for (int k = 1; 2 * k < h; ++k) {
        inner(2 * k - 1);
        inner(2 * k);
        ks::mul_columns(row(a, as, 2 * k - 1), row(a, as, 2 * k), row(b, bs, 2 * k - 1), row(b, bs, 2 * k),
                        row(d, ds, 2 * k - 1), row(d, ds, 2 * k), w, nc, pc, param);
    }
    if (h % 2 == 0 && h > 1) real(h - 1);
}

// Where output row y of the full spectrum finds its values (see
// kernels::spectrum::Sources).
template <class T>
kernels::spectrum::Sources<T> sources(const T* src, int step, int h, int y) {
    kernels::spectrum::Sources<T> s{row(src, step, y), row(src, step, (h - y) % h), nullptr, nullptr, false};
    if (y == 0) {
        s.colRe = row(src, step, 0);
    } else if (2 * y < h) {
        s.colRe = row(src, step, 2 * y - 1);
        s.colIm = row(src, step, 2 * y);
    } else if (2 * y == h) {
        s.colRe = row(src, step, h - 1);
    } else {
        s.colRe = row(src, step, 2 * (h - y) - 1);
        s.colIm = row(src, step, 2 * (h - y));
        s.colConj = true;
    }
    return s;
}

template <class S, class D>
RokStatus checks(const S* src, int ss, const D* dst, int ds, RokiSize roi) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    return rokStatusOk;
}

}  // namespace detail

// Out of place and in place (srcDst = src * srcDst).
template <class T, Layout L, bool InPlace = false>
RokStatus mul_pack(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int scaleFactor = 0) {
    if (any_null(a, b, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(as, bs, ds)) return rokStatusBadStep;
    if constexpr (std::is_same_v<T, Rok32f>)
        detail::multiply<T, L>(a, as, b, bs, d, ds, roi, false);
    else
        detail::multiply<T, L>(a, as, b, bs, d, ds, roi, scaleFactor);
    return rokStatusOk;
}

// src1 * conj(src2). The in-place form conjugates srcDst: srcDst = src *
// conj(srcDst). A destination that is a source (same pointer and step) runs
// the in-place form with the other source, so with the first source as
// destination the result is src2 * conj(src1), the conjugate of what a
// separate destination receives.
template <Layout L, bool InPlace = false>
RokStatus mul_pack_conj(const Rok32f* a, int as, const Rok32f* b, int bs, Rok32f* d, int ds, RokiSize roi) {
    if (any_null(a, b, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(as, bs, ds)) return rokStatusBadStep;
    if (!InPlace && d == a && ds == as)
        detail::multiply<Rok32f, L>(b, bs, d, ds, d, ds, roi, true);
    else
        detail::multiply<Rok32f, L>(a, as, b, bs, d, ds, roi, true);
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus magnitude_pack(const T* src, int ss, T* dst, int ds, RokiSize roi, int scaleFactor = 0) {
    if (RokStatus s = detail::checks(src, ss, dst, ds, roi); s != rokStatusOk) return s;
    for (int y = 0; y < roi.height; ++y) {
        const auto s = detail::sources(src, ss, roi.height, y);
        if constexpr (std::is_same_v<T, Rok32f>)
            kernels::spectrum::magnitude_row(s, row(dst, ds, y), roi.width, channels(L));
        else
            kernels::spectrum::magnitude_row(s, row(dst, ds, y), roi.width, channels(L), scaleFactor);
    }
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus phase_pack(const T* src, int ss, T* dst, int ds, RokiSize roi, int scaleFactor = 0) {
    if (RokStatus s = detail::checks(src, ss, dst, ds, roi); s != rokStatusOk) return s;
    const convert::RoundingGuard nearest(FE_TONEAREST);
    for (int y = 0; y < roi.height; ++y) {
        const auto s = detail::sources(src, ss, roi.height, y);
        if constexpr (std::is_same_v<T, Rok32f>)
            kernels::spectrum::phase_row(s, row(dst, ds, y), roi.width, channels(L));
        else
            kernels::spectrum::phase_row(s, row(dst, ds, y), roi.width, channels(L), scaleFactor);
    }
    return rokStatusOk;
}

template <class T, class C>
RokStatus pack_to_cplx_extend(const T* src, int ss, RokiSize roi, C* dst, int ds) {
    if (RokStatus s = detail::checks(src, ss, dst, ds, roi); s != rokStatusOk) return s;
    for (int y = 0; y < roi.height; ++y)
        kernels::spectrum::extend_row(detail::sources(src, ss, roi.height, y), row(dst, ds, y), roi.width, 1);
    return rokStatusOk;
}

// Packed row y takes its column elements from complex row (y + 1) / 2 (real
// part, odd y and row 0) or y / 2 (imaginary part, even y >= 2).
template <class C, class T, Layout L>
RokStatus cplx_extend_to_pack(const C* src, int ss, RokiSize roi, T* dst, int ds) {
    if (RokStatus s = detail::checks(src, ss, dst, ds, roi); s != rokStatusOk) return s;
    for (int y = 0; y < roi.height; ++y) {
        const bool imag = y > 0 && y % 2 == 0;
        kernels::spectrum::pack_row(row(src, ss, y), row(src, ss, imag ? y / 2 : (y + 1) / 2), imag, row(dst, ds, y),
                                    roi.width, channels(L));
    }
    return rokStatusOk;
}

}  // namespace rok::transform
