// Independent reference of the warps and remap, written from their rules:
// transforms and their inverses in long double (perspective and bilinear
// fits by plain linear systems, bilinear inverses by Newton's method), the
// pixels inside the mapped quadrangle by edge tests, and the interpolated
// values in double. It never calls library code.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace wref {

using LD = long double;

enum class Kind { Affine, Perspective, Bilinear };

// A transform as the caller gives it: forward (source to destination) or
// back (destination to source).
struct Transform {
    Kind kind = Kind::Affine;
    bool back = false;
    LD c[3][4] = {};
};

inline Transform affine(const double (&c)[2][3], bool back = false) {
    Transform t{Kind::Affine, back, {}};
    for (int r = 0; r < 2; ++r)
        for (int k = 0; k < 3; ++k) t.c[r][k] = c[r][k];
    return t;
}
inline Transform perspective(const double (&c)[3][3], bool back = false) {
    Transform t{Kind::Perspective, back, {}};
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k) t.c[r][k] = c[r][k];
    return t;
}
inline Transform bilinear(const double (&c)[2][4], bool back = false) {
    Transform t{Kind::Bilinear, back, {}};
    for (int r = 0; r < 2; ++r)
        for (int k = 0; k < 4; ++k) t.c[r][k] = c[r][k];
    return t;
}

// The transform's own formula.
inline bool apply(const Transform& t, LD x, LD y, LD* X, LD* Y) {
    const auto& c = t.c;
    switch (t.kind) {
        case Kind::Affine:
            *X = c[0][0] * x + c[0][1] * y + c[0][2];
            *Y = c[1][0] * x + c[1][1] * y + c[1][2];
            return true;
        case Kind::Perspective: {
            const LD d = c[2][0] * x + c[2][1] * y + c[2][2];
            if (d == 0) return false;
            *X = (c[0][0] * x + c[0][1] * y + c[0][2]) / d;
            *Y = (c[1][0] * x + c[1][1] * y + c[1][2]) / d;
            return true;
        }
        default:
            *X = c[0][0] * x * y + c[0][1] * x + c[0][2] * y + c[0][3];
            *Y = c[1][0] * x * y + c[1][1] * x + c[1][2] * y + c[1][3];
            return true;
    }
}

// Solves the formula for (x, y) given (X, Y): affine and perspective by
// Cramer's rule on the 2 x 2 system, bilinear by Newton's method from each
// of the starts, keeping the root nearest the box [bx0, bx1] x [by0, by1].
inline bool solve(const Transform& t, LD X, LD Y, LD bx0, LD by0, LD bx1, LD by1, LD* x, LD* y) {
    const auto& c = t.c;
    if (t.kind != Kind::Bilinear) {
        LD a = c[0][0], b = c[0][1], e = c[1][0], f = c[1][1], u = X - c[0][2], v = Y - c[1][2];
        if (t.kind == Kind::Perspective) {
            a -= X * c[2][0], b -= X * c[2][1], e -= Y * c[2][0], f -= Y * c[2][1];
            u = X * c[2][2] - c[0][2], v = Y * c[2][2] - c[1][2];
        }
        const LD det = a * f - b * e;
        if (det == 0) return false;
        *x = (u * f - b * v) / det;
        *y = (a * v - u * e) / det;
        return true;
    }
    bool found = false;
    LD best = 0;
    const LD starts[5][2] = {{(bx0 + bx1) / 2, (by0 + by1) / 2}, {bx0, by0}, {bx1, by0}, {bx1, by1}, {bx0, by1}};
    for (const auto& s : starts) {
        LD px = s[0], py = s[1];
        bool ok = false;
        for (int it = 0; it < 100; ++it) {
            LD fx, fy;
            apply(t, px, py, &fx, &fy);
            fx -= X, fy -= Y;
            const LD j00 = c[0][0] * py + c[0][1], j01 = c[0][0] * px + c[0][2];
            const LD j10 = c[1][0] * py + c[1][1], j11 = c[1][0] * px + c[1][2];
            const LD det = j00 * j11 - j01 * j10;
            if (det == 0) break;
            const LD dx = (fx * j11 - j01 * fy) / det, dy = (j00 * fy - fx * j10) / det;
            px -= dx, py -= dy;
            if (std::fabs(dx) + std::fabs(dy) < 1e-16L * (1 + std::fabs(px) + std::fabs(py))) {
                ok = true;
                break;
            }
        }
        if (!ok || !std::isfinite(px) || !std::isfinite(py)) continue;
        const LD d = std::max({LD(0), bx0 - px, px - bx1}) + std::max({LD(0), by0 - py, py - by1});
        if (!found || d < best - 1e-12L) found = true, best = d, *x = px, *y = py;
    }
    return found;
}

