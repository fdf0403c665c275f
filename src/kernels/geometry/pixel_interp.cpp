// Per-pixel interpolation: the vector blocks where pixel_fast.cpp has them,
// the rule of pixel_rules.h one pixel at a time everywhere else; and the
// positions of the affine and perspective maps along a row.
#include "kernels/geometry/pixel_interp.h"

#include <immintrin.h>

#include "kernels/geometry/pixel_fast.h"
#include "kernels/geometry/pixel_rules.h"

namespace rok::kernels {

template <class T, class P>
void interpolate_pixels(const PixelSource<T>& src, const PixelRule& rule, const P* xs, const P* ys, int n, T* dst) {
    if (pixel::fast_row(src, rule, xs, ys, n, dst)) return;
    for (int i = 0; i < n; ++i) pixel::pixel(src, rule, xs[i], ys[i], dst + std::ptrdiff_t(i) * src.nc);
}

template <class P>
void affine_positions(double ax, double bx, double ay, double by, int x, int n, P* xs, P* ys) {
    int i = 0;
    if constexpr (std::is_same_v<P, float>) {
        const __m256d vax = _mm256_set1_pd(ax), vbx = _mm256_set1_pd(bx);
        const __m256d vay = _mm256_set1_pd(ay), vby = _mm256_set1_pd(by);
        const __m256d step = _mm256_set1_pd(4.0);
        __m256d u = _mm256_setr_pd(x, x + 1.0, x + 2.0, x + 3.0);
        for (; i + 4 <= n; i += 4) {
            _mm_storeu_ps(xs + i, _mm256_cvtpd_ps(_mm256_add_pd(_mm256_mul_pd(vax, u), vbx)));
            _mm_storeu_ps(ys + i, _mm256_cvtpd_ps(_mm256_add_pd(_mm256_mul_pd(vay, u), vby)));
            u = _mm256_add_pd(u, step);
        }
    }
    for (; i < n; ++i) {
        const double u = double(x) + i;
        xs[i] = P(ax * u + bx);
        ys[i] = P(ay * u + by);
    }
}

template <class P>
void perspective_positions(const double* nx, const double* ny, const double* den, int x, int n, P* xs, P* ys) {
    int i = 0;
    if constexpr (std::is_same_v<P, float>) {
        const __m256d one = _mm256_set1_pd(1.0), step = _mm256_set1_pd(4.0);
        const __m256d a0 = _mm256_set1_pd(nx[0]), b0 = _mm256_set1_pd(nx[1]);
        const __m256d a1 = _mm256_set1_pd(ny[0]), b1 = _mm256_set1_pd(ny[1]);
        const __m256d a2 = _mm256_set1_pd(den[0]), b2 = _mm256_set1_pd(den[1]);
        __m256d u = _mm256_setr_pd(x, x + 1.0, x + 2.0, x + 3.0);
        for (; i + 4 <= n; i += 4) {
            const __m256d r = _mm256_div_pd(one, _mm256_add_pd(_mm256_mul_pd(a2, u), b2));
            _mm_storeu_ps(xs + i, _mm256_cvtpd_ps(_mm256_mul_pd(_mm256_add_pd(_mm256_mul_pd(a0, u), b0), r)));
            _mm_storeu_ps(ys + i, _mm256_cvtpd_ps(_mm256_mul_pd(_mm256_add_pd(_mm256_mul_pd(a1, u), b1), r)));
            u = _mm256_add_pd(u, step);
        }
    }
    for (; i < n; ++i) {
        const double u = double(x) + i;
        const double r = 1.0 / (den[0] * u + den[1]);
        xs[i] = P((nx[0] * u + nx[1]) * r);
        ys[i] = P((ny[0] * u + ny[1]) * r);
    }
}

template void interpolate_pixels<Rok8u, float>(const PixelSource<Rok8u>&, const PixelRule&, const float*,
                                               const float*, int, Rok8u*);
template void interpolate_pixels<Rok16u, float>(const PixelSource<Rok16u>&, const PixelRule&, const float*,
                                                const float*, int, Rok16u*);
template void interpolate_pixels<Rok16s, float>(const PixelSource<Rok16s>&, const PixelRule&, const float*,
                                                const float*, int, Rok16s*);
template void interpolate_pixels<Rok32f, float>(const PixelSource<Rok32f>&, const PixelRule&, const float*,
                                                const float*, int, Rok32f*);
template void interpolate_pixels<Rok64f, double>(const PixelSource<Rok64f>&, const PixelRule&, const double*,
                                                 const double*, int, Rok64f*);
template void affine_positions<float>(double, double, double, double, int, int, float*, float*);
template void affine_positions<double>(double, double, double, double, int, int, double*, double*);
template void perspective_positions<float>(const double*, const double*, const double*, int, int, float*, float*);
template void perspective_positions<double>(const double*, const double*, const double*, int, int, double*,
                                            double*);

}  // namespace rok::kernels
