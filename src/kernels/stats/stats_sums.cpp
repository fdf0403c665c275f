// Exact integer sums, norms' totals, dot products and range counts.
#include <immintrin.h>

#include "kernels/stats/stats.h"
#include "kernels/stats/stats_engine.h"

namespace rok::kernels {

namespace {

using namespace stats_engine;

// Runs one walker with the accumulator count the channel count needs (a
// multiple of 3 for three channels; `Other` for one or four).
template <template <int> class Walker, int Other = 1, class... Args>
void by_channels(int nc, Args&&... args) {
    if (nc == 3)
        Walker<3>::run(std::forward<Args>(args)...);
    else
        Walker<Other>::run(std::forward<Args>(args)...);
}

template <int P>
struct Terms32 {
    template <class T, class Term>
    static void run(const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc, Term term,
                    std::int64_t* out) {
        sum_terms32<P>(a, as, b, bs, m, h, nc, term, out);
    }
};

template <int P>
struct Products64 {
    template <class T, class Factors>
    static void run(const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc, Factors f,
                    std::int64_t* out) {
        sum_products64<P>(a, as, b, bs, m, h, nc, f, out);
    }
};

template <int P>
struct ByteTerms {
    template <class Term>
    static void run(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, Term term,
                    std::int64_t* out) {
        sum_byte_terms<P>(a, as, b, bs, m, h, nc, term, out);
    }
};

// Terms that are 0 or 1.
template <int P>
struct UnitByteTerms {
    template <class Term>
    static void run(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, Term term,
                    std::int64_t* out) {
        sum_byte_terms<P, true>(a, as, b, bs, m, h, nc, term, out);
    }
};

const auto kByteValue = [](__m256i x, __m256i, int) { return x; };
const auto kByteDistance = [](__m256i x, __m256i y, int) {
    return _mm256_or_si256(_mm256_subs_epu8(x, y), _mm256_subs_epu8(y, x));
};
const auto kValue = [](__m256i x, __m256i, int) { return x; };
const auto kAbs = [](__m256i x, __m256i, int) { return _mm256_abs_epi32(x); };
const auto kSquare = [](__m256i x, __m256i, int) { return _mm256_mullo_epi32(x, x); };
const auto kDiffAbs = [](__m256i x, __m256i y, int) { return _mm256_abs_epi32(_mm256_sub_epi32(x, y)); };
const auto kDiffSquare = [](__m256i x, __m256i y, int) {
    const __m256i d = _mm256_sub_epi32(x, y);
    return _mm256_mullo_epi32(d, d);
};
const auto kProduct = [](__m256i x, __m256i y, int) { return _mm256_mullo_epi32(x, y); };
const auto kSquareFactors = [](__m256i x, __m256i) { return std::pair{x, x}; };
const auto kDiffFactors = [](__m256i x, __m256i y) {
    const __m256i d = _mm256_sub_epi32(x, y);
    return std::pair{d, d};
};
const auto kProductFactors = [](__m256i x, __m256i y) { return std::pair{x, y}; };

}  // namespace

void sum(const Rok8u* p, int step, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<ByteTerms, 4>(nc, p, step, decltype(p){}, 0, m, h, nc, kByteValue, out);
}
void sum(const Rok16s* p, int step, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Terms32>(nc, p, step, decltype(p){}, 0, m, h, nc, kValue, out);
}
void sum(const Rok16u* p, int step, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Terms32>(nc, p, step, decltype(p){}, 0, m, h, nc, kValue, out);
}
void abs_sum(const Rok16s* p, int step, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Terms32>(nc, p, step, decltype(p){}, 0, m, h, nc, kAbs, out);
}
void sq_sum(const Rok8u* p, int step, std::size_t m, int h, int nc, std::int64_t* out) {
    if (nc == 1) {
        out[0] += sum_pair_products<Pairs::Square>(p, step, p, step, m, h);
        return;
    }
    by_channels<Terms32>(nc, p, step, decltype(p){}, 0, m, h, nc, kSquare, out);
}
void sq_sum(const Rok16s* p, int step, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Products64>(nc, p, step, decltype(p){}, 0, m, h, nc, kSquareFactors, out);
}
void sq_sum(const Rok16u* p, int step, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Products64>(nc, p, step, decltype(p){}, 0, m, h, nc, kSquareFactors, out);
}

void diff_abs_sum(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<ByteTerms, 4>(nc, a, as, b, bs, m, h, nc, kByteDistance, out);
}
void diff_abs_sum(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc,
                  std::int64_t* out) {
    by_channels<Terms32>(nc, a, as, b, bs, m, h, nc, kDiffAbs, out);
}
void diff_abs_sum(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc,
                  std::int64_t* out) {
    by_channels<Terms32>(nc, a, as, b, bs, m, h, nc, kDiffAbs, out);
}
void diff_sq_sum(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out) {
    if (nc == 1) {
        out[0] += sum_pair_products<Pairs::DiffSquare>(a, as, b, bs, m, h);
        return;
    }
    by_channels<Terms32>(nc, a, as, b, bs, m, h, nc, kDiffSquare, out);
}
void diff_sq_sum(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc,
                 std::int64_t* out) {
    by_channels<Products64>(nc, a, as, b, bs, m, h, nc, kDiffFactors, out);
}
void diff_sq_sum(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc,
                 std::int64_t* out) {
    by_channels<Products64>(nc, a, as, b, bs, m, h, nc, kDiffFactors, out);
}

void dot(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out) {
    if (nc == 1) {
        out[0] += sum_pair_products<Pairs::Product>(a, as, b, bs, m, h);
        return;
    }
    by_channels<Terms32>(nc, a, as, b, bs, m, h, nc, kProduct, out);
}
void dot(const Rok8s* a, int as, const Rok8s* b, int bs, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Terms32>(nc, a, as, b, bs, m, h, nc, kProduct, out);
}
void dot(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Products64>(nc, a, as, b, bs, m, h, nc, kProductFactors, out);
}
void dot(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc, std::int64_t* out) {
    by_channels<Products64>(nc, a, as, b, bs, m, h, nc, kProductFactors, out);
}

namespace {

// Per-accumulator bound vectors: lane j of accumulator k is sample 8k + j
// of its block, channel (8k + j) mod nc.
template <class V, class T>
void bound_lanes(const T* bounds, int nc, V* lanes, int blocks) {
    for (int k = 0; k < blocks; ++k)
        for (int j = 0; j < 8; ++j) lanes[8 * k + j] = V(bounds[(8 * k + j) % nc]);
}

}  // namespace

void count_in_range(const Rok8u* p, int step, std::size_t m, int h, int nc, const Rok8u* lo, const Rok8u* hi,
                    std::int64_t* out) {
    // Byte j of accumulator k is sample 32k + j of its block. A sample is in
    // range when x - lo (wrapping) is at most hi - lo; the term is 1.
    __m256i lv[4], span[4];
    for (int k = 0; k < 4; ++k) {
        alignas(32) std::uint8_t l[32], s[32];
        for (int j = 0; j < 32; ++j) {
            const int c = (32 * k + j) % nc;
            l[j] = lo[c];
            s[j] = std::uint8_t(hi[c] - lo[c]);
        }
        lv[k] = _mm256_load_si256(reinterpret_cast<const __m256i*>(l));
        span[k] = _mm256_load_si256(reinterpret_cast<const __m256i*>(s));
    }
    const auto inside = [&](__m256i x, __m256i, int k) {
        const __m256i d = _mm256_sub_epi8(x, lv[k]);
        return _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_min_epu8(d, span[k]), d), _mm256_set1_epi8(1));
    };
    by_channels<UnitByteTerms, 4>(nc, p, step, static_cast<const Rok8u*>(nullptr), 0, m, h, nc, inside, out);
}

void count_in_range(const Rok32f* p, int step, std::size_t m, int h, int nc, const Rok32f* lo, const Rok32f* hi,
                    std::int64_t* out) {
    alignas(32) float l[24], u[24];
    bound_lanes(lo, nc, l, 3);
    bound_lanes(hi, nc, u, 3);
    __m256 lv[3], uv[3];
    for (int k = 0; k < 3; ++k) {
        lv[k] = _mm256_load_ps(l + 8 * k);
        uv[k] = _mm256_load_ps(u + 8 * k);
    }
    const auto inside = [&](__m256i xi, __m256i, int k) {
        const __m256 x = _mm256_castsi256_ps(xi);
        const __m256 in = _mm256_and_ps(_mm256_cmp_ps(x, lv[k], _CMP_GE_OQ), _mm256_cmp_ps(x, uv[k], _CMP_LE_OQ));
        return _mm256_and_si256(_mm256_castps_si256(in), _mm256_set1_epi32(1));
    };
    by_channels<Terms32>(nc, p, step, static_cast<const Rok32f*>(nullptr), 0, m, h, nc, inside, out);
}

}  // namespace rok::kernels
