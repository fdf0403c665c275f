#include "geometry/warp_geometry.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace rok::geometry {

namespace {

PlaneMap make(MapKind kind, const double* c, int rows, int cols) {
    PlaneMap m{kind, {}};
    for (int r = 0; r < rows; ++r)
        for (int k = 0; k < cols; ++k) m.c[r][k] = c[r * cols + k];
    return m;
}

double cross(double ax, double ay, double bx, double by) { return ax * by - ay * bx; }

// The perspective map taking the unit square's corners (0,0), (1,0), (1,1),
// (0,1) onto q's vertices 0..3; false when q is degenerate at vertex 2.
bool square_to_quad(const double q[4][2], double m[3][3]) {
    const double sx = q[0][0] - q[1][0] + q[2][0] - q[3][0];
    const double sy = q[0][1] - q[1][1] + q[2][1] - q[3][1];
    const double dx1 = q[1][0] - q[2][0], dx2 = q[3][0] - q[2][0];
    const double dy1 = q[1][1] - q[2][1], dy2 = q[3][1] - q[2][1];
    const double den = cross(dx1, dy1, dx2, dy2);
    if (den == 0.0 || !std::isfinite(den)) return false;
    const double g = cross(sx, sy, dx2, dy2) / den;
    const double h = cross(dx1, dy1, sx, sy) / den;
    m[0][0] = q[1][0] - q[0][0] + g * q[1][0];
    m[0][1] = q[3][0] - q[0][0] + h * q[3][0];
    m[0][2] = q[0][0];
    m[1][0] = q[1][1] - q[0][1] + g * q[1][1];
    m[1][1] = q[3][1] - q[0][1] + h * q[3][1];
    m[1][2] = q[0][1];
    m[2][0] = g;
    m[2][1] = h;
    m[2][2] = 1.0;
    return true;
}

void adjugate(const double (&a)[3][4], double (&out)[3][4]) {
    out[0][0] = a[1][1] * a[2][2] - a[1][2] * a[2][1];
    out[0][1] = a[0][2] * a[2][1] - a[0][1] * a[2][2];
    out[0][2] = a[0][1] * a[1][2] - a[0][2] * a[1][1];
    out[1][0] = a[1][2] * a[2][0] - a[1][0] * a[2][2];
    out[1][1] = a[0][0] * a[2][2] - a[0][2] * a[2][0];
    out[1][2] = a[0][2] * a[1][0] - a[0][0] * a[1][2];
    out[2][0] = a[1][0] * a[2][1] - a[1][1] * a[2][0];
    out[2][1] = a[0][1] * a[2][0] - a[0][0] * a[2][1];
    out[2][2] = a[0][0] * a[1][1] - a[0][1] * a[1][0];
}

// Solves the 4 x 4 system a k = b for two right-hand sides, with columns
// scaled to their largest entry and partial pivoting; false when a pivot
// vanishes against the scale of its column.
bool solve4(double a[4][4], double b[4][2], double k[4][2]) {
    double scale[4];
    for (int c = 0; c < 4; ++c) {
        scale[c] = 0.0;
        for (int r = 0; r < 4; ++r) scale[c] = std::max(scale[c], std::fabs(a[r][c]));
        if (scale[c] == 0.0 || !std::isfinite(scale[c])) return false;
        for (int r = 0; r < 4; ++r) a[r][c] /= scale[c];
    }
    for (int c = 0; c < 4; ++c) {
        int p = c;
        for (int r = c + 1; r < 4; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[p][c])) p = r;
        if (!(std::fabs(a[p][c]) > 1e-12)) return false;
        if (p != c) {
            std::swap(a[p], a[c]);
            std::swap(b[p], b[c]);
        }
        for (int r = c + 1; r < 4; ++r) {
            const double f = a[r][c] / a[c][c];
            for (int j = c; j < 4; ++j) a[r][j] -= f * a[c][j];
            for (int j = 0; j < 2; ++j) b[r][j] -= f * b[c][j];
        }
    }
    for (int j = 0; j < 2; ++j)
        for (int c = 3; c >= 0; --c) {
            double v = b[c][j];
            for (int i = c + 1; i < 4; ++i) v -= a[c][i] * k[i][j];
            k[c][j] = v / a[c][c];
        }
    for (int c = 0; c < 4; ++c)
        for (int j = 0; j < 2; ++j) k[c][j] /= scale[c];
    return true;
}

