// The vector (colour) median: the neighbourhood pixel whose L1 distances to
// all the others sum least, the first in row-major order on a tie.
#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "kernels/filter/median_general.h"
#include "kernels/filter/median_lanes.h"

namespace rok::kernels {

namespace {

using median::offset;

template <class T>
using Distance = std::conditional_t<std::is_floating_point_v<T>, double, std::int32_t>;

template <class T>
Distance<T> l1(const T* a, const T* b) {
    Distance<T> d = 0;
    for (int c = 0; c < 3; ++c) {
        if constexpr (std::is_floating_point_v<T>) d += std::fabs(double(a[c]) - double(b[c]));
        else d += a[c] < b[c] ? Distance<T>(b[c]) - a[c] : Distance<T>(a[c]) - b[c];
    }
    return d;
}

// Whether sum s beats the best so far (NaN never beats, and loses to all).
template <class D>
bool beats(D s, D best) {
    if constexpr (std::is_floating_point_v<D>) return !std::isnan(s) && (std::isnan(best) || s < best);
    else return s < best;
}

// The rule, one output at a time.
template <class T>
void color_scalar(const T* centre, std::ptrdiff_t step, int stride, int radius, T* dst, int first, int end) {
    using D = Distance<T>;
    const int side = 2 * radius + 1, count = side * side;
    T px[25][3];
    D sum[25];
    for (int x = first; x < end; ++x) {
        int i = 0;
        for (int dy = -radius; dy <= radius; ++dy) {
            const T* r = offset(centre, dy * step) + std::ptrdiff_t(x) * stride;
            for (int dx = -radius; dx <= radius; ++dx, ++i)
                for (int c = 0; c < 3; ++c) px[i][c] = r[dx * stride + c];
        }
        std::fill(sum, sum + count, D(0));
        // Each pair once; sum[i] still receives its terms in row-major order.
        for (int a = 0; a < count; ++a)
            for (int b = a + 1; b < count; ++b) {
                const D d = l1(px[a], px[b]);
                sum[a] += d;
                sum[b] += d;
            }
        int best = 0;
        for (int k = 1; k < count; ++k)
            if (beats(sum[k], sum[best])) best = k;
        for (int c = 0; c < 3; ++c) dst[std::size_t(x) * stride + c] = px[best][c];
    }
}

// 8-bit data, sixteen outputs at a time in 16-bit lanes (a sum is at most
// 24 x 3 x 255 = 18360). A chunk of the neighbourhood's rows is first laid
// out as one plane of 16-bit samples per row and channel, where each
// neighbour of sixteen outputs is one load away.
constexpr int kColorChunk = 256;

template <int R>
void color_8u(const Rok8u* centre, std::ptrdiff_t step, int stride, Rok8u* dst, int width) {
    constexpr int side = 2 * R + 1, count = side * side;
    alignas(32) std::uint16_t plane[side][3][kColorChunk + 2 * R];
    int x0 = 0;
    while (width - x0 >= 16) {
        const int m = std::min(kColorChunk, (width - x0) / 16 * 16);
        for (int dy = -R; dy <= R; ++dy) {
            const Rok8u* r = offset(centre, dy * step) + std::ptrdiff_t(x0 - R) * stride;
            for (int p = 0; p < m + 2 * R; ++p)
                for (int c = 0; c < 3; ++c) plane[dy + R][c][p] = r[std::size_t(p) * stride + c];
        }
        for (int xv = 0; xv < m; xv += 16) {
            __m256i ch[count][3];
            for (int i = 0; i < count; ++i)
                for (int c = 0; c < 3; ++c)
                    ch[i][c] = _mm256_loadu_si256(
                        reinterpret_cast<const __m256i*>(&plane[i / side][c][xv + i % side]));
            __m256i sum[count];
            for (__m256i& s : sum) s = _mm256_setzero_si256();
            for (int a = 0; a < count; ++a)
                for (int b = a + 1; b < count; ++b) {
                    __m256i d = _mm256_abs_epi16(_mm256_sub_epi16(ch[a][0], ch[b][0]));
                    d = _mm256_add_epi16(d, _mm256_abs_epi16(_mm256_sub_epi16(ch[a][1], ch[b][1])));
                    d = _mm256_add_epi16(d, _mm256_abs_epi16(_mm256_sub_epi16(ch[a][2], ch[b][2])));
                    sum[a] = _mm256_add_epi16(sum[a], d);
                    sum[b] = _mm256_add_epi16(sum[b], d);
                }
            // The first least sum, and the channels of its pixel.
            __m256i best = sum[0];
            __m256i out[3] = {ch[0][0], ch[0][1], ch[0][2]};
            for (int i = 1; i < count; ++i) {
                const __m256i less = _mm256_cmpgt_epi16(best, sum[i]);
                best = _mm256_min_epi16(best, sum[i]);
                for (int c = 0; c < 3; ++c) out[c] = _mm256_blendv_epi8(out[c], ch[i][c], less);
            }
            alignas(32) std::uint16_t lanes[3][16];
            for (int c = 0; c < 3; ++c) _mm256_store_si256(reinterpret_cast<__m256i*>(lanes[c]), out[c]);
            Rok8u* d = dst + std::size_t(x0 + xv) * stride;
            for (int j = 0; j < 16; ++j)
                for (int c = 0; c < 3; ++c) d[std::size_t(j) * stride + c] = Rok8u(lanes[c][j]);
        }
        x0 += m;
    }
    color_scalar(centre, step, stride, R, dst, x0, width);
}

}  // namespace

void median_color_row(const Rok8u* c, std::ptrdiff_t step, int stride, int radius, Rok8u* d, int w) {
    if (radius == 1) color_8u<1>(c, step, stride, d, w);
    else color_8u<2>(c, step, stride, d, w);
}
void median_color_row(const Rok16s* c, std::ptrdiff_t step, int stride, int radius, Rok16s* d, int w) {
    color_scalar(c, step, stride, radius, d, 0, w);
}
void median_color_row(const Rok32f* c, std::ptrdiff_t step, int stride, int radius, Rok32f* d, int w) {
    color_scalar(c, step, stride, radius, d, 0, w);
}

}  // namespace rok::kernels
