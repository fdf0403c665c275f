// Independent reference of the resize, written from its rules in double
// precision (bilinear in single precision, as its rule is stated); it
// never calls library code.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace rref {

struct Rect {
    int x, y, w, h;
};

struct Call {
    int srcW, srcH;
    Rect src, dst;
    double xf, yf, xs, ys;
    int method;
    bool smooth = false, subpixel = false, antialias = false;
};

// The method after the rule for small sources.
inline int effective_method(const Call& c) {
    const bool cubicOrLanczos = (c.method >= 4 && c.method <= 7) || c.method == 16;
    if (c.srcW >= 6 && c.srcH >= 6) return c.method;
    if (c.srcW < 4 || c.srcH < 4) return cubicOrLanczos ? 2 : c.method;
    return c.method == 16 ? 4 : c.method;
}

struct Region {
    int status;          // 0, 1 (nothing to do) or 29
    int x0, y0, x1, y1;  // fully computed pixels [x0, x1) x [y0, y1)
    double fx0, fx1, fy0, fy1;
};

inline Region region(const Call& c) {
    Region r{};
    if (c.src.x >= c.srcW || c.src.y >= c.srcH) return r.status = 29, r;
    const int w = std::min(c.srcW - c.src.x, c.src.w), h = std::min(c.srcH - c.src.y, c.src.h);
    r.fx0 = std::max(c.src.x * c.xf + c.xs, double(c.dst.x));
    r.fx1 = std::min((c.src.x + w) * c.xf + c.xs, double(c.dst.x + c.dst.w));
    r.fy0 = std::max(c.src.y * c.yf + c.ys, double(c.dst.y));
    r.fy1 = std::min((c.src.y + h) * c.yf + c.ys, double(c.dst.y + c.dst.h));
    double X0, X1, Y0, Y1;
    if (c.smooth || c.subpixel) {
        X0 = std::ceil(r.fx0 - 1e-10), Y0 = std::ceil(r.fy0 - 1e-10);
        X1 = std::floor(r.fx1 + 1e-10), Y1 = std::floor(r.fy1 + 1e-10);
    } else {
        X0 = std::trunc(r.fx0 + 0.4999999999), Y0 = std::trunc(r.fy0 + 0.4999999999);
        X1 = std::trunc(r.fx1 + 0.5000000001), Y1 = std::trunc(r.fy1 + 0.5000000001);
    }
    if (X0 >= X1 || Y0 >= Y1) return r.status = 1, r;
    r.x0 = int(X0), r.x1 = int(X1), r.y0 = int(Y0), r.y1 = int(Y1);
    return r;
}

// Kernels as their formulas are written.
inline double cubic(int method, double a) {
    if (a >= 2) return 0;
    switch (method) {
        case 4: return a < 1 ? 0.5 * a * a * a - a * a - 0.5 * a + 1 : -a * a * a / 6 + a * a - 11.0 / 6 * a + 1;
        case 5: return a < 1 ? 0.5 * a * a * a - a * a + 2.0 / 3 : -a * a * a / 6 + a * a - 2 * a + 4.0 / 3;
        case 6: return a < 1 ? 1.5 * a * a * a - 2.5 * a * a + 1 : -0.5 * a * a * a + 2.5 * a * a - 4 * a + 2;
        default: return a < 1 ? 0.95 * a * a * a - 1.7 * a * a + 5.0 / 6 : -23.0 / 60 * a * a * a + 2 * a * a - 3.4 * a + 28.0 / 15;
    }
}

// L(x) = 3 sin(pi x) sin(pi x / 3) / (pi x)^2, exactly 0 at whole x > 0.
inline double lanczos_exact(double x) {
    if (x == 0) return 1;
    if (x == std::floor(x)) return 0;
    const long double px = 3.14159265358979323846264338327950288L * x;
    return double(3 * std::sin(px) * std::sin(px / 3) / (px * px));
}

inline const std::vector<float>& lanczos_table() {
    static const std::vector<float> t = [] {
        std::vector<float> v(302, 0.0f);
        for (int i = 0; i <= 300; ++i) v[i] = float(lanczos_exact(i / 100.0));
        return v;
    }();
    return t;
}

