// The sums must equal the plain multiply-then-add loop lane for lane, so no
// multiply and add may be fused.
#pragma GCC optimize("fp-contract=off")

#include "kernels/filter/filter_sum.h"

#include <immintrin.h>

#include <algorithm>
#include <cstdint>

#include <type_traits>

namespace rok::kernels {

namespace {

template <class T>
const T* tap(const T* base, std::ptrdiff_t off) {
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(base) + off);
}

// The readable rule for one output sample; integer sums wrap like the
// vector lanes.
template <class T, class C, class A>
A scalar_sum(const T* base, const std::ptrdiff_t* offs, const C* coef, int ntaps, int x) {
    if constexpr (std::is_same_v<A, std::int32_t>) {
        std::uint32_t s = 0;
        for (int t = 0; t < ntaps; ++t) s += std::uint32_t(coef[t]) * std::uint32_t(std::int32_t(tap(base, offs[t])[x]));
        return std::int32_t(s);
    } else {
        A s = 0;
        for (int t = 0; t < ntaps; ++t) s = s + A(coef[t]) * A(tap(base, offs[t])[x]);
        return s;
    }
}

// Eight samples widened to 32-bit lanes.
inline __m256i widen8(const Rok8u* p) { return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok8s* p) { return _mm256_cvtepi8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok16s* p) { return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok16u* p) { return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok32s* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

template <class T>
inline __m256 float8(const T* p) {
    if constexpr (std::is_same_v<T, Rok32f>)
        return _mm256_loadu_ps(p);
    else
        return _mm256_cvtepi32_ps(widen8(p));
}

template <class T>
void sum_int32(const T* base, const std::ptrdiff_t* offs, const std::int32_t* coef, int ntaps, int n,
               std::int32_t* acc) {
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        __m256i a0 = _mm256_setzero_si256(), a1 = _mm256_setzero_si256();
        for (int t = 0; t < ntaps; ++t) {
            const T* p = tap(base, offs[t]) + x;
            const __m256i c = _mm256_set1_epi32(coef[t]);
            a0 = _mm256_add_epi32(a0, _mm256_mullo_epi32(widen8(p), c));
            a1 = _mm256_add_epi32(a1, _mm256_mullo_epi32(widen8(p + 8), c));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(acc + x), a0);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(acc + x + 8), a1);
    }
    for (; x < n; ++x) acc[x] = scalar_sum<T, std::int32_t, std::int32_t>(base, offs, coef, ntaps, x);
}

// Each lane's sum is a chain of dependent adds, so a block keeps eight
// independent accumulators in flight to hide the add latency. With `stream`
// the stores that can be aligned bypass the cache (the caller fences).
template <class T>
void sum_float(const T* base, const std::ptrdiff_t* offs, const float* coef, int ntaps, int n, float* acc,
               bool stream) {
    constexpr int kLanes = 8, kVectors = 8, kBlock = kLanes * kVectors;
    int x = 0;
    if (stream) {
        const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(acc);
        stream = at % sizeof(float) == 0;
        const int head = stream ? std::min(n, int((32 - at % 32) % 32 / sizeof(float))) : 0;
        for (; x < head; ++x) acc[x] = scalar_sum<T, float, float>(base, offs, coef, ntaps, x);
    }
    auto put = [&](float* p, __m256 v) {
        if (stream) _mm256_stream_ps(p, v);
        else _mm256_storeu_ps(p, v);
    };
    for (; x + kBlock <= n; x += kBlock) {
        __m256 a[kVectors];
        for (int v = 0; v < kVectors; ++v) a[v] = _mm256_setzero_ps();
        for (int t = 0; t < ntaps; ++t) {
            const T* p = tap(base, offs[t]) + x;
            const __m256 c = _mm256_set1_ps(coef[t]);
            for (int v = 0; v < kVectors; ++v) a[v] = _mm256_add_ps(a[v], _mm256_mul_ps(float8(p + kLanes * v), c));
        }
        for (int v = 0; v < kVectors; ++v) put(acc + x + kLanes * v, a[v]);
    }
    for (; x + kLanes <= n; x += kLanes) {
        __m256 a = _mm256_setzero_ps();
        for (int t = 0; t < ntaps; ++t)
            a = _mm256_add_ps(a, _mm256_mul_ps(float8(tap(base, offs[t]) + x), _mm256_set1_ps(coef[t])));
        put(acc + x, a);
    }
    for (; x < n; ++x) acc[x] = scalar_sum<T, float, float>(base, offs, coef, ntaps, x);
}

}  // namespace

