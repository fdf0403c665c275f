// The per-pixel interpolation rule, one pixel at a time: the statement that
// the vector blocks of pixel_fast.cpp reproduce operation for operation.
// Internal to the kernels.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "frame/generated/roki_types.h"
#include "geometry/interp.h"
#include "kernels/geometry/pixel_interp.h"

namespace rok::kernels::pixel {

template <class T>
using Work = std::conditional_t<std::is_same_v<T, Rok64f>, double, float>;

// Bilinear weights of 8-bit samples: fractions in 14 bits.
constexpr int kFracBits = 14;
constexpr int kOne = 1 << kFracBits;

template <class T>
inline const T* at(const PixelSource<T>& s, int x, int y) {
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(s.origin) + s.step * y) + std::ptrdiff_t(x) * s.nc;
}

inline int clamp_to(int i, int lo, int hi) { return i < lo ? lo : (i > hi ? hi : i); }

// Whether the position is used, after moving it onto the box for the warps
// (anything not a number goes to the box's first column or row).
template <class T, class P>
inline bool place(const PixelSource<T>& s, const PixelRule& r, P& x, P& y) {
    const P lx = P(s.x0), hx = P(s.x1), ly = P(s.y0), hy = P(s.y1);
    if (r.keepOutside) return x >= lx && x <= hx && y >= ly && y <= hy;
    x = x >= lx ? (x <= hx ? x : hx) : lx;
    y = y >= ly ? (y <= hy ? y : hy) : ly;
    return true;
}

// Nearest neighbour: the closer centre, the lower one on a tie.
template <class P>
inline int nearest(P x) {
    return int(std::ceil(x - P(0.5)));
}

// Bilinear: i = floor(x), moved back by one on the box's last column (when
// the box has two columns or more); t = x - i.
template <class P>
inline int linear_index(P x, int lo, int hi, P* t) {
    int i = int(std::floor(x));
    if (i >= hi && hi > lo) i = hi - 1;
    *t = x - P(i);
    return i;
}

// Weights of the taps at -1, 0, 1, 2 for a fraction t, in factored forms
// that are exactly (0, 1, 0, 0) at t = 0: the Lagrange cubic through the
// four taps (4), and Catmull-Rom (6).
template <class W>
inline void cubic_weights(int method, W t, W* w) {
    if (method == rok::geometry::kCubic) {
        const W a = t + W(1), b = t - W(1), c = t - W(2);
        w[0] = -(t * b * c) * W(1.0 / 6.0);
        w[1] = a * b * c * W(0.5);
        w[2] = -(a * t * c) * W(0.5);
        w[3] = a * t * b * W(1.0 / 6.0);
    } else {
        const W s = W(1) - t;
        w[0] = W(-0.5) * t * s * s;
        w[1] = (W(1.5) * t - W(2.5)) * t * t + W(1);
        w[2] = ((W(-1.5) * t + W(2)) * t + W(0.5)) * t;
        w[3] = W(-0.5) * t * t * s;
    }
}

// Coverage of the smooth edge along one axis: 1 from half a pixel inside.
template <class P>
inline P cover(P x, int lo, int hi) {
    const P d = std::fmin(x - P(lo), P(hi) - x);
    const P c = P(0.5) + d;
    return c < P(1) ? c : P(1);
}

template <class T, class W>
inline T to_sample(W v) {
    if constexpr (std::is_floating_point_v<T>) {
        return T(v);
    } else {
        constexpr W lo = W(std::numeric_limits<T>::min()), hi = W(std::numeric_limits<T>::max());
        v = std::nearbyint(v);
        v = v < lo ? lo : v;
        v = v > hi ? hi : v;
        return T(v);
    }
}

// 8-bit bilinear in fixed point: one row across, then the two rows.
inline int fixed_row(int a, int b, int fx) { return (a * (kOne - fx) + b * fx + 128) >> 8; }
inline int fixed_rows(int h0, int h1, int fy) {
    const int v = (h0 * (kOne - fy) + h1 * fy + (1 << 19)) >> 20;
    return v > 255 ? 255 : v;
}
template <class P>
inline int fixed_fraction(P t) {
    return int(std::nearbyint(t * P(kOne)));
}

