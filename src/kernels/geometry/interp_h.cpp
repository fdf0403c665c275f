// Horizontal pass of the separable interpolation: one source row to the
// intermediates at the output columns. The vector bodies take 8 output
// columns at a time without gathers: one-channel rows load each column's
// taps as one integer (or a few floats) from its precomputed offset and
// turn them tap-major with shifts and shuffles; interleaved rows load a pair
// of pixels per tap and weight each half by its own column's weight.
#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/generated/roki_types.h"
#include "kernels/geometry/interp_rows.h"

namespace rok::kernels {

namespace {

inline void store_fractions(float* out, __m256d f) { _mm_storeu_ps(out, _mm256_cvtpd_ps(f)); }
inline void store_fractions(double* out, __m256d f) { _mm256_storeu_pd(out, f); }

template <class W>
int split_any(int origin, double inv, double off, int count, double low, double high, std::int32_t* whole, W* frac) {
    const __m256d vinv = _mm256_set1_pd(inv), voff = _mm256_set1_pd(off), half = _mm256_set1_pd(0.5);
    const __m256d far = _mm256_set1_pd(4503599627370496.0), nfar = _mm256_set1_pd(-4503599627370496.0);
    const __m256d vlow = _mm256_set1_pd(low), vhigh = _mm256_set1_pd(high), four = _mm256_set1_pd(4.0);
    // origin + k + 0.5 is exact in double, and so is each step of 4.
    __m256d at = _mm256_add_pd(_mm256_add_pd(_mm256_set1_pd(double(origin)), _mm256_setr_pd(0, 1, 2, 3)), half);
    int k = 0;
    for (; k + 4 <= count; k += 4, at = _mm256_add_pd(at, four)) {
        __m256d v = _mm256_sub_pd(_mm256_add_pd(_mm256_mul_pd(at, vinv), voff), half);
        v = _mm256_andnot_pd(_mm256_cmp_pd(v, v, _CMP_UNORD_Q), v);
        v = _mm256_min_pd(_mm256_max_pd(v, nfar), far);
        const __m256d f = _mm256_floor_pd(v);
        store_fractions(frac + k, _mm256_sub_pd(v, f));
        const __m256d held = _mm256_min_pd(_mm256_max_pd(f, vlow), vhigh);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(whole + k), _mm256_cvttpd_epi32(held));
    }
    return k;
}

inline long long clamp_sample(long long i, long long lo, long long hi) { return i < lo ? lo : (i > hi ? hi : i); }

// One output column by the rule, every tap clamped into the source columns.
template <class T, class W>
inline void column(const T* srow, const ColumnTaps<W>& t, int x, W* out) {
    const int nc = t.nc;
    const long long lo = (long long)t.lo * nc, hi = (long long)(t.hi - 1) * nc;
    const long long base = t.index[x];
    if (t.taps == 2) {
        const long long a = clamp_sample(base, lo, hi), b = clamp_sample(base + nc, lo, hi);
        const W f = t.frac[x];
        for (int c = 0; c < nc; ++c) {
            const W va = W(srow[a + c]), vb = W(srow[b + c]);
            out[c] = va + (vb - va) * f;
        }
        return;
    }
    const W* w = t.weights + std::size_t(x / 8) * 8 * t.taps + x % 8;
    long long at[6] = {};
    for (int k = 0; k < t.taps; ++k) at[k] = clamp_sample(base + (long long)(t.first + k) * nc, lo, hi);
    for (int c = 0; c < nc; ++c) {
        W acc = w[0] * W(srow[at[0] + c]);
        for (int k = 1; k < t.taps; ++k) acc = acc + w[k * 8] * W(srow[at[k] + c]);
        out[c] = acc;
    }
}

template <class T>
inline std::uint32_t load32(const T* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
template <class T>
inline long long load64(const T* p) {
    long long v;
    std::memcpy(&v, p, 8);
    return v;
}

// Field K (of 8 or 16 bits) of eight dwords, as floats.
template <class T, int K>
inline __m256 field(__m256i d) {
    if constexpr (sizeof(T) == 1) {
        if constexpr (K == 3) return _mm256_cvtepi32_ps(_mm256_srli_epi32(d, 24));
        return _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(d, 8 * K), _mm256_set1_epi32(0xFF)));
    } else if constexpr (std::is_signed_v<T>) {
        if constexpr (K == 1) return _mm256_cvtepi32_ps(_mm256_srai_epi32(d, 16));
        return _mm256_cvtepi32_ps(_mm256_srai_epi32(_mm256_slli_epi32(d, 16), 16));
    } else {
        if constexpr (K == 1) return _mm256_cvtepi32_ps(_mm256_srli_epi32(d, 16));
        return _mm256_cvtepi32_ps(_mm256_and_si256(d, _mm256_set1_epi32(0xFFFF)));
    }
}