inline double lanczos(double a) {
    const double x = std::min(a, 3.0) * 100;
    const int i = int(std::floor(x));
    const auto& t = lanczos_table();
    return t[i] + (t[i + 1] - double(t[i])) * (x - i);
}

inline int clampi(long long v, int lo, int hi) { return int(v < lo ? lo : v >= hi ? hi - 1 : v); }

// One axis of a separable method: taps (index, weight) of a position.
struct Taps {
    int n = 0;
    int index[8];
    double weight[8];
    float t = 0;  // bilinear
};

inline Taps axis_taps(int method, double pos, int lo, int hi) {
    Taps k;
    const long long i = (long long)std::floor(pos);
    k.t = float(pos - std::floor(pos));
    if (method == 2) {
        k.n = 2;
        k.index[0] = clampi(i, lo, hi), k.index[1] = clampi(i + 1, lo, hi);
        return k;
    }
    if (method == 16) {
        double sum = 0, v[6];
        for (int j = 0; j < 6; ++j) sum += v[j] = lanczos(std::fabs(j - 2 - double(k.t)));
        k.n = 6;
        for (int j = 0; j < 6; ++j) k.index[j] = clampi(i - 2 + j, lo, hi), k.weight[j] = float(v[j] / sum);
        return k;
    }
    k.n = 4;
    for (int j = 0; j < 4; ++j)
        k.index[j] = clampi(i - 1 + j, lo, hi), k.weight[j] = float(cubic(method, std::fabs(j - 1 - double(k.t))));
    return k;
}

// The image: sample (x, y, c) of an interleaved source.
template <class T>
struct Image {
    const T* base;
    long long step;  // bytes
    int nc;
    double at(int x, int y, int c) const {
        return double(reinterpret_cast<const T*>(reinterpret_cast<const char*>(base) + step * y)[std::size_t(x) * nc + c]);
    }
};