// Exact cosine and sine at the quarter turns.
inline void rotation(double angle, LD* c, LD* s) {
    LD a = std::fmod(LD(angle), LD(360));
    if (a < 0) a += 360;
    if (a == 0) *c = 1, *s = 0;
    else if (a == 90) *c = 0, *s = 1;
    else if (a == 180) *c = -1, *s = 0;
    else if (a == 270) *c = 0, *s = -1;
    else *c = std::cos(a * 3.14159265358979323846264338327950288L / 180), *s = std::sin(a * 3.14159265358979323846264338327950288L / 180);
}

inline Transform rotation_transform(double angle, LD xShift, LD yShift) {
    LD c, s;
    rotation(angle, &c, &s);
    Transform t{Kind::Affine, false, {}};
    t.c[0][0] = c, t.c[0][1] = s, t.c[0][2] = xShift;
    t.c[1][0] = -s, t.c[1][1] = c, t.c[1][2] = yShift;
    return t;
}

// Gaussian elimination with partial pivoting on an n x n system (n <= 8).
inline bool linear_solve(int n, LD a[8][9], LD* x) {
    for (int c = 0; c < n; ++c) {
        int p = c;
        for (int r = c + 1; r < n; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[p][c])) p = r;
        if (a[p][c] == 0) return false;
        for (int k = 0; k <= n; ++k) std::swap(a[p][k], a[c][k]);
        for (int r = 0; r < n; ++r) {
            if (r == c) continue;
            const LD f = a[r][c] / a[c][c];
            for (int k = c; k <= n; ++k) a[r][k] -= f * a[c][k];
        }
    }
    for (int r = 0; r < n; ++r) x[r] = a[r][n] / a[r][r];
    return true;
}

// Transforms taking quadrangle s onto d: affine from vertices 0, 1, 3;
// perspective and bilinear from all four, by their linear systems.
inline Transform fit(Kind kind, const double (&s)[4][2], const double (&d)[4][2]) {
    Transform t{kind, false, {}};
    LD a[8][9] = {}, x[8];
    if (kind == Kind::Affine) {
        const int v[3] = {0, 1, 3};
        for (int r = 0; r < 2; ++r) {
            LD m[8][9] = {};
            for (int i = 0; i < 3; ++i) m[i][0] = s[v[i]][0], m[i][1] = s[v[i]][1], m[i][2] = 1, m[i][3] = d[v[i]][r];
            linear_solve(3, m, x);
            for (int k = 0; k < 3; ++k) t.c[r][k] = x[k];
        }
    } else if (kind == Kind::Perspective) {
        // X (g x + h y + 1) = a x + b y + c, likewise Y; c22 = 1.
        for (int i = 0; i < 4; ++i) {
            const LD sx = s[i][0], sy = s[i][1], X = d[i][0], Y = d[i][1];
            LD r0[9] = {sx, sy, 1, 0, 0, 0, -X * sx, -X * sy, X};
            LD r1[9] = {0, 0, 0, sx, sy, 1, -Y * sx, -Y * sy, Y};
            for (int k = 0; k < 9; ++k) a[2 * i][k] = r0[k], a[2 * i + 1][k] = r1[k];
        }
        linear_solve(8, a, x);
        for (int k = 0; k < 8; ++k) t.c[k / 3][k % 3] = x[k];
        t.c[2][2] = 1;
    } else {
        for (int r = 0; r < 2; ++r) {
            LD m[8][9] = {};
            for (int i = 0; i < 4; ++i) {
                m[i][0] = LD(s[i][0]) * s[i][1], m[i][1] = s[i][0], m[i][2] = s[i][1], m[i][3] = 1;
                m[i][4] = d[i][r];
            }
            linear_solve(4, m, x);
            for (int k = 0; k < 4; ++k) t.c[r][k] = x[k];
        }
    }
    return t;
}