// Dword j of the result is the dword at p[j] (sample offsets from s).
template <class T>
inline __m256i dwords(const T* s, const std::int32_t* at, int delta) {
    return _mm256_setr_epi32(int(load32(s + at[0] + delta)), int(load32(s + at[1] + delta)),
                             int(load32(s + at[2] + delta)), int(load32(s + at[3] + delta)),
                             int(load32(s + at[4] + delta)), int(load32(s + at[5] + delta)),
                             int(load32(s + at[6] + delta)), int(load32(s + at[7] + delta)));
}

// The 8-byte words at eight offsets, split into their low dwords and their
// high dwords (column order kept).
template <class T>
inline void qwords(const T* s, const std::int32_t* at, int delta, __m256i* lo, __m256i* hi) {
    const __m256i a = _mm256_setr_epi64x(load64(s + at[0] + delta), load64(s + at[1] + delta),
                                         load64(s + at[2] + delta), load64(s + at[3] + delta));
    const __m256i b = _mm256_setr_epi64x(load64(s + at[4] + delta), load64(s + at[5] + delta),
                                         load64(s + at[6] + delta), load64(s + at[7] + delta));
    const __m256i split = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    const __m256i sa = _mm256_permutevar8x32_epi32(a, split), sb = _mm256_permutevar8x32_epi32(b, split);
    *lo = _mm256_permute2x128_si256(sa, sb, 0x20);
    *hi = _mm256_permute2x128_si256(sa, sb, 0x31);
}

// Four consecutive floats at eight offsets, tap-major: v[k] holds float k of
// each offset.
inline void floats4(const float* s, const std::int32_t* at, int delta, __m256* v) {
    __m256 r[4];
    for (int j = 0; j < 4; ++j)
        r[j] = _mm256_set_m128(_mm_loadu_ps(s + at[j + 4] + delta), _mm_loadu_ps(s + at[j] + delta));
    const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
    const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
    v[0] = _mm256_shuffle_ps(t0, t2, 0x44);
    v[1] = _mm256_shuffle_ps(t0, t2, 0xEE);
    v[2] = _mm256_shuffle_ps(t1, t3, 0x44);
    v[3] = _mm256_shuffle_ps(t1, t3, 0xEE);
}

// Two consecutive floats at eight offsets, tap-major.
inline void floats2(const float* s, const std::int32_t* at, int delta, __m256* v) {
    auto pair = [&](int a, int b) {
        return _mm_castsi128_ps(_mm_set_epi64x(load64(s + at[b] + delta), load64(s + at[a] + delta)));
    };
    const __m256 p0 = _mm256_set_m128(pair(4, 5), pair(0, 1)), p1 = _mm256_set_m128(pair(6, 7), pair(2, 3));
    v[0] = _mm256_shuffle_ps(p0, p1, 0x88);
    v[1] = _mm256_shuffle_ps(p0, p1, 0xDD);
}