// Distance (in x plus in y) of a point outside a box, 0 inside it.
double outside_by(double x, double y, double bx0, double by0, double bx1, double by1) {
    return std::max({0.0, bx0 - x, x - bx1}) + std::max({0.0, by0 - y, y - by1});
}

}  // namespace

bool PlaneMap::apply(double x, double y, double* X, double* Y) const {
    switch (kind) {
        case MapKind::Affine:
            *X = c[0][0] * x + c[0][1] * y + c[0][2];
            *Y = c[1][0] * x + c[1][1] * y + c[1][2];
            return true;
        case MapKind::Perspective: {
            const double d = c[2][0] * x + c[2][1] * y + c[2][2];
            if (d == 0.0) return false;
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

PlaneMap affine_map(const double* c) { return make(MapKind::Affine, c, 2, 3); }
PlaneMap perspective_map(const double* c) { return make(MapKind::Perspective, c, 3, 3); }
PlaneMap bilinear_map(const double* c) { return make(MapKind::Bilinear, c, 2, 4); }

bool nearly_equal(double p, double q) {
    if (!std::isfinite(p) || !std::isfinite(q)) return true;
    if (std::fabs(p) <= 1e-200) return std::fabs(q) <= 1e-10;
    return std::fabs((p - q) / p) <= 1e-10;
}

bool singular(const PlaneMap& m) {
    const auto& c = m.c;
    for (const auto& row : c)
        for (double v : row)
            if (!std::isfinite(v)) return true;
    if (m.kind == MapKind::Affine) return nearly_equal(c[0][0] * c[1][1], c[0][1] * c[1][0]);
    if (m.kind == MapKind::Perspective) {
        const double t0 = c[0][0] * (c[1][1] * c[2][2] - c[1][2] * c[2][1]);
        const double t1 = c[0][1] * (c[1][2] * c[2][0] - c[1][0] * c[2][2]);
        const double t2 = c[0][2] * (c[1][0] * c[2][1] - c[1][1] * c[2][0]);
        return nearly_equal(t0, -(t1 + t2));
    }
    return false;
}

PlaneMap inverse(const PlaneMap& m) {
    PlaneMap r{m.kind, {}};
    if (m.kind == MapKind::Perspective) {
        adjugate(m.c, r.c);
        return r;
    }
    const auto& c = m.c;
    const double det = c[0][0] * c[1][1] - c[0][1] * c[1][0];
    r.c[0][0] = c[1][1] / det;
    r.c[0][1] = -c[0][1] / det;
    r.c[0][2] = (c[0][1] * c[1][2] - c[1][1] * c[0][2]) / det;
    r.c[1][0] = -c[1][0] / det;
    r.c[1][1] = c[0][0] / det;
    r.c[1][2] = (c[1][0] * c[0][2] - c[0][0] * c[1][2]) / det;
    return r;
}

void rect_corners(RokiRect r, double q[4][2]) {
    const double x0 = r.x, y0 = r.y;
    const double x1 = double(r.x) + double(r.width) - 1.0, y1 = double(r.y) + double(r.height) - 1.0;
    q[0][0] = x0, q[0][1] = y0;
    q[1][0] = x1, q[1][1] = y0;
    q[2][0] = x1, q[2][1] = y1;
    q[3][0] = x0, q[3][1] = y1;
}

Shape quad_shape(const double q[4][2]) {
    const double x0 = q[0][0], y0 = q[0][1], x1 = q[1][0], y1 = q[1][1];
    const double x2 = q[2][0], y2 = q[2][1], x3 = q[3][0], y3 = q[3][1];
    const double d[4] = {
        (x3 - x2) * (y0 - y3) - (x0 - x3) * (y3 - y2),
        (x0 - x3) * (y1 - y0) - (y0 - y3) * (x1 - x0),
        (x1 - x0) * (y2 - y1) - (y1 - y0) * (x2 - x1),
        (y3 - y2) * (x2 - x1) - (y2 - y1) * (x3 - x2),
    };
    for (double v : d)
        if (v == 0.0 || !std::isfinite(v)) return Shape::Degenerate;
    for (double v : d)
        if ((v > 0.0) != (d[0] > 0.0)) return Shape::NonConvex;
    return Shape::Convex;
}

bool map_corners(const PlaneMap& m, RokiRect rect, double q[4][2]) {
    double c[4][2];
    rect_corners(rect, c);
    for (int k = 0; k < 4; ++k)
        if (!m.apply(c[k][0], c[k][1], &q[k][0], &q[k][1])) return false;
    return true;
}

bool affine_fit(const double s[4][2], const double d[4][2], PlaneMap* out, bool* fits) {
    const double e1x = s[1][0] - s[0][0], e1y = s[1][1] - s[0][1];
    const double e3x = s[3][0] - s[0][0], e3y = s[3][1] - s[0][1];
    const double det = cross(e1x, e1y, e3x, e3y);
    if (det == 0.0 || !std::isfinite(det)) return false;
    PlaneMap m{MapKind::Affine, {}};
    for (int k = 0; k < 2; ++k) {
        const double a = d[1][k] - d[0][k], b = d[3][k] - d[0][k];
        m.c[k][0] = (a * e3y - b * e1y) / det;
        m.c[k][1] = (b * e1x - a * e3x) / det;
        m.c[k][2] = d[0][k] - m.c[k][0] * s[0][0] - m.c[k][1] * s[0][1];
    }
    double X, Y;
    m.apply(s[2][0], s[2][1], &X, &Y);
    *fits = nearly_equal(X, d[2][0]) && nearly_equal(Y, d[2][1]);
    *out = m;
    return true;
}

bool perspective_fit(const double s[4][2], const double d[4][2], PlaneMap* out) {
    PlaneMap ms{MapKind::Perspective, {}}, md{MapKind::Perspective, {}};
    double a[3][3], b[3][3];
    if (!square_to_quad(s, a) || !square_to_quad(d, b)) return false;
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k) ms.c[r][k] = a[r][k], md.c[r][k] = b[r][k];
    double inv[3][4];
    adjugate(ms.c, inv);
    PlaneMap m{MapKind::Perspective, {}};
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k)
            m.c[r][k] = md.c[r][0] * inv[0][k] + md.c[r][1] * inv[1][k] + md.c[r][2] * inv[2][k];
    // The scale is free: c22 = 1 where it can be.
    const double n = m.c[2][2];
    if (n != 0.0 && std::isfinite(n))
        for (int r = 0; r < 3; ++r)
            for (int k = 0; k < 3; ++k) m.c[r][k] = r == 2 && k == 2 ? 1.0 : m.c[r][k] / n;
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k)
            if (!std::isfinite(m.c[r][k])) return false;
    *out = m;
    return true;
}