// K taps per axis from columns cols[] and rows rows[]: each row summed
// across in order, then the rows.
template <class T, class W, int K>
inline W separable(const PixelSource<T>& s, const int* cols, const int* rows, const W* wx, const W* wy, int ch) {
    W v = W(0);
    for (int r = 0; r < K; ++r) {
        const T* row = at(s, 0, rows[r]);
        W h = wx[0] * W(row[std::ptrdiff_t(cols[0]) * s.nc + ch]);
        for (int k = 1; k < K; ++k) h = h + wx[k] * W(row[std::ptrdiff_t(cols[k]) * s.nc + ch]);
        v = r == 0 ? wy[0] * h : v + wy[r] * h;
    }
    return v;
}

template <class T, class W, class P, int K>
inline void kernel_taps(const PixelSource<T>& s, int method, P x, P y, W* v) {
    const int first = K == 6 ? -2 : -1;
    const int ix = int(std::floor(x)), iy = int(std::floor(y));
    const W tx = W(x - P(ix)), ty = W(y - P(iy));
    W wx[K], wy[K];
    if constexpr (K == 6) {
        double dx[6], dy[6];
        rok::geometry::tap_weights(rok::geometry::kLanczos, double(tx), dx);
        rok::geometry::tap_weights(rok::geometry::kLanczos, double(ty), dy);
        for (int k = 0; k < 6; ++k) wx[k] = W(dx[k]), wy[k] = W(dy[k]);
    } else {
        cubic_weights(method, tx, wx);
        cubic_weights(method, ty, wy);
    }
    int cols[K], rows[K];
    for (int k = 0; k < K; ++k) {
        cols[k] = clamp_to(ix + first + k, s.x0, s.x1);
        rows[k] = clamp_to(iy + first + k, s.y0, s.y1);
    }
    for (int ch = 0; ch < s.nc; ++ch) v[ch] = separable<T, W, K>(s, cols, rows, wx, wy, ch);
}

// One destination pixel d at position (x, y).
template <class T, class P>
inline void pixel(const PixelSource<T>& s, const PixelRule& r, P x, P y, T* d) {
    using W = Work<T>;
    if (!place(s, r, x, y)) return;
    const int nc = s.nc;
    W v[4];
    switch (r.method) {
        case rok::geometry::kNearest: {
            const T* p = at(s, clamp_to(nearest(x), s.x0, s.x1), clamp_to(nearest(y), s.y0, s.y1));
            if (!r.smooth) {
                for (int ch = 0; ch < nc; ++ch) d[ch] = p[ch];
                return;
            }
            for (int ch = 0; ch < nc; ++ch) v[ch] = W(p[ch]);
            break;
        }
        case rok::geometry::kLinear: {
            P tx, ty;
            const int ix = linear_index(x, s.x0, s.x1, &tx), iy = linear_index(y, s.y0, s.y1, &ty);
            const int jx = ix < s.x1 ? ix + 1 : ix, jy = iy < s.y1 ? iy + 1 : iy;
            const T *a = at(s, ix, iy), *b = at(s, jx, iy), *c = at(s, ix, jy), *e = at(s, jx, jy);
            if constexpr (std::is_same_v<T, Rok8u>) {
                const int fx = fixed_fraction(tx), fy = fixed_fraction(ty);
                for (int ch = 0; ch < nc; ++ch)
                    v[ch] = W(fixed_rows(fixed_row(a[ch], b[ch], fx), fixed_row(c[ch], e[ch], fx), fy));
            } else {
                const W wx = W(tx), wy = W(ty);
                for (int ch = 0; ch < nc; ++ch) {
                    const W h0 = W(a[ch]) + (W(b[ch]) - W(a[ch])) * wx;
                    const W h1 = W(c[ch]) + (W(e[ch]) - W(c[ch])) * wx;
                    v[ch] = h0 + (h1 - h0) * wy;
                }
            }
            break;
        }
        case rok::geometry::kLanczos: kernel_taps<T, W, P, 6>(s, r.method, x, y, v); break;
        default: kernel_taps<T, W, P, 4>(s, r.method, x, y, v); break;
    }
    if (r.smooth) {
        const W c = W(cover(x, s.x0, s.x1) * cover(y, s.y0, s.y1));
        if (c < W(1))
            for (int ch = 0; ch < nc; ++ch) v[ch] = v[ch] * c + W(d[ch]) * (W(1) - c);
    }
    for (int ch = 0; ch < nc; ++ch) d[ch] = to_sample<T, W>(v[ch]);
}

}  // namespace rok::kernels::pixel