// Taps 0 .. K-1 of eight one-channel columns starting `first` samples from
// each column's index, as floats.
template <class T, int K>
inline void c1_taps(const T* s, const std::int32_t* at, int first, __m256* v) {
    if constexpr (std::is_same_v<T, float>) {
        if constexpr (K == 2) {
            floats2(s, at, first, v);
        } else {
            floats4(s, at, first, v);
            if constexpr (K == 6) floats2(s, at, first + 4, v + 4);
        }
    } else if constexpr (sizeof(T) == 1) {
        if constexpr (K == 6) {
            __m256i lo, hi;
            qwords(s, at, first, &lo, &hi);
            v[0] = field<T, 0>(lo), v[1] = field<T, 1>(lo), v[2] = field<T, 2>(lo), v[3] = field<T, 3>(lo);
            v[4] = field<T, 0>(hi), v[5] = field<T, 1>(hi);
        } else {
            const __m256i d = dwords(s, at, first);
            v[0] = field<T, 0>(d), v[1] = field<T, 1>(d);
            if constexpr (K == 4) v[2] = field<T, 2>(d), v[3] = field<T, 3>(d);
        }
    } else {
        if constexpr (K == 2) {
            const __m256i d = dwords(s, at, first);
            v[0] = field<T, 0>(d), v[1] = field<T, 1>(d);
        } else {
            __m256i lo, hi;
            qwords(s, at, first, &lo, &hi);
            v[0] = field<T, 0>(lo), v[1] = field<T, 1>(lo), v[2] = field<T, 0>(hi), v[3] = field<T, 1>(hi);
            if constexpr (K == 6) {
                const __m256i d = dwords(s, at, first + 4);
                v[4] = field<T, 0>(d), v[5] = field<T, 1>(d);
            }
        }
    }
}

// Eight consecutive samples as floats.
template <class T>
inline __m256 window8(const T* p) {
    if constexpr (std::is_same_v<T, float>) {
        return _mm256_loadu_ps(p);
    } else if constexpr (sizeof(T) == 1) {
        return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
    } else {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        return _mm256_cvtepi32_ps(std::is_signed_v<T> ? _mm256_cvtepi16_epi32(v) : _mm256_cvtepu16_epi32(v));
    }
}

// Eight one-channel columns x .. x+7 (x a multiple of 8, all inside).
template <class T, int K>
inline void c1_block(const T* s, const ColumnTaps<float>& t, int x, float* out) {
    __m256 v[K];
    const std::int32_t* at = t.index + x;
    const int base = at[0] + t.first;
    if (at[7] - at[0] <= 8 - K && base + 8 <= t.hi) {
        // Enlarging: the taps of all eight columns lie in eight consecutive
        // samples, one load, then one permute per tap.
        const __m256 window = window8(s + base);
        const __m256i d = _mm256_sub_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)),
                                           _mm256_set1_epi32(at[0]));
        for (int k = 0; k < K; ++k) v[k] = _mm256_permutevar8x32_ps(window, _mm256_add_epi32(d, _mm256_set1_epi32(k)));
    } else {
        c1_taps<T, K>(s, at, t.first, v);
    }
    __m256 acc;
    if constexpr (K == 2) {
        acc = _mm256_add_ps(v[0], _mm256_mul_ps(_mm256_sub_ps(v[1], v[0]), _mm256_loadu_ps(t.frac + x)));
    } else {
        const float* w = t.weights + std::size_t(x) * K;
        acc = _mm256_mul_ps(_mm256_loadu_ps(w), v[0]);
        for (int k = 1; k < K; ++k) acc = _mm256_add_ps(acc, _mm256_mul_ps(_mm256_loadu_ps(w + 8 * k), v[k]));
    }
    _mm256_storeu_ps(out, acc);
}

// Samples 0..3 of two pixels as floats: [p0 | p1].
template <class T>
inline __m256 pixel_pair(const T* p0, const T* p1) {
    if constexpr (std::is_same_v<T, float>) {
        return _mm256_set_m128(_mm_loadu_ps(p1), _mm_loadu_ps(p0));
    } else if constexpr (sizeof(T) == 1) {
        const __m128i b = _mm_insert_epi32(_mm_cvtsi32_si128(int(load32(p0))), int(load32(p1)), 1);
        return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(b));
    } else {
        const __m128i b = _mm_set_epi64x(load64(p1), load64(p0));
        return _mm256_cvtepi32_ps(std::is_signed_v<T> ? _mm256_cvtepi16_epi32(b) : _mm256_cvtepu16_epi32(b));
    }
}

