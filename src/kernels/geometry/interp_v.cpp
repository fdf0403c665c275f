// Vertical pass, stores and the other per-row kernels of the interpolating
// transforms: nearest-neighbour rows, super-sampling accumulation and the
// walk across its columns and edge blending.
#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "frame/generated/roki_types.h"
#include "kernels/convert/convert.h"
#include "kernels/convert/convert_pack.h"
#include "kernels/geometry/interp_rows.h"

namespace rok::kernels {

namespace {

// An intermediate as a sample: nearest with ties to even (the rounding
// control is set to nearest) and saturated for integer types.
template <class T, class W>
inline T to_sample(W v) {
    if constexpr (std::is_floating_point_v<T>) {
        return T(v);
    } else {
        constexpr W lo = W(std::numeric_limits<T>::min()), hi = W(std::numeric_limits<T>::max());
        v = std::nearbyint(v);
        v = v < lo ? lo : v;
        v = v > hi ? hi : v;
        return T(v);
    }
}

// Eight samples of S as floats.
template <class S>
inline __m256 load8(const S* p) {
    if constexpr (std::is_same_v<S, float>) {
        return _mm256_loadu_ps(p);
    } else if constexpr (sizeof(S) == 1) {
        return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
    } else {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        return _mm256_cvtepi32_ps(std::is_signed_v<S> ? _mm256_cvtepi16_epi32(v) : _mm256_cvtepu16_epi32(v));
    }
}

// Rows combined by the rule, K rows (K = 0: bilinear with t in w[0]).
template <int K>
inline float combine(const float* const* r, const float* w, int i) {
    if constexpr (K == 0) {
        return r[0][i] + (r[1][i] - r[0][i]) * w[0];
    } else {
        float acc = w[0] * r[0][i];
        for (int k = 1; k < K; ++k) acc = acc + w[k] * r[k][i];
        return acc;
    }
}
template <int K>
inline __m256 combine8(const float* const* r, const __m256* w, int i) {
    if constexpr (K == 0) {
        const __m256 a = _mm256_loadu_ps(r[0] + i);
        return _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(_mm256_loadu_ps(r[1] + i), a), w[0]));
    } else {
        __m256 acc = _mm256_mul_ps(w[0], _mm256_loadu_ps(r[0] + i));
        for (int k = 1; k < K; ++k) acc = _mm256_add_ps(acc, _mm256_mul_ps(w[k], _mm256_loadu_ps(r[k] + i)));
        return acc;
    }
}

template <class T, int K>
void vpass_float(const float* const* r, const float* w, int n, T* out) {
    __m256 wv[6];
    for (int k = 0; k < (K == 0 ? 1 : K); ++k) wv[k] = _mm256_set1_ps(w[k]);
    int i = 0;
    if constexpr (std::is_same_v<T, float>) {
        for (; i + 8 <= n; i += 8) _mm256_storeu_ps(out + i, combine8<K>(r, wv, i));
    } else {
        const __m256 lo = _mm256_set1_ps(float(std::numeric_limits<T>::min()));
        const __m256 hi = _mm256_set1_ps(float(std::numeric_limits<T>::max()));
        for (; i + 32 <= n; i += 32)
            pack::store32(out + i, pack::round_clamped<true>(combine8<K>(r, wv, i), lo, hi),
                          pack::round_clamped<true>(combine8<K>(r, wv, i + 8), lo, hi),
                          pack::round_clamped<true>(combine8<K>(r, wv, i + 16), lo, hi),
                          pack::round_clamped<true>(combine8<K>(r, wv, i + 24), lo, hi));
    }
    for (; i < n; ++i) out[i] = to_sample<T>(combine<K>(r, w, i));
}

template <class T, class W>
void vpass_scalar(const W* const* r, const W* w, int taps, int n, T* out) {
    for (int i = 0; i < n; ++i) {
        W acc = w[0] * r[0][i];
        for (int k = 1; k < taps; ++k) acc = acc + w[k] * r[k][i];
        out[i] = to_sample<T>(acc);
    }
}

}  // namespace

template <class T, class W>
void vpass(const W* const* rows, const W* w, int taps, int n, T* out) {
    if constexpr (std::is_same_v<W, float>) {
        switch (taps) {
            case 1: return vpass_float<T, 1>(rows, w, n, out);
            case 2: return vpass_float<T, 2>(rows, w, n, out);
            case 3: return vpass_float<T, 3>(rows, w, n, out);
            case 4: return vpass_float<T, 4>(rows, w, n, out);
            case 6: return vpass_float<T, 6>(rows, w, n, out);
            default: return vpass_scalar(rows, w, taps, n, out);
        }
    } else {
        vpass_scalar(rows, w, taps, n, out);
    }
}

template <class T, class W>
void vpass_linear(const W* r0, const W* r1, W t, int n, T* out) {
    const W* rows[2] = {r0, r1};
    if constexpr (std::is_same_v<W, float>) {
        vpass_float<T, 0>(rows, &t, n, out);
    } else {
        for (int i = 0; i < n; ++i) out[i] = to_sample<T>(r0[i] + (r1[i] - r0[i]) * t);
    }
}

template <class T, class W>
void store_row(const W* v, int n, T* out) {
    if constexpr (std::is_same_v<T, W>) {
        std::memcpy(out, v, std::size_t(n) * sizeof(T));
    } else if constexpr (std::is_floating_point_v<T>) {
        for (int i = 0; i < n; ++i) out[i] = T(v[i]);
    } else {
        convert_float(v, out, n, 1);  // rounding control: nearest
    }
}

