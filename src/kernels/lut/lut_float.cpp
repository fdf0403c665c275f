// Piecewise curves over float samples, evaluated per sample.
#include "kernels/lut/curves.h"
#include "kernels/lut/lut.h"

namespace rok::kernels {

namespace {

// The interval that holds x, -1 for none (NaN included).
int interval_of(const FloatCurve& c, float x) {
    const Rok32f* l = c.levels;
    if (c.increasing) {
        if (!(x >= l[0]) || !(x < l[c.n - 1])) return -1;
        int lo = 0, hi = c.n - 1;  // l[lo] <= x < l[hi]
        while (hi - lo > 1) {
            const int mid = lo + (hi - lo) / 2;
            if (l[mid] <= x) lo = mid;
            else hi = mid;
        }
        return lo;
    }
    for (int k = 0; k + 1 < c.n; ++k)
        if (l[k] <= x && x < l[k + 1]) return k;
    return -1;
}

// Evaluates one channel's curve; keeps the cubic of the last interval, since
// neighbouring samples mostly share it.
class Evaluator {
public:
    explicit Evaluator(const FloatCurve& c) : c_(c) {}

    float operator()(float x) {
        const int k = interval_of(c_, x);
        if (k < 0) return x;
        if (c_.shape == LutShape::Constant) return c_.values[k];
        if (c_.shape == LutShape::Cubic) {
            if (k != cubicK_) {
                const int j = cubic_first_level(k, c_.n);
                double xs[4], ys[4];
                for (int i = 0; i < 4; ++i) {
                    xs[i] = c_.levels[j + i];
                    ys[i] = c_.values[j + i];
                }
                cubicK_ = k;
                hasCubic_ = cubic_.set(xs, ys);
            }
            if (hasCubic_) return float(cubic_.at(x));
        }
        const double l0 = c_.levels[k], v0 = c_.values[k];
        const double s = piece_slope(l0, v0, c_.levels[k + 1], c_.values[k + 1]);
        return float(v0 + s * (double(x) - l0));
    }

private:
    const FloatCurve& c_;
    Cubic cubic_{};
    int cubicK_ = -1;
    bool hasCubic_ = false;
};

}  // namespace

void lut_32f(const Rok32f* src, Rok32f* dst, std::size_t pixels, int nc, int processed, const FloatCurve* curves) {
    for (int c = 0; c < processed; ++c) {
        Evaluator eval(curves[c]);
        for (std::size_t p = 0; p < pixels; ++p) dst[p * nc + c] = eval(src[p * nc + c]);
    }
}

}  // namespace rok::kernels