// Four-lane results of pixels (2i, 2i+1) in r[i] to 24 floats of three
// channels each.
inline void store_c3(const __m256* r, float* out) {
    const __m256i a0 = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 0, 0), a1 = _mm256_setr_epi32(0, 0, 0, 0, 0, 0, 0, 1);
    const __m256i b0 = _mm256_setr_epi32(2, 4, 5, 6, 0, 0, 0, 0), b1 = _mm256_setr_epi32(0, 0, 0, 0, 0, 1, 2, 4);
    const __m256i c0 = _mm256_setr_epi32(5, 6, 0, 0, 0, 0, 0, 0), c1 = _mm256_setr_epi32(0, 0, 0, 1, 2, 4, 5, 6);
    _mm256_storeu_ps(out, _mm256_blend_ps(_mm256_permutevar8x32_ps(r[0], a0), _mm256_permutevar8x32_ps(r[1], a1), 0xC0));
    _mm256_storeu_ps(out + 8,
                     _mm256_blend_ps(_mm256_permutevar8x32_ps(r[1], b0), _mm256_permutevar8x32_ps(r[2], b1), 0xF0));
    _mm256_storeu_ps(out + 16,
                     _mm256_blend_ps(_mm256_permutevar8x32_ps(r[2], c0), _mm256_permutevar8x32_ps(r[3], c1), 0xFC));
}

// Eight interleaved columns x .. x+7 of NC = 3 or 4 channels.
template <class T, int K, int NC>
inline void cn_block(const T* s, const ColumnTaps<float>& t, int x, float* out) {
    const std::int32_t* at = t.index + x;
    __m256 r[4];
    if constexpr (K == 2) {
        const __m256 f = _mm256_loadu_ps(t.frac + x);
        for (int i = 0; i < 4; ++i) {
            const __m256 fi = _mm256_permutevar8x32_ps(
                f, _mm256_setr_epi32(2 * i, 2 * i, 2 * i, 2 * i, 2 * i + 1, 2 * i + 1, 2 * i + 1, 2 * i + 1));
            const __m256 a = pixel_pair(s + at[2 * i], s + at[2 * i + 1]);
            const __m256 b = pixel_pair(s + at[2 * i] + NC, s + at[2 * i + 1] + NC);
            r[i] = _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a), fi));
        }
    } else {
        const float* w = t.weights + std::size_t(x) * K;
        for (int i = 0; i < 4; ++i) {
            const __m256i sel =
                _mm256_setr_epi32(2 * i, 2 * i, 2 * i, 2 * i, 2 * i + 1, 2 * i + 1, 2 * i + 1, 2 * i + 1);
            const T* p0 = s + at[2 * i] + t.first * NC;
            const T* p1 = s + at[2 * i + 1] + t.first * NC;
            __m256 acc = _mm256_mul_ps(_mm256_permutevar8x32_ps(_mm256_loadu_ps(w), sel), pixel_pair(p0, p1));
            for (int k = 1; k < K; ++k)
                acc = _mm256_add_ps(acc, _mm256_mul_ps(_mm256_permutevar8x32_ps(_mm256_loadu_ps(w + 8 * k), sel),
                                                       pixel_pair(p0 + k * NC, p1 + k * NC)));
            r[i] = acc;
        }
    }
    if constexpr (NC == 4) {
        for (int i = 0; i < 4; ++i) _mm256_storeu_ps(out + 8 * i, r[i]);
    } else {
        store_c3(r, out);
    }
}

template <class T, int K, int NC>
void hpass_vector(const T* srow, const ColumnTaps<float>& t, int begin, int end, float* out) {
    // Vector blocks start on a multiple of 8, where the weight blocks do.
    const int lo = begin > t.innerBegin ? begin : t.innerBegin;
    const int hi = end < t.innerEnd ? end : t.innerEnd;
    int x = begin;
    if (lo < hi) {
        int v = (lo + 7) & ~7;
        for (; x < v && x < end; ++x) column(srow, t, x, out + std::size_t(x - begin) * NC);
        for (; x + 8 <= hi; x += 8) {
            if constexpr (NC == 1)
                c1_block<T, K>(srow, t, x, out + (x - begin));
            else
                cn_block<T, K, NC>(srow, t, x, out + std::size_t(x - begin) * NC);
        }
    }
    for (; x < end; ++x) column(srow, t, x, out + std::size_t(x - begin) * t.nc);
}

template <class T, int K>
void hpass_taps(const T* srow, const ColumnTaps<float>& t, int begin, int end, float* out) {
    switch (t.nc) {
        case 1: return hpass_vector<T, K, 1>(srow, t, begin, end, out);
        case 3: return hpass_vector<T, K, 3>(srow, t, begin, end, out);
        default: return hpass_vector<T, K, 4>(srow, t, begin, end, out);
    }
}

}  // namespace

