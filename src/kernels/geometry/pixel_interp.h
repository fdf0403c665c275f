// Row kernels of the per-pixel transforms (warps and remap): every
// destination pixel is interpolated at a source position of its own, given
// as two arrays of coordinates with pixel centres on integers. Positions are
// 32-bit floats (64-bit for the 64f images, whose work is in double too).
// Instantiated for Rok8u, Rok16u, Rok16s, Rok32f with float positions and
// Rok64f with double positions.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace rok::kernels {

// The source image as the interpolators read it.
template <class T>
struct PixelSource {
    const T* origin;      // sample 0 of pixel (0, 0)
    std::ptrdiff_t step;  // bytes from one row to the next
    int nc;               // samples per pixel: 1, 3 or 4, all of them computed
    int x0, y0, x1, y1;   // the box: columns x0..x1 and rows y0..y1 (inclusive)
};

// How a position becomes a value.
//   Nearest (1): the pixel with the closer centre, the lower one on a tie.
//   Bilinear (2): ix = floor(x), t = x - ix; on the box's last column ix
//     moves back by one (t is then 1), so both taps lie inside; likewise in
//     y. Rok8u: fractions in 14 bits, f = round(t * 16384); each row
//     (a * (16384 - fx) + b * fx + 128) >> 8, then (h0 * (16384 - fy) + h1 *
//     fy + 2^19) >> 20. Other types in W: h = a + (b - a) * t per row, then
//     h0 + (h1 - h0) * ty.
//   Cubic (4, Lagrange) and Catmull-Rom (6): four taps from ix - 1 with the
//     weights of cubic_weights, each row summed across, then the rows.
//   Lanczos (16): six taps from ix - 2 with the resize's table weights,
//     divided by their sum.
// Taps beyond the box read its nearest edge pixel. Integer results are
// rounded to nearest (ties to even; the caller sets the rounding control)
// and saturated.
struct PixelRule {
    int method;
    // Pixels less than half a source pixel inside the box's edges become
    // v * c + old * (1 - c), c = min(1, 0.5 + dx) * min(1, 0.5 + dy), dx and
    // dy the distances inside the box.
    bool smooth;
    // A position outside the box (or not a number) leaves its pixel as it
    // was (remap); otherwise it is moved onto the box first (warps, whose
    // positions stray from the box only by rounding).
    bool keepOutside;
};

// n destination pixels of src.nc samples from positions (xs[i], ys[i]).
template <class T, class P>
void interpolate_pixels(const PixelSource<T>& src, const PixelRule& rule, const P* xs, const P* ys, int n, T* dst);

// The map of a warp along one destination row, in the position u of a pixel
// on the row: affine x = nx[0] u + nx[1], y = ny[0] u + ny[1]; perspective
// the same times r = 1 / (den[0] u + den[1]) (one reciprocal per pixel).
// Each a u + b is one fused multiply-add in double; the position is then
// rounded to P.
struct RowMap {
    bool perspective;
    double nx[2], ny[2], den[2];
};

template <class P>
inline void map_position(const RowMap& m, double u, P* x, P* y) {
    if (m.perspective) {
        const double r = 1.0 / std::fma(m.den[0], u, m.den[1]);
        *x = P(std::fma(m.nx[0], u, m.nx[1]) * r), *y = P(std::fma(m.ny[0], u, m.ny[1]) * r);
    } else {
        *x = P(std::fma(m.nx[0], u, m.nx[1])), *y = P(std::fma(m.ny[0], u, m.ny[1]));
    }
}

// Pixels x .. x + n - 1 of a destination row at the positions of the map
// (u = x + i, map_position): the same results as those positions given to
// interpolate_pixels. P is float, double for Rok64f.
template <class T>
void interpolate_row(const PixelSource<T>& src, const PixelRule& rule, const RowMap& map, int x, int n, T* dst);

}  // namespace rok::kernels
