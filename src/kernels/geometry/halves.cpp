// Exact 2:1 reductions of the resize, the path of a factor of 1/2 on pixel
// boundaries inside the source rectangle, and nearest neighbour at half
// resolution.
#include <immintrin.h>

#include <cstdint>
#include <type_traits>

#include "frame/generated/roki_types.h"
#include "kernels/geometry/interp_rows.h"
#include "kernels/rules.h"

namespace rok::kernels {

namespace {

// s / 4 with ties to even for sums s of four bytes in 16-bit lanes:
// (s + 1 + ((s >> 2) & 1)) >> 2.
inline __m256i quarter_even(__m256i s) {
    const __m256i one = _mm256_set1_epi16(1);
    const __m256i odd = _mm256_and_si256(_mm256_srli_epi16(s, 2), one);
    return _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(s, one), odd), 2);
}

// Sums of horizontal neighbour pairs over both rows, 16 per 32 bytes: the
// pairing shuffle puts the two samples of each pair side by side and a
// multiply-add with ones sums them.
inline __m256i pair_sums(__m256i a, __m256i b, __m256i pairing) {
    const __m256i ones = _mm256_set1_epi8(1);
    return _mm256_add_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(a, pairing), ones),
                            _mm256_maddubs_epi16(_mm256_shuffle_epi8(b, pairing), ones));
}

inline __m256i load(const std::uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

// 8u: returns the pixels done; the caller finishes the rest by the rule.
int halve_bytes(const std::uint8_t* a, const std::uint8_t* b, int count, int nc, std::ptrdiff_t ahead,
                std::uint8_t* o) {
    int x = 0;
    // The rows of the next output row, brought in while these are read: a
    // line of each per 64 bytes taken (a prefetch never faults, so the
    // rows past the image cost nothing).
    auto fetch = [&](std::size_t at) {
        if (ahead) {
            _mm_prefetch(reinterpret_cast<const char*>(a) + ahead + at, _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(b) + ahead + at, _MM_HINT_T0);
        }
    };
    if (nc == 1) {
        const __m256i ones = _mm256_set1_epi8(1);
        for (; x + 32 <= count; x += 32) {
            fetch(2 * x);
            const __m256i lo = quarter_even(_mm256_add_epi16(_mm256_maddubs_epi16(load(a + 2 * x), ones),
                                                             _mm256_maddubs_epi16(load(b + 2 * x), ones)));
            const __m256i hi = quarter_even(_mm256_add_epi16(_mm256_maddubs_epi16(load(a + 2 * x + 32), ones),
                                                             _mm256_maddubs_epi16(load(b + 2 * x + 32), ones)));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + x),
                                _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8));
        }
    } else if (nc == 4) {
        const __m256i pairing = _mm256_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15, 0, 4, 1, 5, 2,
                                                 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
        for (; x + 8 <= count; x += 8) {
            fetch(8 * x);
            const __m256i lo = quarter_even(pair_sums(load(a + 8 * x), load(b + 8 * x), pairing));
            const __m256i hi = quarter_even(pair_sums(load(a + 8 * x + 32), load(b + 8 * x + 32), pairing));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + 4 * x),
                                _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8));
        }
    } else if (nc == 3) {
        // Four source pixels (12 bytes) per 16-byte lane make two output
        // pixels; each 8-byte store carries 2 bytes that the next one
        // rewrites, so the loop keeps one output pixel back for the tail.
        const __m256i pairing = _mm256_setr_epi8(0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1, 0, 3, 1, 4, 2,
                                                 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1);
        auto two_lanes = [](const std::uint8_t* p) {
            return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(p + 12), reinterpret_cast<const __m128i*>(p));
        };
        for (; x + 5 <= count; x += 4) {
            fetch(6 * x);
            const __m256i m = quarter_even(pair_sums(two_lanes(a + 6 * x), two_lanes(b + 6 * x), pairing));
            const __m256i bytes = _mm256_packus_epi16(m, m);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(o + 3 * x), _mm256_castsi256_si128(bytes));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(o + 3 * x + 6), _mm256_extracti128_si256(bytes, 1));
        }
    }
    return x;
}

// 32f, one channel, by either rule; returns the pixels done.
int halve_floats(const float* a, const float* b, int count, Halving rule, std::ptrdiff_t ahead, float* o) {
    int x = 0;
    const char* pa = reinterpret_cast<const char*>(a) + ahead;
    const char* pb = reinterpret_cast<const char*>(b) + ahead;  // as in halve_bytes
    const __m256 half = _mm256_set1_ps(0.5f), quarter = _mm256_set1_ps(0.25f);
    for (; x + 8 <= count; x += 8) {
        // Even and odd samples of each row; the lanes come out in the order
        // 0 1 4 5 2 3 6 7, put right once at the end.
        if (ahead) {
            _mm_prefetch(pa + 8 * x, _MM_HINT_T0);
            _mm_prefetch(pb + 8 * x, _MM_HINT_T0);
        }
        const __m256 a0 = _mm256_loadu_ps(a + 2 * x), a1 = _mm256_loadu_ps(a + 2 * x + 8);
        const __m256 b0 = _mm256_loadu_ps(b + 2 * x), b1 = _mm256_loadu_ps(b + 2 * x + 8);
        __m256 v;
        if (rule == Halving::Linear) {
            const __m256 ae = _mm256_shuffle_ps(a0, a1, 0x88), ao = _mm256_shuffle_ps(a0, a1, 0xDD);
            const __m256 be = _mm256_shuffle_ps(b0, b1, 0x88), bo = _mm256_shuffle_ps(b0, b1, 0xDD);
            const __m256 h0 = _mm256_add_ps(ae, _mm256_mul_ps(_mm256_sub_ps(ao, ae), half));
            const __m256 h1 = _mm256_add_ps(be, _mm256_mul_ps(_mm256_sub_ps(bo, be), half));
            v = _mm256_add_ps(h0, _mm256_mul_ps(_mm256_sub_ps(h1, h0), half));
        } else {
            // The two rows added sample by sample, then each even sum to its
            // odd neighbour: ((a0 + a1) + (b0 + b1)) with fewer shuffles.
            v = _mm256_mul_ps(_mm256_hadd_ps(_mm256_add_ps(a0, b0), _mm256_add_ps(a1, b1)), quarter);
        }
        _mm256_storeu_ps(o + x, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(v), 0xD8)));
    }
    return x;
}

}  // namespace