int split_positions(int origin, double inv, double off, int count, double low, double high, std::int32_t* whole,
                    float* frac) {
    return split_any(origin, inv, off, count, low, high, whole, frac);
}
int split_positions(int origin, double inv, double off, int count, double low, double high, std::int32_t* whole,
                    double* frac) {
    return split_any(origin, inv, off, count, low, high, whole, frac);
}

int hpass_overread(int taps, int nc, int sampleBytes) {
    if (nc == 1) {
        // 8u reads a dword (bilinear) or a qword (Lanczos) per column.
        if (sampleBytes == 1) return taps == 2 ? 2 : taps == 6 ? 2 : 0;
        return 0;
    }
    return 4 - nc;  // a pixel pair loads four samples per pixel
}

template <class T, class W>
void hpass(const T* srow, const ColumnTaps<W>& t, int begin, int end, W* out) {
    if constexpr (std::is_same_v<W, float>) {
        switch (t.taps) {
            case 2: return hpass_taps<T, 2>(srow, t, begin, end, out);
            case 4: return hpass_taps<T, 4>(srow, t, begin, end, out);
            default: return hpass_taps<T, 6>(srow, t, begin, end, out);
        }
    } else {
        for (int x = begin; x < end; ++x) column(srow, t, x, out + std::size_t(x - begin) * t.nc);
    }
}

template <class T, class W, int NC>
void hpass_general_nc(const T* srow, const std::int32_t* start, const std::int32_t* count,
                      const std::int32_t* offset, const W* weights, int columns, W* out) {
    for (int x = 0; x < columns; ++x) {
        const T* s = srow + std::size_t(start[x]) * NC;
        const W* w = weights + offset[x];
        W acc[NC];
        for (int c = 0; c < NC; ++c) acc[c] = w[0] * W(s[c]);
        for (int k = 1; k < count[x]; ++k)
            for (int c = 0; c < NC; ++c) acc[c] = acc[c] + w[k] * W(s[std::size_t(k) * NC + c]);
        for (int c = 0; c < NC; ++c) out[std::size_t(x) * NC + c] = acc[c];
    }
}

template <class T, class W>
void hpass_general(const T* srow, const std::int32_t* start, const std::int32_t* count, const std::int32_t* offset,
                   const W* weights, int columns, int nc, W* out) {
    switch (nc) {
        case 1: return hpass_general_nc<T, W, 1>(srow, start, count, offset, weights, columns, out);
        case 3: return hpass_general_nc<T, W, 3>(srow, start, count, offset, weights, columns, out);
        default: return hpass_general_nc<T, W, 4>(srow, start, count, offset, weights, columns, out);
    }
}

template void hpass<Rok8u, float>(const Rok8u*, const ColumnTaps<float>&, int, int, float*);
template void hpass<Rok16u, float>(const Rok16u*, const ColumnTaps<float>&, int, int, float*);
template void hpass<Rok16s, float>(const Rok16s*, const ColumnTaps<float>&, int, int, float*);
template void hpass<Rok32f, float>(const Rok32f*, const ColumnTaps<float>&, int, int, float*);
template void hpass<Rok64f, double>(const Rok64f*, const ColumnTaps<double>&, int, int, double*);

template void hpass_general<Rok8u, float>(const Rok8u*, const std::int32_t*, const std::int32_t*, const std::int32_t*,
                                          const float*, int, int, float*);
template void hpass_general<Rok16u, float>(const Rok16u*, const std::int32_t*, const std::int32_t*,
                                           const std::int32_t*, const float*, int, int, float*);
template void hpass_general<Rok16s, float>(const Rok16s*, const std::int32_t*, const std::int32_t*,
                                           const std::int32_t*, const float*, int, int, float*);
template void hpass_general<Rok32f, float>(const Rok32f*, const std::int32_t*, const std::int32_t*,
                                           const std::int32_t*, const float*, int, int, float*);
template void hpass_general<Rok64f, double>(const Rok64f*, const std::int32_t*, const std::int32_t*,
                                            const std::int32_t*, const double*, int, int, double*);

}  // namespace rok::kernels