// Value of channel c at destination pixel (dx, dy), before rounding, and a
// bound of the rounding error of the library's float arithmetic.
template <class T>
double value(const Call& c, const Image<T>& img, int dx, int dy, int ch, double* slack) {
    const int method = effective_method(c);
    const int w = std::min(c.srcW - c.src.x, c.src.w), h = std::min(c.srcH - c.src.y, c.src.h);
    const int lx = c.src.x, hx = c.src.x + w, ly = c.src.y, hy = c.src.y + h;
    const double ix = 1 / c.xf, iy = 1 / c.yf, ox = -c.xs / c.xf, oy = -c.ys / c.yf;
    const double sx = (dx + 0.5) * ix + ox - 0.5, sy = (dy + 0.5) * iy + oy - 0.5;
    *slack = 0;
    if (method == 1)
        return img.at(clampi((long long)std::ceil(sx - 0.5), lx, hx), clampi((long long)std::ceil(sy - 0.5), ly, hy), ch);
    if (method == 8) {
        // Mean over the covered area, the area beyond the rectangle reading
        // its edge pixels.
        const double a0 = dx * ix + ox, a1 = (dx + 1) * ix + ox, b0 = dy * iy + oy, b1 = (dy + 1) * iy + oy;
        double sum = 0, mag = 0;
        bool whole = true;  // only whole pixels inside the rectangle
        for (long long v = (long long)std::floor(b0); v < b1; ++v) {
            const double wy = std::min(v + 1.0, b1) - std::max(double(v), b0);
            for (long long u = (long long)std::floor(a0); u < a1; ++u) {
                const double wx = std::min(u + 1.0, a1) - std::max(double(u), a0);
                const double s = img.at(clampi(u, lx, hx), clampi(v, ly, hy), ch);
                whole = whole && wx == 1 && wy == 1 && u >= lx && u < hx && v >= ly && v < hy;
                sum += wx * wy * s;
                mag += wx * wy * std::fabs(s);
            }
        }
        // Whole pixels and a power-of-two area: the float sum is exact too
        // for integer samples.
        const double area = ix * iy;
        const bool exact = whole && sizeof(T) <= 2 && area == std::exp2(std::round(std::log2(area))) && area <= 64;
        *slack = exact ? 0 : mag / area * 1e-5;
        return sum / area;
    }
    if (c.antialias && (ix > 1 || iy > 1)) {
        // A shrinking axis: the kernel stretched by the reduction over every
        // pixel in reach, weights divided by their sum; a growing one: the
        // method's own taps.
        auto taps = [&](double pos, double inv, int lo, int hi, std::vector<std::pair<int, double>>& out) {
            const int r = method == 2 ? 1 : method == 16 ? 3 : 2;
            out.clear();
            if (inv <= 1) {
                const Taps k = axis_taps(method, pos, lo, hi);
                for (int j = 0; j < k.n; ++j)
                    out.push_back({k.index[j], method == 2 ? (j ? double(k.t) : 1 - double(k.t)) : k.weight[j]});
                return;
            }
            const double s = inv;
            const long long j0 = (long long)std::ceil(pos - r * s), j1 = (long long)std::floor(pos + r * s);
            double total = 0;
            for (long long j = j0; j <= j1; ++j) {
                const double a = std::fabs(j - pos) / s;
                const double k = method == 2 ? std::max(0.0, 1 - a) : method == 16 ? (a < 3 ? lanczos(a) : 0) : cubic(method, a);
                out.push_back({clampi(j, lo, hi), k});
                total += k;
            }
            for (auto& p : out) p.second /= total;
        };
        std::vector<std::pair<int, double>> tx, ty;
        taps(sx, ix, lx, hx, tx);
        taps(sy, iy, ly, hy, ty);
        double sum = 0, mag = 0;
        for (auto [y, wy] : ty)
            for (auto [x, wx] : tx) {
                const double s = img.at(x, y, ch);
                sum += wx * wy * s;
                mag += std::fabs(wx * wy * s);
            }
        *slack = mag * 1e-5;
        return sum;
    }
    const Taps tx = axis_taps(method, sx, lx, hx), ty = axis_taps(method, sy, ly, hy);
    if (method == 2) {
        // The rule in single precision: a + (b - a) * t, rows first.
        float r[2];
        for (int j = 0; j < 2; ++j) {
            const float a = float(img.at(tx.index[0], ty.index[j], ch)), b = float(img.at(tx.index[1], ty.index[j], ch));
            r[j] = a + (b - a) * tx.t;
        }
        const float v = r[0] + (r[1] - r[0]) * ty.t;
        if (sizeof(T) == 8) {
            double rd[2];
            for (int j = 0; j < 2; ++j) {
                const double a = img.at(tx.index[0], ty.index[j], ch), b = img.at(tx.index[1], ty.index[j], ch);
                const double t = sx - std::floor(sx);
                rd[j] = a + (b - a) * t;
            }
            const double t = sy - std::floor(sy);
            *slack = (std::fabs(rd[0]) + std::fabs(rd[1])) * 1e-13;
            return rd[0] + (rd[1] - rd[0]) * t;
        }
        return v;
    }
    // 64f keeps its fractions in double.
    Taps wx = tx, wy = ty;
    if (sizeof(T) == 8) {
        auto redo = [&](Taps& k, double pos) {
            const double t = pos - std::floor(pos);
            if (method == 16) {
                double sum = 0, v[6];
                for (int j = 0; j < 6; ++j) sum += v[j] = lanczos(std::fabs(j - 2 - t));
                for (int j = 0; j < 6; ++j) k.weight[j] = v[j] / sum;
            } else {
                for (int j = 0; j < 4; ++j) k.weight[j] = cubic(method, std::fabs(j - 1 - t));
            }
        };
        redo(wx, sx);
        redo(wy, sy);
    }
    double sum = 0, mag = 0;
    for (int j = 0; j < wy.n; ++j)
        for (int i = 0; i < wx.n; ++i) {
            const double s = img.at(wx.index[i], wy.index[j], ch);
            sum += wx.weight[i] * wy.weight[j] * s;
            mag += std::fabs(wx.weight[i] * wy.weight[j] * s);
        }
    *slack = mag * (sizeof(T) == 8 ? 1e-12 : 2e-6);
    return sum;
}

}  // namespace rref