template <class T, class W>
void blend_row(const W* v, const float* cov, int pixels, int written, int stride, bool smooth, T* dst) {
    for (int p = 0; p < pixels; ++p) {
        const W c = W(cov[p]);
        for (int ch = 0; ch < written; ++ch) {
            T& d = dst[std::size_t(p) * stride + ch];
            const W x = v[std::size_t(p) * stride + ch];
            d = to_sample<T>(smooth ? x * c + W(d) * (W(1) - c) : x * c);
        }
    }
}

template <class T>
void nearest_row(const T* srow, const std::int32_t* index, int count, int nc, int written, T* dst) {
    if (nc == 1) {
        for (int x = 0; x < count; ++x) dst[x] = srow[index[x]];
    } else if (written == 3) {
        for (int x = 0; x < count; ++x) {
            const T* s = srow + index[x];
            T* d = dst + std::size_t(x) * nc;
            d[0] = s[0], d[1] = s[1], d[2] = s[2];
        }
    } else {
        for (int x = 0; x < count; ++x) std::memcpy(dst + std::size_t(x) * 4, srow + index[x], 4 * sizeof(T));
    }
}

template <class S, class W>
void accumulate_row(const S* src, W w, int n, bool first, W* acc) {
    int i = 0;
    if constexpr (std::is_same_v<W, float>) {
        const __m256 wv = _mm256_set1_ps(w);
        if (first) {
            for (; i + 8 <= n; i += 8) _mm256_storeu_ps(acc + i, _mm256_mul_ps(wv, load8(src + i)));
        } else {
            for (; i + 8 <= n; i += 8)
                _mm256_storeu_ps(acc + i,
                                 _mm256_add_ps(_mm256_loadu_ps(acc + i), _mm256_mul_ps(wv, load8(src + i))));
        }
    }
    if (first) {
        for (; i < n; ++i) acc[i] = w * W(src[i]);
    } else {
        for (; i < n; ++i) acc[i] = acc[i] + w * W(src[i]);
    }
}

template <class W, int NC>
void super_walk(const W* acc, int cols, const W* split, W leftExtra, W rightExtra, W area, int count, W* out) {
    // The last column feeds the area beyond the rectangle after the walk,
    // when out (which may be acc) may have overwritten it.
    W sum[NC], last[NC];
    for (int c = 0; c < NC; ++c) last[c] = acc[std::size_t(cols - 1) * NC + c];
    bool open = leftExtra > W(0);
    if (open)
        for (int c = 0; c < NC; ++c) sum[c] = leftExtra * acc[c];
    int col = 0;
    for (int d = 0; d < count; ++d) {
        W* o = out + std::size_t(d) * NC;
        for (;; ++col) {
            if (col == cols) {
                // Out of columns: the pixel ends beyond the rectangle.
                if (!open) return;
                for (int c = 0; c < NC; ++c) o[c] = (rightExtra > W(0) ? sum[c] + rightExtra * last[c] : sum[c]) * area;
                return;
            }
            const W s = split[col];
            const W p = s < W(0) ? -s : s;
            const W* a = acc + std::size_t(col) * NC;
            for (int c = 0; c < NC; ++c) sum[c] = open ? sum[c] + p * a[c] : p * a[c];
            open = true;
            if (s < W(0)) {
                // The pixel closes in this column and the rest of the column
                // opens the next one; both parts are read before the pixel is
                // written, since out may be acc itself.
                const W r = W(1) - p;
                W rem[NC];
                for (int c = 0; c < NC; ++c) rem[c] = r * a[c];
                for (int c = 0; c < NC; ++c) o[c] = sum[c] * area;
                open = r > W(0);
                for (int c = 0; c < NC; ++c) sum[c] = rem[c];
                ++col;
                break;
            }
        }
    }
}

template <class W>
void super_columns(const W* acc, int cols, const W* split, W leftExtra, W rightExtra, W area, int nc, int count,
                   W* out) {
    switch (nc) {
        case 1: return super_walk<W, 1>(acc, cols, split, leftExtra, rightExtra, area, count, out);
        case 3: return super_walk<W, 3>(acc, cols, split, leftExtra, rightExtra, area, count, out);
        default: return super_walk<W, 4>(acc, cols, split, leftExtra, rightExtra, area, count, out);
    }
}

#define ROK_INTERP_TYPES(T, W)                                                                                  \
    template void vpass<T, W>(const W* const*, const W*, int, int, T*);                                        \
    template void vpass_linear<T, W>(const W*, const W*, W, int, T*);                                          \
    template void store_row<T, W>(const W*, int, T*);                                                          \
    template void blend_row<T, W>(const W*, const float*, int, int, int, bool, T*);                            \
    template void nearest_row<T>(const T*, const std::int32_t*, int, int, int, T*);                            \
    template void accumulate_row<T, W>(const T*, W, int, bool, W*);
ROK_INTERP_TYPES(Rok8u, float)
ROK_INTERP_TYPES(Rok16u, float)
ROK_INTERP_TYPES(Rok16s, float)
ROK_INTERP_TYPES(Rok32f, float)
ROK_INTERP_TYPES(Rok64f, double)
#undef ROK_INTERP_TYPES

template void super_columns<float>(const float*, int, const float*, float, float, float, int, int, float*);
template void super_columns<double>(const double*, int, const double*, double, double, double, int, int, double*);

}  // namespace rok::kernels
