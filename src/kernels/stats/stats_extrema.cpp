// Extremes: per-channel minimum and maximum, largest magnitudes, and the
// per-sample minimum or maximum of two images.
#include <immintrin.h>

#include <limits>

#include "kernels/stats/stats.h"
#include "kernels/stats/stats_engine.h"

namespace rok::kernels {

namespace {

using namespace stats_engine;

template <class T>
struct Vec;

template <>
struct Vec<Rok8u> {
    using V = __m256i;
    static V load(const Rok8u* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static V min(V a, V b) { return _mm256_min_epu8(a, b); }
    static V max(V a, V b) { return _mm256_max_epu8(a, b); }
    static V set(Rok8u v) { return _mm256_set1_epi8(char(v)); }
    static bool same(V a, V b) { return _mm256_movemask_epi8(_mm256_cmpeq_epi8(a, b)) == -1; }
    static V magnitude(V x) { return x; }
    static V distance(V a, V b) { return _mm256_or_si256(_mm256_subs_epu8(a, b), _mm256_subs_epu8(b, a)); }
};

template <>
struct Vec<Rok16u> {
    using V = __m256i;
    static V load(const Rok16u* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static V min(V a, V b) { return _mm256_min_epu16(a, b); }
    static V max(V a, V b) { return _mm256_max_epu16(a, b); }
    static V set(Rok16u v) { return _mm256_set1_epi16(short(v)); }
    static bool same(V a, V b) { return _mm256_movemask_epi8(_mm256_cmpeq_epi16(a, b)) == -1; }
    static V magnitude(V x) { return x; }
    static V distance(V a, V b) { return _mm256_or_si256(_mm256_subs_epu16(a, b), _mm256_subs_epu16(b, a)); }
};

template <>
struct Vec<Rok16s> {
    using V = __m256i;
    static V load(const Rok16s* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    static V set(Rok16s v) { return _mm256_set1_epi16(v); }
    static bool same(V a, V b) { return _mm256_movemask_epi8(_mm256_cmpeq_epi16(a, b)) == -1; }
    // |x| and |a - b| as unsigned 16-bit values (32768 and 65535 fit).
    static V magnitude(V x) { return _mm256_abs_epi16(x); }
    static V distance(V a, V b) { return _mm256_sub_epi16(_mm256_max_epi16(a, b), _mm256_min_epi16(a, b)); }
};

template <>
struct Vec<Rok32s> {
    using V = __m256i;
    static V load(const Rok32s* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static V magnitude(V x) { return _mm256_abs_epi32(x); }
};

template <>
struct Vec<Rok32u> {
    using V = __m256i;
    static V max(V a, V b) { return _mm256_max_epu32(a, b); }
    static V set(Rok32u v) { return _mm256_set1_epi32(int(v)); }
};

// A NaN in the first operand leaves the second (the accumulator) as it is.
template <>
struct Vec<Rok32f> {
    using V = __m256;
    static V load(const Rok32f* p) { return _mm256_loadu_ps(p); }
    static V min(V a, V b) { return _mm256_min_ps(a, b); }
    static V max(V a, V b) { return _mm256_max_ps(a, b); }
    static V set(Rok32f v) { return _mm256_set1_ps(v); }
    // Bitwise, so -0 and +0 differ and a lane equal to its target is "same".
    static bool same(V a, V b) {
        const __m256i x = _mm256_castps_si256(a), y = _mm256_castps_si256(b);
        return _mm256_movemask_epi8(_mm256_cmpeq_epi32(x, y)) == -1;
    }
    static V magnitude(V x) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), x); }
    static V distance(V a, V b) { return magnitude(_mm256_sub_ps(a, b)); }
};

inline void store(void* p, __m256 v) { _mm256_storeu_ps(static_cast<float*>(p), v); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

template <class T>
inline T lowest() {
    return std::is_floating_point_v<T> ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::lowest();
}
template <class T>
inline T highest() {
    return std::is_floating_point_v<T> ? std::numeric_limits<T>::infinity() : std::numeric_limits<T>::max();
}

template <int P, class T>
void min_max_walk(const T* p, int step, std::size_t m, int h, int nc, T* mn, T* mx) {
    using W = Vec<T>;
    constexpr std::size_t L = 32 / sizeof(T);
    typename W::V lo[P], hi[P];
    for (int k = 0; k < P; ++k) {
        lo[k] = W::set(highest<T>());
        hi[k] = W::set(lowest<T>());
    }
    for (int y = 0; y < h; ++y) {
        const T* r = row(p, step, y);
        walk_row<P, L>(m, [&](auto k, std::size_t i, auto n) {
            const auto x = n < L ? W::load(Padded<T, L>(r, i, n, m, nc).v) : W::load(r + i);
            lo[k] = W::min(x, lo[k]);
            hi[k] = W::max(x, hi[k]);
        });
    }
    T a[P * L], b[P * L];
    for (int k = 0; k < P; ++k) {
        store(a + k * L, lo[k]);
        store(b + k * L, hi[k]);
    }
    // Called once per row by the index searches: no division per lane.
    for (std::size_t j = 0, c = 0; j < P * L; ++j, c = c + 1 == std::size_t(nc) ? 0 : c + 1) {
        if (a[j] < mn[c]) mn[c] = a[j];
        if (b[j] > mx[c]) mx[c] = b[j];
    }
}

// Largest |x| (One) or |a - b| per channel, as the unsigned type U.
template <int P, bool Two, class T, class U>
void max_abs_walk(const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc, U* out) {
    using W = Vec<T>;
    using WU = Vec<U>;
    constexpr std::size_t L = 32 / sizeof(T);
    typename W::V best[P];
    for (int k = 0; k < P; ++k) best[k] = WU::set(U(0));
    for (int y = 0; y < h; ++y) {
        const T* ra = row(a, as, y);
        const T* rb = Two ? row(b, bs, y) : ra;
        walk_row<P, L>(m, [&](auto k, std::size_t i, auto n) {
            typename W::V t;
            if (n < L) {
                const Padded<T, L> pa(ra, i, n, m, nc);
                if constexpr (Two)
                    t = W::distance(W::load(pa.v), W::load(Padded<T, L>(rb, i, n, m, nc).v));
                else
                    t = W::magnitude(W::load(pa.v));
            } else {
                if constexpr (Two)
                    t = W::distance(W::load(ra + i), W::load(rb + i));
                else
                    t = W::magnitude(W::load(ra + i));
            }
            best[k] = WU::max(t, best[k]);
        });
    }
    U lanes[P * L];
    for (int k = 0; k < P; ++k) store(lanes + k * L, best[k]);
    for (std::size_t j = 0, c = 0; j < P * L; ++j, c = c + 1 == std::size_t(nc) ? 0 : c + 1)
        if (lanes[j] > out[c]) out[c] = lanes[j];
}

// Rows top to bottom. Each row's lanes are folded into P vectors; only a
// row with a lane strictly better than its channel's best so far is folded
// to per-channel values, so most rows cost one compare.
template <int P, bool Max, class T>
void extreme_rows_walk(const T* p, int step, std::size_t m, int h, int nc, T* best, int* best_row) {
    using W = Vec<T>;
    using V = typename W::V;
    constexpr std::size_t L = 32 / sizeof(T);
    const T settled = Max ? highest<T>() : lowest<T>();
    const T worst = Max ? lowest<T>() : highest<T>();
    T pattern[P * L];
    V target[P];
    const auto set_targets = [&] {
        for (std::size_t j = 0, c = 0; j < P * L; ++j, c = c + 1 == std::size_t(nc) ? 0 : c + 1) pattern[j] = best[c];
        for (int k = 0; k < P; ++k) target[k] = W::load(pattern + k * L);
    };
    set_targets();
    int open = 0;
    for (int c = 0; c < nc; ++c) open += best[c] != settled;
    for (int y = 0; y < h && open > 0; ++y) {
        const T* r = row(p, step, y);
        V acc[P];
        for (int k = 0; k < P; ++k) acc[k] = W::set(worst);
        walk_row<P, L>(m, [&](auto k, std::size_t i, auto n) {
            const V x = n < L ? W::load(Padded<T, L>(r, i, n, m, nc).v) : W::load(r + i);
            acc[k] = Max ? W::max(x, acc[k]) : W::min(x, acc[k]);
        });
        // A lane beats its target exactly when the better of the two is not
        // the target.
        bool better = false;
        for (int k = 0; k < P; ++k) {
            const V b = Max ? W::max(acc[k], target[k]) : W::min(acc[k], target[k]);
            better |= !W::same(b, target[k]);
        }
        if (!better) continue;
        T lanes[P * L];
        for (int k = 0; k < P; ++k) store(lanes + k * L, acc[k]);
        for (std::size_t j = 0, c = 0; j < P * L; ++j, c = c + 1 == std::size_t(nc) ? 0 : c + 1) {
            if (best[c] == settled || !(Max ? lanes[j] > best[c] : lanes[j] < best[c])) continue;
            best[c] = lanes[j];
            best_row[c] = y;
            open -= lanes[j] == settled;
        }
        set_targets();
    }
}

// Three accumulators keep three channels' lanes apart; otherwise four, so
// that float minimum and maximum (several cycles each) overlap.
template <bool Two, class T, class U>
void max_abs_by_channels(const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc, U* out) {
    if (nc == 3)
        max_abs_walk<3, Two>(a, as, b, bs, m, h, nc, out);
    else
        max_abs_walk<4, Two>(a, as, b, bs, m, h, nc, out);
}

template <class T>
void min_max_by_channels(const T* p, int step, std::size_t m, int h, int nc, T* mn, T* mx) {
    if (nc == 3)
        min_max_walk<3>(p, step, m, h, nc, mn, mx);
    else
        min_max_walk<4>(p, step, m, h, nc, mn, mx);
}

template <bool Max, class T>
void extreme_rows_by_channels(const T* p, int step, std::size_t m, int h, int nc, T* best, int* best_row) {
    if (nc == 3)
        extreme_rows_walk<3, Max>(p, step, m, h, nc, best, best_row);
    else
        extreme_rows_walk<4, Max>(p, step, m, h, nc, best, best_row);
}

}  // namespace

#define ROK_EXTREME_ROWS(T)                                                                          \
    void min_rows(const T* p, int step, std::size_t m, int h, int nc, T* best, int* best_row) {     \
        extreme_rows_by_channels<false>(p, step, m, h, nc, best, best_row);                          \
    }                                                                                                \
    void max_rows(const T* p, int step, std::size_t m, int h, int nc, T* best, int* best_row) {     \
        extreme_rows_by_channels<true>(p, step, m, h, nc, best, best_row);                           \
    }
ROK_EXTREME_ROWS(Rok8u)
ROK_EXTREME_ROWS(Rok16s)
ROK_EXTREME_ROWS(Rok16u)
ROK_EXTREME_ROWS(Rok32f)
#undef ROK_EXTREME_ROWS

void max_abs(const Rok8u* p, int step, std::size_t m, int h, int nc, Rok8u* out) {
    max_abs_by_channels<false>(p, step, p, step, m, h, nc, out);
}
void max_abs(const Rok16s* p, int step, std::size_t m, int h, int nc, Rok16u* out) {
    max_abs_by_channels<false>(p, step, p, step, m, h, nc, out);
}
void max_abs(const Rok16u* p, int step, std::size_t m, int h, int nc, Rok16u* out) {
    max_abs_by_channels<false>(p, step, p, step, m, h, nc, out);
}
void max_abs(const Rok32s* p, int step, std::size_t m, int h, int nc, Rok32u* out) {
    max_abs_by_channels<false>(p, step, p, step, m, h, nc, out);
}
void max_abs(const Rok32f* p, int step, std::size_t m, int h, int nc, Rok32f* out) {
    max_abs_by_channels<false>(p, step, p, step, m, h, nc, out);
}

void diff_max_abs(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, Rok8u* out) {
    max_abs_by_channels<true>(a, as, b, bs, m, h, nc, out);
}
void diff_max_abs(const Rok16s* a, int as, const Rok16s* b, int bs, std::size_t m, int h, int nc, Rok16u* out) {
    max_abs_by_channels<true>(a, as, b, bs, m, h, nc, out);
}
void diff_max_abs(const Rok16u* a, int as, const Rok16u* b, int bs, std::size_t m, int h, int nc, Rok16u* out) {
    max_abs_by_channels<true>(a, as, b, bs, m, h, nc, out);
}
void diff_max_abs(const Rok32f* a, int as, const Rok32f* b, int bs, std::size_t m, int h, int nc, Rok32f* out) {
    max_abs_by_channels<true>(a, as, b, bs, m, h, nc, out);
}

void min_max(const Rok8u* p, int step, std::size_t m, int h, int nc, Rok8u* mn, Rok8u* mx) {
    min_max_by_channels(p, step, m, h, nc, mn, mx);
}
void min_max(const Rok16s* p, int step, std::size_t m, int h, int nc, Rok16s* mn, Rok16s* mx) {
    min_max_by_channels(p, step, m, h, nc, mn, mx);
}
void min_max(const Rok16u* p, int step, std::size_t m, int h, int nc, Rok16u* mn, Rok16u* mx) {
    min_max_by_channels(p, step, m, h, nc, mn, mx);
}
void min_max(const Rok32f* p, int step, std::size_t m, int h, int nc, Rok32f* mn, Rok32f* mx) {
    min_max_by_channels(p, step, m, h, nc, mn, mx);
}

// The compiler turns these loops into packed min/max (for floats, s < d ? s
// : d is exactly what the packed instruction computes).
#define ROK_EVERY(T)                                                                                          \
    void min_every(const T* s, T* d, std::size_t n) {                                                       \
        for (std::size_t i = 0; i < n; ++i) d[i] = s[i] < d[i] ? s[i] : d[i];                               \
    }                                                                                                         \
    void max_every(const T* s, T* d, std::size_t n) {                                                       \
        for (std::size_t i = 0; i < n; ++i) d[i] = s[i] > d[i] ? s[i] : d[i];                               \
    }
ROK_EVERY(Rok8u)
ROK_EVERY(Rok16s)
ROK_EVERY(Rok16u)
ROK_EVERY(Rok32f)
#undef ROK_EVERY

}  // namespace rok::kernels
