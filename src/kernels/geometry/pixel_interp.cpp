// Per-pixel interpolation: the vector blocks where pixel_fast.cpp has them,
// the rule of pixel_rules.h one pixel at a time everywhere else.
#include "kernels/geometry/pixel_interp.h"

#include "kernels/geometry/pixel_fast.h"
#include "kernels/geometry/pixel_rules.h"

namespace rok::kernels {

template <class T, class P>
void interpolate_pixels(const PixelSource<T>& src, const PixelRule& rule, const P* xs, const P* ys, int n, T* dst) {
    if (pixel::fast_row(src, rule, xs, ys, n, dst)) return;
    for (int i = 0; i < n; ++i) pixel::pixel(src, rule, xs[i], ys[i], dst + std::ptrdiff_t(i) * src.nc);
}

template <class T>
void interpolate_row(const PixelSource<T>& src, const PixelRule& rule, const RowMap& map, int x, int n, T* dst) {
    if (pixel::fast_map_row(src, rule, map, x, n, dst)) return;
    using P = std::conditional_t<std::is_same_v<T, Rok64f>, double, float>;
    constexpr int kBlock = 256;
    alignas(32) P xs[kBlock], ys[kBlock];
    for (int i = 0; i < n; i += kBlock) {
        const int m = n - i < kBlock ? n - i : kBlock;
        for (int j = 0; j < m; ++j) map_position(map, double(x) + i + j, xs + j, ys + j);
        interpolate_pixels(src, rule, xs, ys, m, dst + std::ptrdiff_t(i) * src.nc);
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
template void interpolate_row<Rok8u>(const PixelSource<Rok8u>&, const PixelRule&, const RowMap&, int, int, Rok8u*);
template void interpolate_row<Rok16u>(const PixelSource<Rok16u>&, const PixelRule&, const RowMap&, int, int, Rok16u*);
template void interpolate_row<Rok32f>(const PixelSource<Rok32f>&, const PixelRule&, const RowMap&, int, int, Rok32f*);
template void interpolate_row<Rok64f>(const PixelSource<Rok64f>&, const PixelRule&, const RowMap&, int, int, Rok64f*);

}  // namespace rok::kernels