void filter_sum_rows2(const Rok32f* base, std::ptrdiff_t step, const std::ptrdiff_t* offs, const float* coef, int kw,
                      int kh, int n, float* out0, float* out1, bool stream) {
    constexpr int kLanes = 8, kVectors = 4, kBlock = kLanes * kVectors;
    const int ntaps = kw * kh;
    const Rok32f* next = tap(base, step);
    auto scalar = [&](int x) {
        out0[x] = scalar_sum<Rok32f, float, float>(base, offs, coef, ntaps, x);
        out1[x] = scalar_sum<Rok32f, float, float>(next, offs, coef, ntaps, x);
    };
    // Streaming starts where the first row reaches a 32-byte boundary; the
    // second streams too when it is then aligned as well.
    int x = 0;
    auto at = [](const float* p) { return reinterpret_cast<std::uintptr_t>(p); };
    if (stream && at(out0) % sizeof(float) == 0)
        for (const int head = std::min(n, int((32 - at(out0) % 32) % 32 / sizeof(float))); x < head; ++x) scalar(x);
    const bool stream0 = stream && at(out0 + x) % 32 == 0, stream1 = stream && at(out1 + x) % 32 == 0;
    auto put = [](float* p, __m256 v, bool s) {
        if (s) _mm256_stream_ps(p, v);
        else _mm256_storeu_ps(p, v);
    };
    for (; x + kBlock <= n; x += kBlock) {
        __m256 a0[kVectors], a1[kVectors];
        for (int v = 0; v < kVectors; ++v) a0[v] = a1[v] = _mm256_setzero_ps();
        // Source row r of the pair serves tap (r, i) of the first output and
        // tap (r - 1, i) of the second; each output still adds its taps in
        // order.
        for (int r = 0; r <= kh; ++r)
            for (int i = 0; i < kw; ++i) {
                const float* p = r < kh ? tap(base, offs[r * kw + i]) + x : tap(base, offs[(kh - 1) * kw + i] + step) + x;
                __m256 v[kVectors];
                for (int k = 0; k < kVectors; ++k) v[k] = _mm256_loadu_ps(p + kLanes * k);
                if (r < kh) {
                    const __m256 c = _mm256_set1_ps(coef[r * kw + i]);
                    for (int k = 0; k < kVectors; ++k) a0[k] = _mm256_add_ps(a0[k], _mm256_mul_ps(v[k], c));
                }
                if (r > 0) {
                    const __m256 c = _mm256_set1_ps(coef[(r - 1) * kw + i]);
                    for (int k = 0; k < kVectors; ++k) a1[k] = _mm256_add_ps(a1[k], _mm256_mul_ps(v[k], c));
                }
            }
        for (int k = 0; k < kVectors; ++k) {
            put(out0 + x + kLanes * k, a0[k], stream0);
            put(out1 + x + kLanes * k, a1[k], stream1);
        }
    }
    for (; x < n; ++x) scalar(x);
}

void filter_sum_pairs(const Rok8u* base, const std::ptrdiff_t* offs, const std::int32_t* packed, int ntaps, int n,
                      std::int32_t* acc) {
    const int pairs = ntaps / 2;
    const bool odd = (ntaps & 1) != 0;
    const __m256i zero = _mm256_setzero_si256();
    auto load16 = [](const Rok8u* p) {
        return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    };
    int x = 0;
    // Sixteen samples widen to 16 bits; interleaving the two taps' samples
    // lets one multiply-add form c0*s0 + c1*s1 per 32-bit lane. The in-lane
    // interleave leaves lo with samples 0-3 | 8-11 and hi with 4-7 | 12-15,
    // which the final lane swap puts back in order.
    for (; x + 16 <= n; x += 16) {
        __m256i lo = zero, hi = zero;
        for (int p = 0; p < pairs; ++p) {
            const __m256i a = load16(tap(base, offs[2 * p]) + x);
            const __m256i b = load16(tap(base, offs[2 * p + 1]) + x);
            const __m256i c = _mm256_set1_epi32(packed[p]);
            lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), c));
            hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), c));
        }
        if (odd) {
            const __m256i a = load16(tap(base, offs[ntaps - 1]) + x);
            const __m256i c = _mm256_set1_epi32(packed[pairs]);
            lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(a, zero), c));
            hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(a, zero), c));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(acc + x), _mm256_permute2x128_si256(lo, hi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(acc + x + 8), _mm256_permute2x128_si256(lo, hi, 0x31));
    }
    for (; x < n; ++x) {
        std::uint32_t s = 0;
        for (int t = 0; t < ntaps; ++t) {
            const std::int32_t c = std::int16_t(std::uint32_t(packed[t / 2]) >> (16 * (t & 1)));
            s += std::uint32_t(c) * tap(base, offs[t])[x];
        }
        acc[x] = std::int32_t(s);
    }
}

