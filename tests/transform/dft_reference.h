// Independent references for the transforms: the plain O(N^2) DFT in double
// precision and the packed layout written out from its rule.
#pragma once

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace rokt::dft {

using cd = std::complex<double>;

// y[k] = sum_n x[n] e^(-+2 pi i n k / N) (sign -1 forward, +1 inverse), unscaled.
inline std::vector<cd> direct(const std::vector<cd>& x, int sign = -1) {
    const std::size_t n = x.size();
    std::vector<cd> roots(n), y(n);
    for (std::size_t m = 0; m < n; ++m) {
        const double a = sign * 2.0 * std::numbers::pi * double(m) / double(n);
        roots[m] = cd(std::cos(a), std::sin(a));
    }
    for (std::size_t k = 0; k < n; ++k) {
        cd sum = 0;
        for (std::size_t j = 0, m = 0; j < n; ++j, m = (m + k) % n) sum += x[j] * roots[m];
        y[k] = sum;
    }
    return y;
}

// A W x H complex image, row-major: at(u, v) is column u of row v.
struct Spectrum {
    int w = 0, h = 0;
    std::vector<cd> data;
    cd& at(int u, int v) { return data[std::size_t(v) * w + u]; }
    cd at(int u, int v) const { return data[std::size_t(v) * w + u]; }
};

// The two-dimensional DFT, rows then columns, each by the direct sum.
inline Spectrum direct2d(const Spectrum& img, int sign = -1) {
    Spectrum out = img;
    for (int v = 0; v < img.h; ++v) {
        std::vector<cd> r(out.data.begin() + std::ptrdiff_t(v) * img.w, out.data.begin() + std::ptrdiff_t(v + 1) * img.w);
        r = direct(r, sign);
        for (int u = 0; u < img.w; ++u) out.at(u, v) = r[std::size_t(u)];
    }
    for (int u = 0; u < img.w; ++u) {
        std::vector<cd> c(std::size_t(img.h));
        for (int v = 0; v < img.h; ++v) c[std::size_t(v)] = out.at(u, v);
        c = direct(c, sign);
        for (int v = 0; v < img.h; ++v) out.at(u, v) = c[std::size_t(v)];
    }
    return out;
}

// The packed W x H real array of a spectrum of a real image.
inline std::vector<double> pack(const Spectrum& f) {
    const int w = f.w, h = f.h;
    std::vector<double> p(std::size_t(w) * h);
    auto put = [&](int x, int y, double v) { p[std::size_t(y) * w + x] = v; };
    for (int v = 0; v < h; ++v)
        for (int u = 1; 2 * u < w; ++u) {
            put(2 * u - 1, v, f.at(u, v).real());
            put(2 * u, v, f.at(u, v).imag());
        }
    auto column = [&](int x, int u) {
        put(x, 0, f.at(u, 0).real());
        for (int k = 1; 2 * k < h; ++k) {
            put(x, 2 * k - 1, f.at(u, k).real());
            put(x, 2 * k, f.at(u, k).imag());
        }
        if (h % 2 == 0) put(x, h - 1, f.at(u, h / 2).real());
    };
    column(0, 0);
    if (w % 2 == 0) column(w - 1, w / 2);
    return p;
}

// Root mean square of the spectrum's values.
inline double rms(const Spectrum& f) {
    double s = 0;
    for (const cd& c : f.data) s += std::norm(c);
    return std::sqrt(s / double(f.data.size()));
}

}  // namespace rokt::dft