struct Rect {
    int x, y, w, h;
};

// Where a destination pixel centre lies against the convex quadrangle q and
// the closed box: 1 inside, 0 outside, -1 too close to an edge to say.
inline int inside(const LD (&q)[4][2], LD X, LD Y, Rect box) {
    if (X < box.x || Y < box.y || X > box.x + box.w - 1 || Y > box.y + box.h - 1) return 0;
    LD orient = 0;
    int sides = 0, near = 0;
    for (int k = 0; k < 4; ++k) {
        const LD* a = q[k];
        const LD* b = q[(k + 1) % 4];
        const LD ex = b[0] - a[0], ey = b[1] - a[1];
        const LD len = std::sqrt(ex * ex + ey * ey);
        const LD d = (ex * (Y - a[1]) - ey * (X - a[0])) / len;
        if (std::fabs(d) < 1e-7L) {
            ++near;
            continue;
        }
        if (orient == 0) orient = d;
        if ((d > 0) == (orient > 0)) ++sides;
        else return 0;
    }
    return near ? -1 : 1;
}

// ---- values ----

// The cubic kernels of the rule, K(a) for a = |distance|.
inline double cubic(int method, double a) {
    if (a >= 2) return 0;
    if (method == 4)
        return a < 1 ? 0.5 * a * a * a - a * a - 0.5 * a + 1 : -a * a * a / 6 + a * a - 11.0 / 6 * a + 1;
    return a < 1 ? 1.5 * a * a * a - 2.5 * a * a + 1 : -0.5 * a * a * a + 2.5 * a * a - 4 * a + 2;
}

// L(i/100) as a float, with L(x) = 3 sin(pi x) sin(pi x / 3) / (pi x)^2.
inline double lanczos(double a) {
    auto L = [](int i) -> double {
        if (i == 0) return 1;
        if (i % 100 == 0) return 0;
        const long double px = 3.14159265358979323846264338327950288L * i / 100;
        return double(float(3 * std::sin(px) * std::sin(px / 3) / (px * px)));
    };
    const double x = std::min(a, 3.0) * 100;
    const int i = int(std::floor(x));
    return i >= 300 ? 0 : L(i) + (L(i + 1) - L(i)) * (x - i);
}

template <class T>
struct Image {
    const T* origin;
    long long step;  // bytes
    int nc;
    int x0, y0, x1, y1;  // the box, inclusive
    double at(int x, int y, int ch) const {
        x = std::clamp(x, x0, x1), y = std::clamp(y, y0, y1);
        return double(reinterpret_cast<const T*>(reinterpret_cast<const char*>(origin) + step * y)[x * nc + ch]);
    }
};