void filter_sum_bytes(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs,
                      int lowest, int n, std::int32_t* acc) {
    const __m256i low = _mm256_set1_epi16(std::int16_t(lowest)), zero = _mm256_setzero_si256();
    const __m256i low32 = _mm256_set1_epi32(lowest);
    auto load = [](const Rok8u* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); };
    // 32 outputs a step: loads at x give the even outputs (bytes 2m, 2m+1),
    // loads at x + 1 the odd ones; interleaving them restores the order.
    auto put = [&](int at, __m256i even, __m256i odd) {
        const __m256i lo = _mm256_unpacklo_epi16(even, odd), hi = _mm256_unpackhi_epi16(even, odd);
        const __m256i first = _mm256_sub_epi16(_mm256_permute2x128_si256(lo, hi, 0x20), low);
        const __m256i second = _mm256_sub_epi16(_mm256_permute2x128_si256(lo, hi, 0x31), low);
        auto widen = [&](int i, __m256i v) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(acc + i),
                                _mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(v)), low32));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(acc + i + 8),
                                _mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(v, 1)), low32));
        };
        widen(at, first);
        widen(at + 16, second);
    };
    auto block = [&](int x) {
        __m256i even = zero, odd = zero;
        for (int p = 0; p < pairs; ++p) {
            const Rok8u* at = tap(base, offs[p]) + x;
            const __m256i w = _mm256_set1_epi16(weights[p]);
            even = _mm256_add_epi16(even, _mm256_maddubs_epi16(load(at), w));
            odd = _mm256_add_epi16(odd, _mm256_maddubs_epi16(load(at + 1), w));
        }
        put(x, even, odd);
    };
    // Two blocks per pass over the pairs share the weights and the loop.
    auto twice = [&](int x) {
        __m256i e0 = zero, o0 = zero, e1 = zero, o1 = zero;
        for (int p = 0; p < pairs; ++p) {
            const Rok8u* at = tap(base, offs[p]) + x;
            const __m256i w = _mm256_set1_epi16(weights[p]);
            e0 = _mm256_add_epi16(e0, _mm256_maddubs_epi16(load(at), w));
            o0 = _mm256_add_epi16(o0, _mm256_maddubs_epi16(load(at + 1), w));
            e1 = _mm256_add_epi16(e1, _mm256_maddubs_epi16(load(at + 32), w));
            o1 = _mm256_add_epi16(o1, _mm256_maddubs_epi16(load(at + 33), w));
        }
        put(x, e0, o0);
        put(x + 32, e1, o1);
    };
    int x = 0;
    if (n >= 32) {
        for (; x + 64 <= n; x += 64) twice(x);
        for (; x + 32 <= n; x += 32) block(x);
        if (x < n) block(n - 32);  // the last outputs again, to the same values
        return;
    }
    for (; x < n; ++x) {
        std::int32_t s = 0;
        for (int p = 0; p < pairs; ++p) {
            const Rok8u* at = tap(base, offs[p]) + x;
            s += std::int8_t(weights[p] & 0xFF) * std::int32_t(at[0]) + std::int8_t(weights[p] >> 8) * std::int32_t(at[1]);
        }
        acc[x] = s;
    }
}

void filter_sum(const Rok8u* b, const std::ptrdiff_t* o, const std::int32_t* c, int k, int n, std::int32_t* a) { sum_int32(b, o, c, k, n, a); }
void filter_sum(const Rok16s* b, const std::ptrdiff_t* o, const std::int32_t* c, int k, int n, std::int32_t* a) { sum_int32(b, o, c, k, n, a); }
void filter_sum(const Rok16u* b, const std::ptrdiff_t* o, const std::int32_t* c, int k, int n, std::int32_t* a) { sum_int32(b, o, c, k, n, a); }

void filter_sum(const Rok8u* b, const std::ptrdiff_t* o, const float* c, int k, int n, float* a) { sum_float(b, o, c, k, n, a, false); }
void filter_sum(const Rok8s* b, const std::ptrdiff_t* o, const float* c, int k, int n, float* a) { sum_float(b, o, c, k, n, a, false); }
void filter_sum(const Rok16s* b, const std::ptrdiff_t* o, const float* c, int k, int n, float* a) { sum_float(b, o, c, k, n, a, false); }
void filter_sum(const Rok16u* b, const std::ptrdiff_t* o, const float* c, int k, int n, float* a) { sum_float(b, o, c, k, n, a, false); }
void filter_sum(const Rok32s* b, const std::ptrdiff_t* o, const float* c, int k, int n, float* a) { sum_float(b, o, c, k, n, a, false); }
void filter_sum(const Rok32f* b, const std::ptrdiff_t* o, const float* c, int k, int n, float* a, bool stream) {
    sum_float(b, o, c, k, n, a, stream);
}

void filter_sum(const Rok64f* base, const std::ptrdiff_t* offs, const double* coef, int ntaps, int n, double* acc) {
    constexpr int kLanes = 4, kVectors = 8, kBlock = kLanes * kVectors;
    int x = 0;
    for (; x + kBlock <= n; x += kBlock) {
        __m256d a[kVectors];
        for (int v = 0; v < kVectors; ++v) a[v] = _mm256_setzero_pd();
        for (int t = 0; t < ntaps; ++t) {
            const Rok64f* p = tap(base, offs[t]) + x;
            const __m256d c = _mm256_set1_pd(coef[t]);
            for (int v = 0; v < kVectors; ++v)
                a[v] = _mm256_add_pd(a[v], _mm256_mul_pd(_mm256_loadu_pd(p + kLanes * v), c));
        }
        for (int v = 0; v < kVectors; ++v) _mm256_storeu_pd(acc + x + kLanes * v, a[v]);
    }
    for (; x < n; ++x) acc[x] = scalar_sum<Rok64f, double, double>(base, offs, coef, ntaps, x);
}

}  // namespace rok::kernels
