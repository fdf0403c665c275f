// Float reductions: single-precision partial sums for the fast path,
// double-precision partials for the accurate path and the dot products.
#include <immintrin.h>

#include "kernels/stats/stats.h"
#include "kernels/stats/stats_engine.h"

namespace rok::kernels {

namespace {

using namespace stats_engine;

// Up to n < 8 floats with zeros after them (masked lanes are not read).
inline __m256 load_first(const float* p, std::size_t n) {
    return _mm256_maskload_ps(p, lanes_below(n));
}
inline __m128 load_first4(const float* p, std::size_t n) {
    return _mm_maskload_ps(p, _mm256_castsi256_si128(lanes_below(n)));
}

inline __m256 abs_ps(__m256 x) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), x); }
inline __m256d abs_pd(__m256d x) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), x); }

template <FloatTerm Term, bool Diff>
void float_walk(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, float* part) {
    constexpr int P = kFloatPartials / 8;
    __m256 acc[P];
    for (int k = 0; k < P; ++k) acc[k] = _mm256_loadu_ps(part + 8 * k);
    for (int y = 0; y < h; ++y) {
        const Rok32f* ra = row(a, as, y);
        const Rok32f* rb = Diff ? row(b, bs, y) : ra;
        walk_row<P, 8>(m, [&](auto k, std::size_t i, auto n) {
            __m256 x = n < 8 ? load_first(ra + i, n) : _mm256_loadu_ps(ra + i);
            if constexpr (Diff) x = _mm256_sub_ps(x, n < 8 ? load_first(rb + i, n) : _mm256_loadu_ps(rb + i));
            if constexpr (Term == FloatTerm::Square)
                acc[k] = _mm256_fmadd_ps(x, x, acc[k]);
            else
                acc[k] = _mm256_add_ps(acc[k], Term == FloatTerm::Abs ? abs_ps(x) : x);
        });
    }
    for (int k = 0; k < P; ++k) _mm256_storeu_ps(part + 8 * k, acc[k]);
}

// Four samples of 32-bit data as doubles.
inline __m256d to_pd(__m128 x) { return _mm256_cvtps_pd(x); }
inline __m256d to_pd(__m128i x) { return _mm256_cvtepi32_pd(x); }

template <class T>
inline __m256d load4_pd(const T* p, std::size_t n) {
    if constexpr (std::is_same_v<T, Rok32f>) {
        return to_pd(n < 4 ? load_first4(p, n) : _mm_loadu_ps(p));
    } else {
        const int* q = reinterpret_cast<const int*>(p);
        __m128i v = n < 4 ? _mm_maskload_epi32(q, _mm256_castsi256_si128(lanes_below(n)))
                          : _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
        if constexpr (std::is_same_v<T, Rok32u>) {
            // Unsigned: flip the top bit, convert as signed, add 2^31 back
            // (a masked-off 0 comes back as 0).
            return _mm256_add_pd(to_pd(_mm_xor_si128(v, _mm_set1_epi32(INT32_MIN))), _mm256_set1_pd(2147483648.0));
        } else {
            return to_pd(v);
        }
    }
}

// Eight partials per channel (sixteen for one-channel products): vector k
// of four samples feeds accumulator k mod P, i.e. sample i feeds partial
// i mod 4P.
template <int NC, FloatTerm Term, bool Two, bool Product, class T>
void double_walk(const T* a, int as, const T* b, int bs, std::size_t m, int h, double* part) {
    constexpr int P = (Product ? dot_partials(NC) : 8) * NC / 4;
    __m256d acc[P];
    for (int k = 0; k < P; ++k) acc[k] = _mm256_loadu_pd(part + 4 * k);
    for (int y = 0; y < h; ++y) {
        const T* ra = row(a, as, y);
        const T* rb = Two ? row(b, bs, y) : ra;
        walk_row<P, 4>(m, [&](auto k, std::size_t i, auto n) {
            __m256d x = load4_pd(ra + i, n);
            if constexpr (Product) {
                acc[k] = _mm256_fmadd_pd(x, load4_pd(rb + i, n), acc[k]);
                return;
            } else {
                if constexpr (Two) x = _mm256_sub_pd(x, load4_pd(rb + i, n));
                if constexpr (Term == FloatTerm::Square)
                    acc[k] = _mm256_fmadd_pd(x, x, acc[k]);
                else
                    acc[k] = _mm256_add_pd(acc[k], Term == FloatTerm::Abs ? abs_pd(x) : x);
            }
        });
    }
    for (int k = 0; k < P; ++k) _mm256_storeu_pd(part + 4 * k, acc[k]);
}

template <FloatTerm Term, bool Two, bool Product, class T>
void double_by_channels(const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc, double* part) {
    switch (nc) {
        case 1: return double_walk<1, Term, Two, Product>(a, as, b, bs, m, h, part);
        case 3: return double_walk<3, Term, Two, Product>(a, as, b, bs, m, h, part);
        default: return double_walk<4, Term, Two, Product>(a, as, b, bs, m, h, part);
    }
}

template <bool Diff>
void float_by_term(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, FloatTerm term,
                   float* part) {
    switch (term) {
        case FloatTerm::Value: return float_walk<FloatTerm::Value, Diff>(a, as, b, bs, m, h, part);
        case FloatTerm::Abs: return float_walk<FloatTerm::Abs, Diff>(a, as, b, bs, m, h, part);
        default: return float_walk<FloatTerm::Square, Diff>(a, as, b, bs, m, h, part);
    }
}

template <bool Two>
void double_by_term(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, int nc,
                    FloatTerm term, double* part) {
    switch (term) {
        case FloatTerm::Value: return double_by_channels<FloatTerm::Value, Two, false>(a, as, b, bs, m, h, nc, part);
        case FloatTerm::Abs: return double_by_channels<FloatTerm::Abs, Two, false>(a, as, b, bs, m, h, nc, part);
        default: return double_by_channels<FloatTerm::Square, Two, false>(a, as, b, bs, m, h, nc, part);
    }
}

}  // namespace

void float_partials(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, FloatTerm term,
                    float* part) {
    if (b)
        float_by_term<true>(a, as, b, bs, m, h, term, part);
    else
        float_by_term<false>(a, as, a, as, m, h, term, part);
}

void double_partials(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, int nc,
                     FloatTerm term, double* part) {
    if (b)
        double_by_term<true>(a, as, b, bs, m, h, nc, term, part);
    else
        double_by_term<false>(a, as, a, as, m, h, nc, term, part);
}

void double_dot(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, int nc, double* part) {
    double_by_channels<FloatTerm::Value, true, true>(a, as, b, bs, m, h, nc, part);
}
void double_dot(const Rok32s* a, int as, const Rok32s* b, int bs, std::size_t m, int h, int nc, double* part) {
    double_by_channels<FloatTerm::Value, true, true>(a, as, b, bs, m, h, nc, part);
}
void double_dot(const Rok32u* a, int as, const Rok32u* b, int bs, std::size_t m, int h, int nc, double* part) {
    double_by_channels<FloatTerm::Value, true, true>(a, as, b, bs, m, h, nc, part);
}

}  // namespace rok::kernels
