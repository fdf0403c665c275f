// Every piecewise look-up export wrapped to one calling convention, and the
// references the tests hold them to.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "roki.h"

namespace rokt::lut {

enum class Shape { Constant, Linear, Cubic };

template <class T>
using Level = std::conditional_t<std::is_same_v<T, Rok32f>, Rok32f, Rok32s>;

// In-place wrappers ignore the source and work on the destination.
template <class T>
using Call = std::function<RokStatus(const T* s, int ss, T* d, int ds, RokiSize roi, const Level<T>* const* values,
                                     const Level<T>* const* levels, const int* n)>;

template <class T>
struct Member {
    std::string name;
    Shape shape;
    int nc, outs;
    bool inPlace;
    Call<T> fn;
};

template <class T, class F>
Call<T> one(F f) {
    return [f](const T* s, int ss, T* d, int ds, RokiSize r, const Level<T>* const* v, const Level<T>* const* l,
               const int* n) { return f(s, ss, d, ds, r, v[0], l[0], n[0]); };
}
template <class T, class F>
Call<T> one_in_place(F f) {
    return [f](const T*, int, T* d, int ds, RokiSize r, const Level<T>* const* v, const Level<T>* const* l,
               const int* n) { return f(d, ds, r, v[0], l[0], n[0]); };
}
template <class T, class F>
Call<T> many(F f) {
    return [f](const T* s, int ss, T* d, int ds, RokiSize r, const Level<T>* const* v, const Level<T>* const* l,
               const int* n) { return f(s, ss, d, ds, r, v, l, n); };
}
template <class T, class F>
Call<T> many_in_place(F f) {
    return [f](const T*, int, T* d, int ds, RokiSize r, const Level<T>* const* v, const Level<T>* const* l,
               const int* n) { return f(d, ds, r, v, l, n); };
}

#define ROK_LUT_FAMILY(F, shape, t, T)                                                      \
    {#F "_" #t "_C1R", shape, 1, 1, false, one<T>(roki##F##_##t##_C1R)},                    \
    {#F "_" #t "_C1IR", shape, 1, 1, true, one_in_place<T>(roki##F##_##t##_C1IR)},          \
    {#F "_" #t "_C3R", shape, 3, 3, false, many<T>(roki##F##_##t##_C3R)},                   \
    {#F "_" #t "_C3IR", shape, 3, 3, true, many_in_place<T>(roki##F##_##t##_C3IR)},         \
    {#F "_" #t "_C4R", shape, 4, 4, false, many<T>(roki##F##_##t##_C4R)},                   \
    {#F "_" #t "_C4IR", shape, 4, 4, true, many_in_place<T>(roki##F##_##t##_C4IR)},         \
    {#F "_" #t "_AC4R", shape, 4, 3, false, many<T>(roki##F##_##t##_AC4R)},                 \
    {#F "_" #t "_AC4IR", shape, 4, 3, true, many_in_place<T>(roki##F##_##t##_AC4IR)}

#define ROK_LUT_TYPE(t, T)                                          \
    template <>                                                     \
    inline std::vector<Member<T>> members<T>() {                    \
        return {ROK_LUT_FAMILY(LUT, Shape::Constant, t, T),         \
                ROK_LUT_FAMILY(LUT_Linear, Shape::Linear, t, T),    \
                ROK_LUT_FAMILY(LUT_Cubic, Shape::Cubic, t, T)};     \
    }

template <class T>
std::vector<Member<T>> members();
ROK_LUT_TYPE(8u, Rok8u)
ROK_LUT_TYPE(16u, Rok16u)
ROK_LUT_TYPE(16s, Rok16s)
ROK_LUT_TYPE(32f, Rok32f)
#undef ROK_LUT_TYPE
#undef ROK_LUT_FAMILY

// The cubic through four points in Lagrange form, term i = (y_i * prod(x -
// x_m)) / prod(x_i - x_m), terms added in order; NaN when two x coincide.
inline double lagrange(const double* xs, const double* ys, double x) {
    double p = 0;
    for (int i = 0; i < 4; ++i) {
        double num = 1, den = 1;
        for (int m = 0; m < 4; ++m)
            if (m != i) {
                num *= x - xs[m];
                den *= xs[i] - xs[m];
            }
        if (den == 0) return std::nan("");
        p += ys[i] * num / den;
    }
    return p;
}

// The curve value of interval k at x, before any rounding to the sample type:
// the constant, the linear piece (integer rule: with the 0.5 folded into the
// intercept), or the cubic (NaN when it does not exist).
template <class V>
double piece_value(Shape shape, const V* levels, const V* values, int n, int k, double x, bool integerRule) {
    if (shape == Shape::Constant) return double(values[k]);
    if (shape == Shape::Cubic && n >= 4) {
        int j = k - 1 < 0 ? 0 : k - 1;
        if (j > n - 4) j = n - 4;
        double xs[4], ys[4];
        for (int i = 0; i < 4; ++i) {
            xs[i] = double(levels[j + i]);
            ys[i] = double(values[j + i]);
        }
        const double p = lagrange(xs, ys, x);
        if (!std::isnan(p)) return integerRule ? p + 0.5 : p;
    }
    const double s = (double(values[k + 1]) - double(values[k])) / (double(levels[k + 1]) - double(levels[k]));
    if (integerRule) return (double(values[k]) + 0.5 - double(levels[k]) * s) + s * x;
    return double(values[k]) + s * (x - double(levels[k]));
}

// Integer images: what sample v maps to. At or above the last level, or in
// no interval: v itself; otherwise the last interval that holds v decides
// (later intervals overwrite earlier ones), its value truncated and clamped.
template <class T>
T integer_map(Shape shape, const Rok32s* levels, const Rok32s* values, int n, std::int64_t v) {
    if (v >= levels[n - 1]) return T(v);
    int k = -1;
    for (int i = 0; i + 1 < n; ++i)
        if (levels[i] <= v && v < levels[i + 1]) k = i;
    if (k < 0) return T(v);
    const double y = piece_value(shape, levels, values, n, k, double(v), true);
    const double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    if (shape == Shape::Constant) return T(y < lo ? lo : y > hi ? hi : y);
    return T(y < lo ? lo : y > hi ? hi : std::trunc(y));
}

// Float images: the first interval that holds x, evaluated in double and
// rounded once; x itself when none does.
inline float float_map(Shape shape, const Rok32f* levels, const Rok32f* values, int n, float x) {
    for (int k = 0; k + 1 < n; ++k)
        if (levels[k] <= x && x < levels[k + 1]) return float(piece_value(shape, levels, values, n, k, x, false));
    return x;
}

}  // namespace rokt::lut
