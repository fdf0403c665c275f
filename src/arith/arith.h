// Pixel arithmetic of two images or of an image and a constant. One template
// serves every operation: the operation tag picks the row kernel, the check
// order and the threading.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "frame/parallel.h"
#include "kernels/arith/arith.h"
#include "frame/generated/roki_types.h"

namespace rok::arith {

using kernels::ArithOp;

enum class Source { Image, Constant };

namespace detail {

template <class T> struct PartOf { using type = T; static constexpr bool complex = false; };
template <> struct PartOf<Rok16sc> { using type = Rok16s; static constexpr bool complex = true; };
template <> struct PartOf<Rok32sc> { using type = Rok32s; static constexpr bool complex = true; };
template <> struct PartOf<Rok32fc> { using type = Rok32f; static constexpr bool complex = true; };

template <class T>
constexpr bool is_zero(const T& v) {
    if constexpr (PartOf<T>::complex) return v.re == 0 && v.im == 0;
    else return v == 0;
}

// The constant of DivC is zero when re^2 + im^2 is, computed in the sample's
// own arithmetic (so a float constant whose square underflows counts as 0).
template <class T>
constexpr bool zero_constant(const T& v) {
    if constexpr (std::is_same_v<T, Rok32fc>) return v.re * v.re + v.im * v.im == 0.0f;
    else return is_zero(v);
}

// Largest magnitude of an exact integer result, per part; the scale factor
// from which every result rounds to 0 follows from it.
template <ArithOp Op, class T>
constexpr unsigned __int128 max_magnitude() {
    using P = typename PartOf<T>::type;
    using U = unsigned __int128;
    constexpr U m = -std::int64_t(std::numeric_limits<P>::min()) > std::int64_t(std::numeric_limits<P>::max())
                        ? U(-std::int64_t(std::numeric_limits<P>::min()))
                        : U(std::numeric_limits<P>::max());
    constexpr U parts = PartOf<T>::complex ? 2 : 1;
    if constexpr (Op == ArithOp::Add) return 2 * m;
    else if constexpr (Op == ArithOp::Sub) return std::is_signed_v<P> ? 2 * m : m;
    else if constexpr (Op == ArithOp::Mul) return parts * m * m;  // complex: |re| <= 2 m^2
    else return parts * m;  // a quotient by a non-zero integer: |q| <= |dividend|
}

// Smallest scale factor that rounds every result to 0: 2^(sf-1) >= max.
template <ArithOp Op, class T>
constexpr int zero_cutoff() {
    int sf = 1;
    while ((static_cast<unsigned __int128>(1) << (sf - 1)) < max_magnitude<Op, T>()) ++sf;
    return sf;
}

}  // namespace detail

// Which members open a parallel region over rows.
template <ArithOp Op, Source S, class T, Layout L, bool InPlace>
constexpr bool threaded_rows() {
    constexpr bool small_int = std::is_same_v<T, Rok8u> || std::is_same_v<T, Rok16s>;
    if constexpr (Op != ArithOp::Add && Op != ArithOp::Sub && Op != ArithOp::Mul) return false;
    else if constexpr (S == Source::Image) return small_int && L == Layout::C1;
    else return (small_int && (L == Layout::C1 || L == Layout::C3)) ||
                (std::is_same_v<T, Rok32f> && (L == Layout::C3 || (L == Layout::AC4 && InPlace)));
}

// Length from which a row's division kernel splits itself over two threads:
// the 32f image division, the 16s constant division and the 8u image
// division with scale factor (Div and Div_Round alike), in every layout.
template <ArithOp Op, Source S, class T>
constexpr int division_threshold() {
    if constexpr (Op != ArithOp::Div) return 0;
    else if constexpr (S == Source::Image && std::is_same_v<T, Rok8u>) return 1024;
    else if constexpr (S == Source::Image && std::is_same_v<T, Rok32f>) return 4096;
    else if constexpr (S == Source::Constant && std::is_same_v<T, Rok16s>) return 4096;
    else return 0;
}

// Writes zero into channels 0..2 (AC4) or every channel of the ROI.
template <class T, Layout L>
RokStatus fill_zero(T* d, int dStep, RokiSize roi) {
    constexpr int ch = channels(L);
    for (int y = 0; y < roi.height; ++y) {
        T* r = row(d, dStep, y);
        for (int x = 0; x < roi.width; ++x)
            for (int c = 0; c < processed_channels(L); ++c) r[x * ch + c] = T{};
    }
    return rokStatusOk;
}

// The row loop after the checks. s1 is the first operand: an image, or for
// Source::Constant the per-channel constants. Families that share an
// operation's kernel but not its threading (Sqr on Mul) say so by Threaded.
template <ArithOp Op, Source S, class T, Layout L, bool InPlace, bool Threaded = threaded_rows<Op, S, T, L, InPlace>()>
RokStatus run(const T* s1, int s1Step, const T* s2, int s2Step, T* d, int dStep, RokiSize roi, int sf, int mode) {
    constexpr int ch = channels(L);
    constexpr int kPattern = 1536;  // a multiple of 3 and 4, at least one AC4 block
    if constexpr (Op != ArithOp::Div && Op != ArithOp::MulScale && !kernels::is_logic(Op) &&
                  !std::is_floating_point_v<typename detail::PartOf<T>::type>) {
        if (sf >= detail::zero_cutoff<Op, T>()) return fill_zero<T, L>(d, dStep, roi);
    }
    T pattern[S == Source::Constant ? kPattern + 4 : 1];
    if constexpr (S == Source::Constant) {
        for (int i = 0; i < kPattern + 4; ++i) {
            const int c = i % ch;
            if (c < processed_channels(L)) pattern[i] = s1[c];
            else if constexpr (detail::PartOf<T>::complex) pattern[i] = T{1, 0};  // alpha lane: harmless divisor
            else pattern[i] = T(1);
        }
    }
    const int samples = roi.width * ch;
    // `count` samples from sample `off` of row y on; packed rows run on into
    // the next.
    auto samples_from = [&](int y, int off, int count) -> RokStatus {
        const T* a = S == Source::Image ? row(s1, s1Step, y) : pattern;
        const T* b = row(s2, s2Step, y);
        T* o = row(d, dStep, y);
        if constexpr (S == Source::Image) {
            return kernels::arith_row<Op, T>(a + off, b + off, o + off, count, sf, mode);
        } else if constexpr (Op == ArithOp::Div && std::is_same_v<T, Rok16s> && L == Layout::C1) {
            kernels::divide_by_constant(b + off, s1[0], o + off, count, sf);  // the constant is not 0
            return rokStatusOk;
        } else {
            RokStatus s = rokStatusOk;
            for (int i = off; i < off + count; i += kPattern) {
                const int n = std::min(kPattern, off + count - i);
                const RokStatus r = kernels::arith_row<Op, T>(a + i % ch, b + i, o + i, n, sf, mode);
                if (s == rokStatusOk) s = r;
            }
            return s;
        }
    };
    auto row_fn = [&](int y) -> RokStatus {
        if constexpr (L == Layout::AC4) {
            const T* a = S == Source::Image ? row(s1, s1Step, y) : pattern;
            const T* b = row(s2, s2Step, y);
            T* o = row(d, dStep, y);
            // Pixels [first, first + count) of the row.
            auto pixels = [&](int first, int count) -> RokStatus {
                ac4_row(o + 4 * first, count, [&](T* block, int x, int n) {
                    const int at = 4 * (first + x);
                    kernels::arith_row<Op, T>(S == Source::Image ? a + at : a, b + at, block, 4 * n, sf, mode);
                });
                if constexpr (Op == ArithOp::Div && S == Source::Image) {  // the alpha lane's divisor does not count
                    for (int x = first; x < first + count; ++x)
                        if (detail::is_zero(a[4 * x]) || detail::is_zero(a[4 * x + 1]) || detail::is_zero(a[4 * x + 2]))
                            return rokStatusDivByZero;
                }
                return rokStatusOk;
            };
            // A division kernel's length is its four samples per pixel; the
            // halves of a split row end on pixel boundaries.
            constexpr int threshold = division_threshold<Op, S, T>();
            if constexpr (threshold > 0)
                return threaded_1d(4 * roi.width, threshold, [&](int off, int count) {
                    return pixels(off / 4, (off + count) / 4 - off / 4);
                });
            else return pixels(0, roi.width);
        } else {
            constexpr int threshold = division_threshold<Op, S, T>();
            if constexpr (threshold > 0)
                return threaded_1d(samples, threshold, [&](int off, int count) { return samples_from(y, off, count); });
            else return samples_from(y, 0, samples);
        }
    };
    // Rows that follow one another without padding (the usual whole-image
    // call) go to the kernel in bands of 16 rows, one call per band: a short
    // row would pay a call and a loop start-up for little work. Division
    // keeps its rows, whose length decides its threading; AC4 keeps its
    // blocks. Results are the same either way.
    if constexpr (L != Layout::AC4 && Op != ArithOp::Div) {
        constexpr int kBand = 16;
        const long long packed = static_cast<long long>(samples) * sizeof(T);
        if (roi.height > 1 && s2Step == packed && dStep == packed && (S == Source::Constant || s1Step == packed) &&
            static_cast<long long>(samples) * roi.height <= std::numeric_limits<int>::max()) {
            auto band_fn = [&](int i) {
                const int y = i * kBand;
                return samples_from(y, 0, std::min(kBand, roi.height - y) * samples);
            };
            const int bands = (roi.height + kBand - 1) / kBand;
            if constexpr (Threaded) return parallel_rows(bands, band_fn);
            else return serial_rows(bands, band_fn);
        }
    }
    if constexpr (Threaded) return parallel_rows(roi.height, row_fn);
    else return serial_rows(roi.height, row_fn);
}

// ---- two images: (src1, src2) -> dst; in place: dst = srcDst op src ----

// Add, Sub, Mul: pointers and size only; any step is accepted.
template <ArithOp Op, class T, Layout L, bool InPlace>
RokStatus binary(const T* s1, int s1Step, const T* s2, int s2Step, T* d, int dStep, RokiSize roi, int sf) {
    if (any_null(s1, s2, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    return run<Op, Source::Image, T, L, InPlace>(s1, s1Step, s2, s2Step, d, dStep, roi, sf, rokRoundNearestEven);
}

template <class T, Layout L, bool I = false>
RokStatus add(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int sf) {
    return binary<ArithOp::Add, T, L, I>(a, as, b, bs, d, ds, roi, sf);
}
template <class T, Layout L, bool I = false>
RokStatus sub(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int sf) {
    return binary<ArithOp::Sub, T, L, I>(a, as, b, bs, d, ds, roi, sf);
}
template <class T, Layout L, bool I = false>
RokStatus mul(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int sf) {
    return binary<ArithOp::Mul, T, L, I>(a, as, b, bs, d, ds, roi, sf);
}

// Div: pointers, size, then every step.
template <class T, Layout L, bool I = false>
RokStatus div(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int sf) {
    if (any_null(a, b, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(as, bs, ds)) return rokStatusBadStep;
    return run<ArithOp::Div, Source::Image, T, L, I>(a, as, b, bs, d, ds, roi, sf, rokRoundNearestEven);
}

// Div_Round: as Div, then the rounding mode.
template <class T, Layout L, bool I = false>
RokStatus div_round(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int mode, int sf) {
    if (any_null(a, b, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(as, bs, ds)) return rokStatusBadStep;
    if (mode != rokRoundTruncate && mode != rokRoundNearestEven && mode != rokRoundHalfAway)
        return rokStatusBadRoundMode;
    return run<ArithOp::Div, Source::Image, T, L, I>(a, as, b, bs, d, ds, roi, sf, mode);
}

// MulScale: pointers, then steps before size.
template <class T, Layout L, bool I = false>
RokStatus mul_scale(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi) {
    if (any_null(a, b, d)) return rokStatusNullPtr;
    if (any_step_below_one(as, bs, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    return run<ArithOp::MulScale, Source::Image, T, L, I>(a, as, b, bs, d, ds, roi, 0, 0);
}

// ---- image and constant: dst = src op value; in place: srcDst op value ----

template <ArithOp Op, class T, Layout L, bool InPlace>
RokStatus with_constant(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int sf) {
    if (any_null(s, v, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    return run<Op, Source::Constant, T, L, InPlace>(v, 0, s, ss, d, ds, roi, sf, rokRoundNearestEven);
}

template <class T, Layout L, bool I = false>
RokStatus add_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int sf) {
    return with_constant<ArithOp::Add, T, L, I>(s, ss, v, d, ds, roi, sf);
}
template <class T, Layout L, bool I = false>
RokStatus sub_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int sf) {
    return with_constant<ArithOp::Sub, T, L, I>(s, ss, v, d, ds, roi, sf);
}
template <class T, Layout L, bool I = false>
RokStatus mul_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int sf) {
    return with_constant<ArithOp::Mul, T, L, I>(s, ss, v, d, ds, roi, sf);
}

// DivC: pointers, size, steps, then a zero constant (any channel) -10.
template <class T, Layout L, bool I = false>
RokStatus div_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int sf) {
    if (any_null(s, v, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    for (int c = 0; c < processed_channels(L); ++c)
        if (detail::zero_constant(v[c])) return rokStatusDivByZeroErr;
    if constexpr (!std::is_floating_point_v<typename detail::PartOf<T>::type>) {
        if (sf >= detail::zero_cutoff<ArithOp::Div, T>()) return fill_zero<T, L>(d, ds, roi);
    }
    return run<ArithOp::Div, Source::Constant, T, L, I>(v, 0, s, ss, d, ds, roi, sf, rokRoundNearestEven);
}

// MulCScale: pointers, steps, size.
template <class T, Layout L, bool I = false>
RokStatus mul_c_scale(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi) {
    if (any_null(s, v, d)) return rokStatusNullPtr;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    return run<ArithOp::MulScale, Source::Constant, T, L, I>(v, 0, s, ss, d, ds, roi, 0, 0);
}

}  // namespace rok::arith
