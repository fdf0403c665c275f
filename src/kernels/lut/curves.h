// The piecewise curves of the look-up tables, in double precision: the slope
// of a linear piece and the cubic through four points. Plain inline code,
// shared by the table builders of the integer types and by the per-pixel
// float kernels, so both evaluate one formula.
#pragma once

namespace rok::kernels {

// Slope of the piece from (x0, y0) to (x1, y1); x1 > x0.
inline double piece_slope(double x0, double y0, double x1, double y1) { return (y1 - y0) / (x1 - x0); }

// The cubic through (xs[i], ys[i]), i = 0..3, in Lagrange form: term i is
// (ys[i] * prod(x - xs[m])) / prod(xs[i] - xs[m]) over m != i, products taken
// in increasing m, terms added in increasing i. Needs four distinct xs.
struct Cubic {
    double xs[4];
    double ys[4];
    double den[4];  // prod(xs[i] - xs[m]); ys[i] / den[i] is not formed first, it would round twice

    // False when two of the abscissae coincide and no cubic exists.
    bool set(const double* x, const double* y) {
        for (int i = 0; i < 4; ++i) {
            xs[i] = x[i];
            ys[i] = y[i];
        }
        for (int i = 0; i < 4; ++i) {
            double d = 1.0;
            for (int m = 0; m < 4; ++m)
                if (m != i) d *= xs[i] - xs[m];
            if (d == 0.0) return false;
            den[i] = d;
        }
        return true;
    }

    double at(double x) const {
        double p = 0.0;
        for (int i = 0; i < 4; ++i) {
            double num = 1.0;
            for (int m = 0; m < 4; ++m)
                if (m != i) num *= x - xs[m];
            p += ys[i] * num / den[i];
        }
        return p;
    }
};

// First of the four levels that carry the cubic of interval k (levels k and
// k + 1 bound it): one level before the interval, clamped so that all four
// exist.
inline int cubic_first_level(int k, int nLevels) {
    const int j = k - 1;
    return j < 0 ? 0 : (j > nLevels - 4 ? nLevels - 4 : j);
}

}  // namespace rok::kernels