// The value at a position already in the box, with `slack` the error the
// rule's own arithmetic may add. P is the position type the rule uses.
template <class T, class P>
double value(const Image<T>& s, int method, P x, P y, int ch, double* slack) {
    *slack = 0;
    if (method == 1) return s.at(int(std::ceil(double(x) - 0.5)), int(std::ceil(double(y) - 0.5)), ch);
    if (method == 2) {
        auto index = [](P p, int lo, int hi, double* t) {
            int i = int(std::floor(double(p)));
            if (i >= hi && hi > lo) i = hi - 1;
            *t = double(p) - i;
            return i;
        };
        double tx, ty;
        const int ix = index(x, s.x0, s.x1, &tx), iy = index(y, s.y0, s.y1, &ty);
        const double a = s.at(ix, iy, ch), b = s.at(ix + 1, iy, ch), c = s.at(ix, iy + 1, ch), d = s.at(ix + 1, iy + 1, ch);
        if constexpr (std::is_same_v<T, std::uint8_t>) {
            // The fixed-point rule is exact integer arithmetic.
            const long long fx = std::llrint(std::nearbyint(tx * 16384)), fy = std::llrint(std::nearbyint(ty * 16384));
            const long long h0 = ((long long)a * (16384 - fx) + (long long)b * fx + 128) >> 8;
            const long long h1 = ((long long)c * (16384 - fx) + (long long)d * fx + 128) >> 8;
            return double(std::min<long long>((h0 * (16384 - fy) + h1 * fy + (1 << 19)) >> 20, 255));
        }
        const double v = (1 - ty) * ((1 - tx) * a + tx * b) + ty * ((1 - tx) * c + tx * d);
        // Float arithmetic, or (64f) positions that differ in the last bits.
        const double sum = std::fabs(a) + std::fabs(b) + std::fabs(c) + std::fabs(d);
        *slack = (std::is_same_v<T, double> ? 1e-10 : 4 * std::numeric_limits<float>::epsilon()) * sum;
        return v;
    }
    const int taps = method == 16 ? 6 : 4, first = method == 16 ? -2 : -1;
    const int ix = int(std::floor(double(x))), iy = int(std::floor(double(y)));
    const double tx = double(x) - ix, ty = double(y) - iy;
    double wx[6], wy[6], sx = 0, sy = 0;
    for (int k = 0; k < taps; ++k) {
        const double ax = std::fabs(first + k - tx), ay = std::fabs(first + k - ty);
        wx[k] = method == 16 ? lanczos(ax) : cubic(method, ax);
        wy[k] = method == 16 ? lanczos(ay) : cubic(method, ay);
        sx += wx[k], sy += wy[k];
    }
    double v = 0, mag = 0;
    for (int r = 0; r < taps; ++r)
        for (int k = 0; k < taps; ++k) {
            const double w = method == 16 ? (wx[k] / sx) * (wy[r] / sy) : wx[k] * wy[r];
            const double p = s.at(ix + first + k, iy + first + r, ch);
            v += w * p;
            mag += std::fabs(p);
        }
    // Weights rounded to the working precision err against every tap.
    *slack = (std::is_same_v<T, double> ? 1e-10 : 5e-7) * (1 + mag);
    return v;
}

// The smooth edge's coverage of a position in the box.
template <class P>
double cover(P x, P y, int x0, int y0, int x1, int y1) {
    auto one = [](double p, int lo, int hi) { return std::min(1.0, 0.5 + std::min(p - lo, hi - p)); };
    return one(double(x), x0, x1) * one(double(y), y0, y1);
}

// Whether an integer or float result matches the reference value v: exact
// nearest (ties to even) and saturated for integers, unless v lies within
// slack of a tie; within slack for floats.
template <class T>
bool matches(T got, double v, double slack) {
    if constexpr (std::is_floating_point_v<T>) {
        return std::fabs(double(got) - v) <= slack + 1e-300;
    } else {
        auto sat = [](double u) {
            return std::min(std::max(u, double(std::numeric_limits<T>::min())), double(std::numeric_limits<T>::max()));
        };
        if (double(got) == sat(std::nearbyint(v))) return true;
        const double f = std::floor(v);
        return std::fabs(v - (f + 0.5)) <= slack && (double(got) == sat(f) || double(got) == sat(f + 1));
    }
}

}  // namespace wref