bool bilinear_fit(const double s[4][2], const double d[4][2], PlaneMap* out) {
    double a[4][4], b[4][2], k[4][2];
    for (int i = 0; i < 4; ++i) {
        a[i][0] = s[i][0] * s[i][1];
        a[i][1] = s[i][0];
        a[i][2] = s[i][1];
        a[i][3] = 1.0;
        b[i][0] = d[i][0];
        b[i][1] = d[i][1];
    }
    if (!solve4(a, b, k)) return false;
    PlaneMap m{MapKind::Bilinear, {}};
    for (int c = 0; c < 4; ++c) m.c[0][c] = k[c][0], m.c[1][c] = k[c][1];
    *out = m;
    return true;
}

bool bilinear_preimage(const PlaneMap& m, double X, double Y, double bx0, double by0, double bx1, double by1,
                       double* x, double* y) {
    // Solved round the box's centre, where the coordinates are small.
    const double xc = 0.5 * (bx0 + bx1), yc = 0.5 * (by0 + by1);
    const auto& c = m.c;
    const double a = c[0][0], b = c[0][0] * yc + c[0][1], cc = c[0][0] * xc + c[0][2];
    const double d = c[0][0] * xc * yc + c[0][1] * xc + c[0][2] * yc + c[0][3];
    const double e = c[1][0], f = c[1][0] * yc + c[1][1], g = c[1][0] * xc + c[1][2];
    const double h = c[1][0] * xc * yc + c[1][1] * xc + c[1][2] * yc + c[1][3];
    const double u = X - d, w = Y - h;
    // (u, w) = x (a y + b) + (c y, g y) with the e, f row: eliminating x
    // leaves A y^2 + B y + C = 0.
    const double A = a * g - cc * e;
    const double B = e * u - a * w + b * g - cc * f;
    const double C = f * u - b * w;
    double roots[2];
    int n = 0;
    if (A == 0.0) {
        if (B == 0.0) return false;
        roots[n++] = -C / B;
    } else {
        const double disc = std::max(B * B - 4.0 * A * C, 0.0);
        const double q = -0.5 * (B + std::copysign(std::sqrt(disc), B));
        roots[n++] = q / A;
        if (q != 0.0) roots[n++] = C / q;
    }
    bool found = false;
    double best = 0.0;
    for (int i = 0; i < n; ++i) {
        const double v = roots[i];
        const double d1 = a * v + b, d2 = e * v + f;
        double t;
        if (std::fabs(d1) >= std::fabs(d2)) {
            if (d1 == 0.0) continue;
            t = (u - cc * v) / d1;
        } else {
            t = (w - g * v) / d2;
        }
        const double px = xc + t, py = yc + v;
        if (!std::isfinite(px) || !std::isfinite(py)) continue;
        const double dist = outside_by(px, py, bx0, by0, bx1, by1);
        if (!found || dist < best) {
            found = true;
            best = dist;
            *x = px;
            *y = py;
        }
    }
    return found;
}

