#include "kernels/arith/threshold.h"

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace rok::kernels {

namespace {

// The rule, one sample at a time.
template <class T, ThresholdKind K>
inline T threshold_one(T s, int c, const ThresholdParams<T>& p) {
    if constexpr (K == ThresholdKind::Lt) return s < p.t[c] ? p.t[c] : s;
    else if constexpr (K == ThresholdKind::Gt) return s > p.t[c] ? p.t[c] : s;
    else if constexpr (K == ThresholdKind::LtVal) return s < p.t[c] ? p.v[c] : s;
    else if constexpr (K == ThresholdKind::GtVal) return s > p.t[c] ? p.v[c] : s;
    else return s < p.t[c] ? p.v[c] : (s > p.t2[c] ? p.v2[c] : s);
}

// Samples [from, to); c is the channel of sample `from`.
template <class T, ThresholdKind K>
void threshold_scalar(const T* s, T* d, int from, int to, int c, const ThresholdParams<T>& p) {
    for (int i = from; i < to; ++i, c = c + 1 == p.channels ? 0 : c + 1) d[i] = threshold_one<T, K>(s[i], c, p);
}

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline __m256i not_(__m256i x) { return _mm256_xor_si256(x, _mm256_set1_epi8(-1)); }

// All-ones lanes where s < t (Less) or s > t (!Less).
template <class T, bool Less>
inline __m256i beyond(__m256i s, __m256i t) {
    if constexpr (std::is_same_v<T, Rok32f>) {
        const __m256 x = _mm256_castsi256_ps(s), y = _mm256_castsi256_ps(t);
        return _mm256_castps_si256(Less ? _mm256_cmp_ps(x, y, _CMP_LT_OQ) : _mm256_cmp_ps(x, y, _CMP_GT_OQ));
    } else if constexpr (std::is_same_v<T, Rok16s>) {
        return Less ? _mm256_cmpgt_epi16(t, s) : _mm256_cmpgt_epi16(s, t);
    } else if constexpr (std::is_same_v<T, Rok16u>) {
        return not_(_mm256_cmpeq_epi16(Less ? _mm256_max_epu16(s, t) : _mm256_min_epu16(s, t), s));
    } else {
        return not_(_mm256_cmpeq_epi8(Less ? _mm256_max_epu8(s, t) : _mm256_min_epu8(s, t), s));
    }
}

// max(s, t) and min(s, t) as the rule has them: s < t ? t : s and
// s > t ? t : s (for floats the second operand wins a NaN, which is s).
template <class T, bool Max>
inline __m256i clamp(__m256i s, __m256i t) {
    if constexpr (std::is_same_v<T, Rok32f>) {
        const __m256 x = _mm256_castsi256_ps(s), y = _mm256_castsi256_ps(t);
        return _mm256_castps_si256(Max ? _mm256_max_ps(y, x) : _mm256_min_ps(y, x));
    } else if constexpr (std::is_same_v<T, Rok16s>) {
        return Max ? _mm256_max_epi16(s, t) : _mm256_min_epi16(s, t);
    } else if constexpr (std::is_same_v<T, Rok16u>) {
        return Max ? _mm256_max_epu16(s, t) : _mm256_min_epu16(s, t);
    } else {
        return Max ? _mm256_max_epu8(s, t) : _mm256_min_epu8(s, t);
    }
}

// The lanes of three consecutive vectors starting at sample `first`: one
// period of the channel pattern for 1, 3 and 4 channels.
// c is the channel of sample `first`; absent values give nothing.
template <class T>
struct Period {
    __m256i v[3] = {};
    Period(const T* values, int channels, int c) {
        constexpr int lanes = 32 / sizeof(T);
        if (!values) return;
        alignas(32) T lane[3 * lanes];
        for (int j = 0; j < 3 * lanes; ++j, c = c + 1 == channels ? 0 : c + 1) lane[j] = values[c];
        for (int k = 0; k < 3; ++k) v[k] = load(lane + k * lanes);
    }
};

template <class T, ThresholdKind K>
inline __m256i threshold_vector(__m256i s, int k, const Period<T>& t, const Period<T>& v, const Period<T>& t2,
                                const Period<T>& v2) {
    if constexpr (K == ThresholdKind::Lt) return clamp<T, true>(s, t.v[k]);
    else if constexpr (K == ThresholdKind::Gt) return clamp<T, false>(s, t.v[k]);
    else if constexpr (K == ThresholdKind::LtVal) return _mm256_blendv_epi8(s, v.v[k], beyond<T, true>(s, t.v[k]));
    else if constexpr (K == ThresholdKind::GtVal) return _mm256_blendv_epi8(s, v.v[k], beyond<T, false>(s, t.v[k]));
    else {
        const __m256i high = _mm256_blendv_epi8(s, v2.v[k], beyond<T, false>(s, t2.v[k]));
        return _mm256_blendv_epi8(high, v.v[k], beyond<T, true>(s, t.v[k]));
    }
}

template <class T, ThresholdKind K>
void threshold_kind(const T* s, T* d, int n, const ThresholdParams<T>& p) {
    constexpr int lanes = 32 / sizeof(T);
    int i = 0;
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (n >= 2 * lanes && mis % sizeof(T) == 0) {
        i = int(((32 - mis) & 31) / sizeof(T));
        threshold_scalar<T, K>(s, d, 0, i, 0, p);
        const int c = i % p.channels;
        const Period<T> t(p.t, p.channels, c), v(p.v, p.channels, c), t2(p.t2, p.channels, c), v2(p.v2, p.channels, c);
        auto store = [&](int at, __m256i r) {
            if (p.stream)
                _mm256_stream_si256(reinterpret_cast<__m256i*>(d + at), r);
            else
                _mm256_store_si256(reinterpret_cast<__m256i*>(d + at), r);
        };
        for (; i + 3 * lanes <= n; i += 3 * lanes) {
            const __m256i r0 = threshold_vector<T, K>(load(s + i), 0, t, v, t2, v2);
            const __m256i r1 = threshold_vector<T, K>(load(s + i + lanes), 1, t, v, t2, v2);
            const __m256i r2 = threshold_vector<T, K>(load(s + i + 2 * lanes), 2, t, v, t2, v2);
            store(i, r0);
            store(i + lanes, r1);
            store(i + 2 * lanes, r2);
        }
        for (int k = 0; i + lanes <= n; i += lanes, ++k) store(i, threshold_vector<T, K>(load(s + i), k, t, v, t2, v2));
        if (p.stream) _mm_sfence();  // ordered before the stores that follow, as plain stores are
    }
    threshold_scalar<T, K>(s, d, i, n, i % p.channels, p);
}

}  // namespace

template <class T>
void threshold_row(const T* s, T* d, int n, ThresholdKind kind, const ThresholdParams<T>& p) {
    switch (kind) {
        case ThresholdKind::Lt: return threshold_kind<T, ThresholdKind::Lt>(s, d, n, p);
        case ThresholdKind::Gt: return threshold_kind<T, ThresholdKind::Gt>(s, d, n, p);
        case ThresholdKind::LtVal: return threshold_kind<T, ThresholdKind::LtVal>(s, d, n, p);
        case ThresholdKind::GtVal: return threshold_kind<T, ThresholdKind::GtVal>(s, d, n, p);
        case ThresholdKind::LtValGtVal: return threshold_kind<T, ThresholdKind::LtValGtVal>(s, d, n, p);
    }
}

template void threshold_row<Rok8u>(const Rok8u*, Rok8u*, int, ThresholdKind, const ThresholdParams<Rok8u>&);
template void threshold_row<Rok16u>(const Rok16u*, Rok16u*, int, ThresholdKind, const ThresholdParams<Rok16u>&);
template void threshold_row<Rok16s>(const Rok16s*, Rok16s*, int, ThresholdKind, const ThresholdParams<Rok16s>&);
template void threshold_row<Rok32f>(const Rok32f*, Rok32f*, int, ThresholdKind, const ThresholdParams<Rok32f>&);

// ---- Otsu -----------------------------------------------------------------

Rok8u otsu_level(const std::uint64_t hist[256]) {
    // With n0 samples of sum s0 at or below t, out of N of sum S, the
    // between-class variance is (N s0 - n0 S)^2 / (n0 (N - n0)) / N^2. N s0
    // is exact in 128 bits for every image below 2^56 samples.
    using Wide = __int128;
    Wide total = 0, sum = 0;
    int only = 0;
    for (int v = 0; v < 256; ++v) {
        total += hist[v];
        sum += Wide(hist[v]) * v;
        if (hist[v]) only = v;
    }
    Wide n0 = 0, s0 = 0;
    long double best = -1;
    int level = only;
    for (int t = 0; t < 255; ++t) {
        n0 += hist[t];
        s0 += Wide(hist[t]) * t;
        if (n0 == 0 || n0 == total) continue;
        const long double diff = static_cast<long double>(total * s0 - n0 * sum);
        const long double variance = diff * diff / (static_cast<long double>(n0) * static_cast<long double>(total - n0));
        if (variance > best) {
            best = variance;
            level = t;
        }
    }
    return Rok8u(level);
}

}  // namespace rok::kernels