template <class T>
void halve_2x2(const T* r0, const T* r1, int count, int nc, Halving rule, T* out, std::ptrdiff_t ahead) {
    int x = 0;
    if constexpr (sizeof(T) == 1)
        x = halve_bytes(r0, r1, count, nc, ahead, out);
    else if constexpr (std::is_same_v<T, float>)
        x = nc == 1 ? halve_floats(r0, r1, count, rule, ahead, out) : 0;
    for (; x < count; ++x)
        for (int c = 0; c < nc; ++c) {
            const std::size_t i = std::size_t(2 * x) * nc + c;
            const T a0 = r0[i], b0 = r0[i + nc], a1 = r1[i], b1 = r1[i + nc];
            T& d = out[std::size_t(x) * nc + c];
            if constexpr (std::is_floating_point_v<T>) {
                if (rule == Halving::Linear) {
                    const T h0 = a0 + (b0 - a0) * T(0.5), h1 = a1 + (b1 - a1) * T(0.5);
                    d = h0 + (h1 - h0) * T(0.5);
                } else {
                    d = ((a0 + a1) + (b0 + b1)) * T(0.25);
                }
            } else {
                d = T(shift_round_even(std::int64_t(a0) + b0 + a1 + b1, 2));
            }
        }
}

template <class T, int NC>
void every_second(const T* src, int from, int count, T* dst) {
    for (int x = from; x < count; ++x)
        for (int c = 0; c < NC; ++c) dst[std::size_t(x) * NC + c] = src[std::size_t(2 * x) * NC + c];
}

template <class T>
void nearest_halves(const T* src, int count, int nc, T* dst) {
    int x = 0;
    if (nc == 1) {
        // The even samples of two registers: masked to the low half of
        // each double-width lane and packed (the packs see only values that
        // fit, so the bits pass unchanged), or shuffled for 32-bit samples.
        const auto* s = reinterpret_cast<const std::uint8_t*>(src);
        auto* d = reinterpret_cast<std::uint8_t*>(dst);
        // The odd sample after the last output is not read: one output
        // past each block must exist.
        constexpr int step = 32 / sizeof(T);  // samples per register
        for (; x + step < count && sizeof(T) <= 4; x += step) {
            const __m256i a = load(s + 2 * x * sizeof(T)), b = load(s + 2 * x * sizeof(T) + 32);
            __m256i r;
            if constexpr (sizeof(T) == 1) {
                const __m256i low = _mm256_set1_epi16(0x00FF);
                r = _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
            } else if constexpr (sizeof(T) == 2) {
                const __m256i low = _mm256_set1_epi32(0xFFFF);
                r = _mm256_packus_epi32(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
            } else {
                r = _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0x88));
            }
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + x * sizeof(T)), _mm256_permute4x64_epi64(r, 0xD8));
        }
        return every_second<T, 1>(src, x, count, dst);
    }
    if (nc == 3) return every_second<T, 3>(src, 0, count, dst);
    every_second<T, 4>(src, 0, count, dst);
}

template void halve_2x2<Rok8u>(const Rok8u*, const Rok8u*, int, int, Halving, Rok8u*, std::ptrdiff_t);
template void halve_2x2<Rok16u>(const Rok16u*, const Rok16u*, int, int, Halving, Rok16u*, std::ptrdiff_t);
template void halve_2x2<Rok16s>(const Rok16s*, const Rok16s*, int, int, Halving, Rok16s*, std::ptrdiff_t);
template void halve_2x2<Rok32f>(const Rok32f*, const Rok32f*, int, int, Halving, Rok32f*, std::ptrdiff_t);
template void halve_2x2<Rok64f>(const Rok64f*, const Rok64f*, int, int, Halving, Rok64f*, std::ptrdiff_t);
template void nearest_halves<Rok8u>(const Rok8u*, int, int, Rok8u*);
template void nearest_halves<Rok16u>(const Rok16u*, int, int, Rok16u*);
template void nearest_halves<Rok16s>(const Rok16s*, int, int, Rok16s*);
template void nearest_halves<Rok32f>(const Rok32f*, int, int, Rok32f*);
template void nearest_halves<Rok64f>(const Rok64f*, int, int, Rok64f*);

}  // namespace rok::kernels