bool cut_quad(const double q[4][2], double x0, double y0, double x1, double y1, Cut* out) {
    double a[8][2], b[8][2];
    int n = 4;
    for (int k = 0; k < 4; ++k) a[k][0] = q[k][0], a[k][1] = q[k][1];
    // One edge of the box at a time: axis 0 (x) or 1 (y), keeping the side
    // where sign * (v - bound) >= 0.
    const struct {
        int axis;
        double bound, sign;
    } planes[4] = {{0, x0, 1.0}, {0, x1, -1.0}, {1, y0, 1.0}, {1, y1, -1.0}};
    for (const auto& pl : planes) {
        int m = 0;
        for (int k = 0; k < n; ++k) {
            const double* p = a[(k + n - 1) % n];
            const double* c = a[k];
            const bool pin = pl.sign * (p[pl.axis] - pl.bound) >= 0.0;
            const bool cin = pl.sign * (c[pl.axis] - pl.bound) >= 0.0;
            if (pin != cin) {
                // The crossing, with the cut coordinate set exactly.
                const double t = (pl.bound - p[pl.axis]) / (c[pl.axis] - p[pl.axis]);
                const int o = 1 - pl.axis;
                b[m][pl.axis] = pl.bound;
                b[m][o] = p[o] + t * (c[o] - p[o]);
                ++m;
            }
            if (cin) {
                b[m][0] = c[0], b[m][1] = c[1];
                ++m;
            }
        }
        n = m;
        for (int k = 0; k < n; ++k) a[k][0] = b[k][0], a[k][1] = b[k][1];
        if (n == 0) return false;
    }
    double xmin = a[0][0], xmax = a[0][0], ymin = a[0][1], ymax = a[0][1];
    for (int k = 0; k < n; ++k) {
        xmin = std::min(xmin, a[k][0]), xmax = std::max(xmax, a[k][0]);
        ymin = std::min(ymin, a[k][1]), ymax = std::max(ymax, a[k][1]);
        out->v[k][0] = a[k][0], out->v[k][1] = a[k][1];
    }
    out->count = n;
    const double first = std::ceil(ymin), last = std::floor(ymax);
    if (first > last || std::floor(xmax) < std::ceil(xmin)) return false;
    out->firstRow = int(first);
    out->lastRow = int(last);
    return true;
}

void fill_spans(const Cut& cut, int boxX0, int boxX1, std::int32_t* spans) {
    const int first = cut.firstRow, rows = cut.lastRow - cut.firstRow + 1;
    for (int r = 0; r < rows; ++r) spans[2 * r] = INT_MAX, spans[2 * r + 1] = INT_MIN;
    auto take = [&](int row, double xl, double xr) {
        std::int32_t& left = spans[2 * (row - first)];
        std::int32_t& right = spans[2 * (row - first) + 1];
        left = std::min(left, std::int32_t(std::max(std::ceil(xl), double(boxX0))));
        right = std::max(right, std::int32_t(std::min(std::floor(xr), double(boxX1))));
    };
    // The perimeter walk: every edge marks where it crosses each row; the
    // vertices themselves are taken exactly.
    for (int k = 0; k < cut.count; ++k) {
        const double* a = cut.v[k];
        const double* b = cut.v[(k + 1) % cut.count];
        const double lo = std::max(std::ceil(std::min(a[1], b[1])), double(first));
        const double hi = std::min(std::floor(std::max(a[1], b[1])), double(cut.lastRow));
        for (int r = int(lo); r <= int(hi) && lo <= hi; ++r) {
            double x;
            if (a[1] == b[1]) {
                take(r, std::min(a[0], b[0]), std::max(a[0], b[0]));
                continue;
            }
            if (r == a[1]) x = a[0];
            else if (r == b[1]) x = b[0];
            else x = a[0] + (r - a[1]) * (b[0] - a[0]) / (b[1] - a[1]);
            take(r, x, x);
        }
    }
}

}  // namespace rok::geometry
