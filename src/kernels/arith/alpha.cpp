#include "kernels/arith/alpha.h"

#include <immintrin.h>

#include <cstdint>
#include <type_traits>

#include "kernels/arith/mul_scale.h"

namespace rok::kernels {

namespace {

template <class T>
inline T product(T c, T a) {
    constexpr int bits = 8 * sizeof(T);
    const std::uint32_t t = std::uint32_t(c) * a;  // at most 0xFFFE0001: the sum below fits
    return T((t + 1 + (t >> bits)) >> bits);
}

template <class T>
inline __m256i product(__m256i x, __m256i y) {
    if constexpr (std::is_same_v<T, Rok8u>) return mul_scale_8u(x, y);
    else return mul_scale_16u(x, y);
}

// Whole vectors of pixels, aligned on d where a pixel boundary allows it,
// with scalar pixels before and after; pixel(i) does one pixel, vec(x) one
// vector of 32 / (4 sizeof(T)) pixels.
template <class T, class Pixel, class Vec>
void each_pixel(const T* s, T* d, int pixels, Pixel pixel, Vec vec) {
    constexpr int per_vector = 32 / (4 * sizeof(T));
    int i = 0;
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (pixels >= 2 * per_vector) {
        if (mis % (4 * sizeof(T)) == 0)
            for (const int head = int(((32 - mis) & 31) / (4 * sizeof(T))); i < head; ++i) pixel(i);
        for (; i + per_vector <= pixels; i += per_vector)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 4 * i),
                                vec(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 4 * i))));
    }
    for (; i < pixels; ++i) pixel(i);
}

}  // namespace

template <class T>
void premultiply_ac4(const T* s, T* d, int pixels) {
    // Each pixel's alpha repeated over its colour samples by a byte shuffle,
    // full scale in the alpha position: alpha times full scale is alpha.
    __m256i spread, full;
    if constexpr (std::is_same_v<T, Rok8u>) {
        spread = _mm256_setr_epi8(3, 3, 3, -1, 7, 7, 7, -1, 11, 11, 11, -1, 15, 15, 15, -1,
                                  3, 3, 3, -1, 7, 7, 7, -1, 11, 11, 11, -1, 15, 15, 15, -1);
        full = _mm256_set1_epi32(int(0xFF000000u));
    } else {
        spread = _mm256_setr_epi8(6, 7, 6, 7, 6, 7, -1, -1, 14, 15, 14, 15, 14, 15, -1, -1,
                                  6, 7, 6, 7, 6, 7, -1, -1, 14, 15, 14, 15, 14, 15, -1, -1);
        full = _mm256_set1_epi64x(std::int64_t(0xFFFF000000000000ull));
    }
    each_pixel(
        s, d, pixels,
        [&](int i) {
            const T a = s[4 * i + 3];
            for (int c = 0; c < 3; ++c) d[4 * i + c] = product(s[4 * i + c], a);
            d[4 * i + 3] = a;
        },
        [&](__m256i x) { return product<T>(x, _mm256_or_si256(_mm256_shuffle_epi8(x, spread), full)); });
}

template <class T>
void premultiply_ac4_by(const T* s, T alpha, T* d, int pixels) {
    // Products with (alpha, alpha, alpha, 0), then alpha into the alpha position.
    __m256i factor, alpha_only;
    if constexpr (std::is_same_v<T, Rok8u>) {
        factor = _mm256_set1_epi32(int(alpha * 0x010101u));
        alpha_only = _mm256_set1_epi32(int(std::uint32_t(alpha) << 24));
    } else {
        factor = _mm256_set1_epi64x(std::int64_t(alpha * 0x000100010001ull));
        alpha_only = _mm256_set1_epi64x(std::int64_t(std::uint64_t(alpha) << 48));
    }
    each_pixel(
        s, d, pixels,
        [&](int i) {
            for (int c = 0; c < 3; ++c) d[4 * i + c] = product(s[4 * i + c], alpha);
            d[4 * i + 3] = alpha;
        },
        [&](__m256i x) { return _mm256_or_si256(product<T>(x, factor), alpha_only); });
}

template void premultiply_ac4<Rok8u>(const Rok8u*, Rok8u*, int);
template void premultiply_ac4<Rok16u>(const Rok16u*, Rok16u*, int);
template void premultiply_ac4_by<Rok8u>(const Rok8u*, Rok8u, Rok8u*, int);
template void premultiply_ac4_by<Rok16u>(const Rok16u*, Rok16u, Rok16u*, int);

}  // namespace rok::kernels
