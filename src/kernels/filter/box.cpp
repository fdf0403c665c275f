// Double sums must follow the stated adds exactly, so no multiply and add
// may be fused.
#pragma GCC optimize("fp-contract=off")

#include "kernels/filter/box.h"

#include <immintrin.h>

#include <cmath>
#include <limits>
#include <type_traits>

#include "kernels/rules.h"

namespace rok::kernels::box {

// ---- column sums: plain loops, which the compiler vectorises ------------------

template <class T, class A>
void column_set(const T* row, int n, A* sum) {
    for (int x = 0; x < n; ++x) sum[x] = A(row[x]);
}

template <class T, class A>
void column_add(const T* row, int n, A* sum) {
    for (int x = 0; x < n; ++x) sum[x] = A(sum[x] + A(row[x]));
}

template <class T, class A>
void column_update(const T* enter, const T* leave, int n, A* sum) {
    for (int x = 0; x < n; ++x) sum[x] = A(sum[x] + A(enter[x]) - A(leave[x]));
}

#define ROK_BOX_COLUMNS(T, A)                                     \
    template void column_set(const T*, int, A*);                 \
    template void column_add(const T*, int, A*);                 \
    template void column_update(const T*, const T*, int, A*);
ROK_BOX_COLUMNS(Rok8u, std::uint16_t)
ROK_BOX_COLUMNS(Rok8u, std::int32_t)
ROK_BOX_COLUMNS(Rok16s, std::int32_t)
ROK_BOX_COLUMNS(Rok16u, std::int32_t)
ROK_BOX_COLUMNS(Rok8u, double)
ROK_BOX_COLUMNS(Rok16s, double)
ROK_BOX_COLUMNS(Rok16u, double)
ROK_BOX_COLUMNS(Rok32f, double)
ROK_BOX_COLUMNS(Rok64f, double)
#undef ROK_BOX_COLUMNS

namespace {

// ---- scalar rules ------------------------------------------------------------------

// floor((mult * s + 2^(shift-1)) / 2^shift).
std::int64_t mean_one(std::int64_t s, Mean m) {
    const std::int64_t p = s * m.mult + (std::int64_t(1) << (m.shift - 1));
    return p >= 0 ? p >> m.shift : -((-p + (std::int64_t(1) << m.shift) - 1) >> m.shift);
}

// The nearest integer to s / area, halves up (s an exact integer).
std::int64_t mean_one(double s, double area) { return std::int64_t(std::floor((s + s + area) / (area + area))); }

// ---- window sums ------------------------------------------------------------------

constexpr int kDirect = 8;  // windows up to this many pixels add directly

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// prefix[0 .. nc) = 0, prefix[nc + x] = sums[x] + sums[x - nc] + ... for
// x < m: the running sum of each channel, modulo the lanes' width (window
// sums taken as differences stay exact while they fit the lanes).
void prefix_of(const std::uint16_t* sums, int m, int nc, std::uint16_t* prefix) {
    for (int c = 0; c < nc; ++c) prefix[c] = 0;
    std::uint16_t* p = prefix + nc;
    int x = 0;
    if (nc == 1) {
        // Within each 128-bit lane by shifts of 1, 2 and 4 samples, then the
        // low lane's total into the high lane, then the carry.
        const __m256i last = _mm256_set1_epi16(0x0F0E);
        __m256i carry = _mm256_setzero_si256();
        for (; x + 16 <= m; x += 16) {
            __m256i v = load(sums + x);
            v = _mm256_add_epi16(v, _mm256_slli_si256(v, 2));
            v = _mm256_add_epi16(v, _mm256_slli_si256(v, 4));
            v = _mm256_add_epi16(v, _mm256_slli_si256(v, 8));
            const __m256i ends = _mm256_shuffle_epi8(v, last);
            v = _mm256_add_epi16(v, _mm256_permute2x128_si256(ends, ends, 0x08));
            // The block's total joins the carry off the chain of blocks.
            const __m256i top = _mm256_shuffle_epi8(v, last);
            const __m256i total = _mm256_permute2x128_si256(top, top, 0x11);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + x), _mm256_add_epi16(v, carry));
            carry = _mm256_add_epi16(carry, total);
        }
        std::uint16_t run = x > 0 ? p[x - 1] : 0;
        for (; x < m; ++x) p[x] = run = std::uint16_t(run + sums[x]);
    } else {
        __m128i run = _mm_setzero_si128();
        for (; x < m; x += nc) {
            run = _mm_add_epi16(run, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(sums + x)));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p + x), run);
        }
    }
}

void prefix_of(const std::int32_t* sums, int m, int nc, std::int32_t* prefix) {
    for (int c = 0; c < nc; ++c) prefix[c] = 0;
    std::int32_t* p = prefix + nc;
    int x = 0;
    if (nc == 1) {
        // Within eight lanes by shifts of 1, 2 and 4 lanes, then the carry.
        const __m256i i1 = _mm256_setr_epi32(0, 0, 1, 2, 3, 4, 5, 6), i2 = _mm256_setr_epi32(0, 0, 0, 1, 2, 3, 4, 5);
        const __m256i m1 = _mm256_setr_epi32(0, -1, -1, -1, -1, -1, -1, -1);
        const __m256i m2 = _mm256_setr_epi32(0, 0, -1, -1, -1, -1, -1, -1);
        const __m256i last = _mm256_set1_epi32(7);
        __m256i carry = _mm256_setzero_si256();
        for (; x + 8 <= m; x += 8) {
            __m256i v = load(sums + x);
            v = _mm256_add_epi32(v, _mm256_and_si256(_mm256_permutevar8x32_epi32(v, i1), m1));
            v = _mm256_add_epi32(v, _mm256_and_si256(_mm256_permutevar8x32_epi32(v, i2), m2));
            v = _mm256_add_epi32(v, _mm256_permute2x128_si256(v, v, 0x08));
            // The block's total joins the carry off the chain of blocks.
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + x), _mm256_add_epi32(v, carry));
            carry = _mm256_add_epi32(carry, _mm256_permutevar8x32_epi32(v, last));
        }
        std::int32_t run = x > 0 ? p[x - 1] : 0;
        for (; x < m; ++x) p[x] = run = std::int32_t(std::uint32_t(run) + std::uint32_t(sums[x]));
    } else {
        // One pixel per step: four lanes hold its channels (and one sample
        // of the next pixel, overwritten by the next store); both buffers
        // are padded for the last pixel.
        __m128i run = _mm_setzero_si128();
        for (; x < m; x += nc) {
            run = _mm_add_epi32(run, _mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + x)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p + x), run);
        }
    }
}

void prefix_of(const double* sums, int m, int nc, double* prefix) {
    for (int c = 0; c < nc; ++c) prefix[c] = 0;
    double* p = prefix + nc;
    int x = 0;
    if (nc == 1) {
        const __m256d zero = _mm256_setzero_pd();
        __m256d carry = zero;
        for (; x + 4 <= m; x += 4) {
            __m256d v = _mm256_loadu_pd(sums + x);
            v = _mm256_add_pd(v, _mm256_blend_pd(_mm256_permute4x64_pd(v, 0x90), zero, 1));
            v = _mm256_add_pd(v, _mm256_permute2f128_pd(v, v, 0x08));
            // The block's total joins the carry off the chain of blocks (the
            // same sum as the block's last element plus the carry).
            _mm256_storeu_pd(p + x, _mm256_add_pd(v, carry));
            carry = _mm256_add_pd(carry, _mm256_permute4x64_pd(v, 0xFF));
        }
        double run = x > 0 ? p[x - 1] : 0.0;
        for (; x < m; ++x) p[x] = run = run + sums[x];
    } else {
        __m256d run = _mm256_setzero_pd();
        for (; x < m; x += nc) {
            run = _mm256_add_pd(run, _mm256_loadu_pd(sums + x));
            _mm256_storeu_pd(p + x, run);
        }
    }
}

// Calls emit(x, S) for blocks of L sums in vectors, emit_one(x, s) for the
// rest: S the window sums of sample x on.
template <class A>
struct Lanes;
template <>
struct Lanes<std::int32_t> {
    using V = __m256i;
    static constexpr int L = 8;
    static V load(const std::int32_t* p) { return box::load(p); }
    static V add(V a, V b) { return _mm256_add_epi32(a, b); }
    static V sub(V a, V b) { return _mm256_sub_epi32(a, b); }
    static std::int32_t add(std::int32_t a, std::int32_t b) { return std::int32_t(std::uint32_t(a) + std::uint32_t(b)); }
    static std::int32_t sub(std::int32_t a, std::int32_t b) { return std::int32_t(std::uint32_t(a) - std::uint32_t(b)); }
};
template <>
struct Lanes<double> {
    using V = __m256d;
    static constexpr int L = 4;
    static V load(const double* p) { return _mm256_loadu_pd(p); }
    static V add(V a, V b) { return _mm256_add_pd(a, b); }
    static V sub(V a, V b) { return _mm256_sub_pd(a, b); }
    static double add(double a, double b) { return a + b; }
    static double sub(double a, double b) { return a - b; }
};

template <class A, class Emit, class EmitOne>
void windows(const A* sums, int n, int nc, int width, A* prefix, Emit&& emit, EmitOne&& emit_one) {
    using W = Lanes<A>;
    constexpr int L = W::L;
    int x = 0;
    if (width <= kDirect) {
        for (; x + L <= n; x += L) {
            typename W::V s = W::load(sums + x);
            for (int i = 1; i < width; ++i) s = W::add(s, W::load(sums + x + i * nc));
            emit(x, s);
        }
        for (; x < n; ++x) {
            A s = sums[x];
            for (int i = 1; i < width; ++i) s = W::add(s, sums[x + i * nc]);
            emit_one(x, s);
        }
        return;
    }
    prefix_of(sums, n + (width - 1) * nc, nc, prefix);
    const int span = width * nc;
    for (; x + L <= n; x += L) emit(x, W::sub(W::load(prefix + x + span), W::load(prefix + x)));
    for (; x < n; ++x) emit_one(x, W::sub(prefix[x + span], prefix[x]));
}

// ---- finishing ---------------------------------------------------------------------

// Eight means of 32-bit sums. Where mult * S stays within 31 bits (the
// family says so in m) one 32-bit multiply serves; else the products go
// through 64-bit lanes, biased to be non-negative so that a logical shift
// floors them.
inline __m256i mean8(__m256i s, Mean m, bool wide) {
    const __m128i k = _mm_cvtsi32_si128(m.shift);
    if (!wide) {
        const __m256i p = _mm256_add_epi32(_mm256_mullo_epi32(s, _mm256_set1_epi32(std::int32_t(m.mult))),
                                           _mm256_set1_epi32(1 << (m.shift - 1)));
        return _mm256_sra_epi32(p, k);
    }
    constexpr std::int64_t kBias = 1 << 16;  // above any |mean| of 16-bit samples
    const __m256i mult = _mm256_set1_epi64x(m.mult);
    const __m256i add = _mm256_set1_epi64x((kBias << m.shift) + (std::int64_t(1) << (m.shift - 1)));
    const __m256i even = _mm256_srl_epi64(_mm256_add_epi64(_mm256_mul_epi32(s, mult), add), k);
    const __m256i odd = _mm256_srl_epi64(_mm256_add_epi64(_mm256_mul_epi32(_mm256_srli_epi64(s, 32), mult), add), k);
    const __m256i both = _mm256_blend_epi32(even, _mm256_slli_epi64(odd, 32), 0xAA);
    return _mm256_sub_epi32(both, _mm256_set1_epi32(std::int32_t(kBias)));
}

template <class D>
inline void store8(D* d, __m256i v) {
    const __m128i lo = _mm256_castsi256_si128(v), hi = _mm256_extracti128_si256(v, 1);
    if constexpr (std::is_same_v<D, Rok8u>) {
        const __m128i w = _mm_packs_epi32(lo, hi);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(w, w));
    } else if constexpr (std::is_same_v<D, Rok16s>) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packs_epi32(lo, hi));
    } else {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi32(lo, hi));
    }
}

// ---- the finishing loops ---------------------------------------------------------

template <class D>
void mean_int32(const std::int32_t* sums, int n, int nc, int width, Mean m, std::int32_t* prefix, D* dst) {
    windows(sums, n, nc, width, prefix, [&](int x, __m256i s) { store8(dst + x, mean8(s, m, m.wide)); },
            [&](int x, std::int32_t s) { dst[x] = saturate<D>(mean_one(s, m)); });
}

// The 16-bit lanes of 8u data (every window sum fits 16 bits), 32 samples
// a step: windows added directly, or as differences of running sums.
void mean_uint16(const std::uint16_t* sums, int n, int nc, int width, Mean m, std::uint16_t* prefix, Rok8u* dst,
                 bool stream) {
    const __m256i zero = _mm256_setzero_si256();
    const bool direct = width <= kDirect;
    const int span = width * nc;
    if (!direct) prefix_of(sums, n + (width - 1) * nc, nc, prefix);
    auto sum16 = [&](int x) {
        if (!direct) return _mm256_sub_epi16(load(prefix + x + span), load(prefix + x));
        __m256i s = load(sums + x);
        for (int i = 1; i < width; ++i) s = _mm256_add_epi16(s, load(sums + x + i * nc));
        return s;
    };
    // With P = mult * S and hi = floor(P / 2^16), the mean is
    // floor((hi + 2^(shift-17)) / 2^(shift-16)) exactly (the low half of P
    // cannot carry past the bias), so one high-half multiply in the 16-bit
    // lanes serves wherever the multiplier fits them (one channel, areas
    // from 32 on).
    const int k = m.shift - 16;
    const bool high = !m.wide && k >= 1 && m.mult + (std::int64_t(1) << (k - 1)) <= 65536;
    const __m256i mult16 = _mm256_set1_epi16(std::int16_t(high ? m.mult : 0));
    const __m256i bias16 = _mm256_set1_epi16(std::int16_t(high ? 1 << (k - 1) : 0));
    const __m128i k16 = _mm_cvtsi32_si128(k);
    // In-lane widening and packing keep the samples in order.
    auto means16 = [&](__m256i s, auto byHigh) {
        if constexpr (byHigh) {
            return _mm256_srl_epi16(_mm256_add_epi16(_mm256_mulhi_epu16(s, mult16), bias16), k16);
        } else {
            const __m256i lo = mean8(_mm256_unpacklo_epi16(s, zero), m, m.wide);
            const __m256i hi = mean8(_mm256_unpackhi_epi16(s, zero), m, m.wide);
            return _mm256_packs_epi32(lo, hi);
        }
    };
    int x = 0;
    auto body = [&](auto byHigh) {
        auto block = [&](int at, bool streamed) {
            const __m256i w = _mm256_packus_epi16(means16(sum16(at), byHigh), means16(sum16(at + 16), byHigh));
            auto* d = reinterpret_cast<__m256i*>(dst + at);
            if (streamed) _mm256_stream_si256(d, _mm256_permute4x64_epi64(w, 0xD8));
            else _mm256_storeu_si256(d, _mm256_permute4x64_epi64(w, 0xD8));
        };
        if (stream && n >= 32) {
            // The blocks between the first and the last start on 32-byte
            // boundaries of dst; those two overlap them, storing the same
            // means again (the first only where dst is off 32 bytes: a line
            // stored both ways costs a trip to memory).
            if (reinterpret_cast<std::uintptr_t>(dst) % 32 != 0) block(0, false);
            for (x = int((32 - reinterpret_cast<std::uintptr_t>(dst) % 32) % 32); x + 32 <= n; x += 32) block(x, true);
            if (x < n) block(n - 32, false);
            x = n;
            return;
        }
        for (; x + 32 <= n; x += 32) block(x, false);
    };
    if (high) body(std::true_type{});
    else body(std::false_type{});
    for (; x < n; ++x) {
        std::uint16_t s = 0;
        if (direct)
            for (int i = 0; i < width; ++i) s = std::uint16_t(s + sums[x + i * nc]);
        else
            s = std::uint16_t(prefix[x + span] - prefix[x]);
        dst[x] = saturate<Rok8u>(mean_one(s, m));
    }
}

// Four double sums: nearest of S / area with halves up (integer samples),
// S / area (float samples), S in single precision (window sums).
template <class D>
void mean_double(const double* sums, int n, int nc, int width, double area, double* prefix, D* dst) {
    const __m256d a = _mm256_set1_pd(area), twice = _mm256_set1_pd(area + area);
    windows(sums, n, nc, width, prefix,
            [&](int x, __m256d s) {
                if constexpr (std::is_same_v<D, Rok64f>) {
                    _mm256_storeu_pd(dst + x, _mm256_div_pd(s, a));
                } else if constexpr (std::is_same_v<D, Rok32f>) {
                    _mm_storeu_ps(dst + x, _mm256_cvtpd_ps(_mm256_div_pd(s, a)));
                } else {
                    const __m256d q = _mm256_div_pd(_mm256_add_pd(_mm256_add_pd(s, s), a), twice);
                    const __m128i v = _mm256_cvttpd_epi32(_mm256_round_pd(q, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC));
                    if constexpr (std::is_same_v<D, Rok8u>) {
                        const __m128i w = _mm_packs_epi32(v, v);
                        const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(w, w));
                        __builtin_memcpy(dst + x, &bytes, 4);
                    } else {
                        const __m128i w = std::is_same_v<D, Rok16s> ? _mm_packs_epi32(v, v) : _mm_packus_epi32(v, v);
                        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), w);
                    }
                }
            },
            [&](int x, double s) {
                if constexpr (std::is_same_v<D, Rok64f>) dst[x] = s / area;
                else if constexpr (std::is_same_v<D, Rok32f>) dst[x] = float(s / area);
                else dst[x] = saturate<D>(mean_one(s, area));
            });
}

}  // namespace

void row_windows(const Rok8u* row, int n, int nc, int width, std::uint16_t* scratch, std::uint16_t* out) {
    auto widen16 = [](const Rok8u* p) {
        return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    };
    int x = 0;
    if (width <= kDirect) {
        for (; x + 16 <= n; x += 16) {
            __m256i s = widen16(row + x);
            for (int i = 1; i < width; ++i) s = _mm256_add_epi16(s, widen16(row + x + i * nc));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), s);
        }
        for (; x < n; ++x) {
            std::uint16_t s = 0;
            for (int i = 0; i < width; ++i) s = std::uint16_t(s + row[x + i * nc]);
            out[x] = s;
        }
        return;
    }
    // The row widened, its running sums, and their differences.
    const int m = n + (width - 1) * nc;
    std::uint16_t* wide = scratch;
    std::uint16_t* prefix = scratch + m + 16;
    for (; x + 16 <= m; x += 16) _mm256_storeu_si256(reinterpret_cast<__m256i*>(wide + x), widen16(row + x));
    for (; x < m; ++x) wide[x] = row[x];
    prefix_of(wide, m, nc, prefix);
    const int span = width * nc;
    for (x = 0; x + 16 <= n; x += 16)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x),
                            _mm256_sub_epi16(load(prefix + x + span), load(prefix + x)));
    for (; x < n; ++x) out[x] = std::uint16_t(prefix[x + span] - prefix[x]);
}

void vertical_add(const std::uint16_t* row, int n, bool first, std::int32_t* sums) {
    const __m256i zero = _mm256_setzero_si256();
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        const __m256i v = load(row + x);
        __m256i lo = _mm256_unpacklo_epi16(v, zero), hi = _mm256_unpackhi_epi16(v, zero);
        if (!first) {
            lo = _mm256_add_epi32(lo, load(sums + x));
            hi = _mm256_add_epi32(hi, load(sums + x + 8));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x), lo);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x + 8), hi);
    }
    for (; x < n; ++x) sums[x] = (first ? 0 : sums[x]) + row[x];
}

void vertical_step(const std::uint16_t* fresh, const std::uint16_t* stale, int n, const Mean& m, std::int32_t* sums,
                   Rok8u* dst) {
    const __m256i zero = _mm256_setzero_si256();
    // Sixteen sums updated, and their means in order as 16-bit values.
    auto block = [&](int x) {
        const __m256i f = load(fresh + x), s = load(stale + x);
        const __m256i lo = _mm256_add_epi32(
            load(sums + x), _mm256_sub_epi32(_mm256_unpacklo_epi16(f, zero), _mm256_unpacklo_epi16(s, zero)));
        const __m256i hi = _mm256_add_epi32(
            load(sums + x + 8), _mm256_sub_epi32(_mm256_unpackhi_epi16(f, zero), _mm256_unpackhi_epi16(s, zero)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x), lo);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x + 8), hi);
        return _mm256_packs_epi32(mean8(lo, m, m.wide), mean8(hi, m, m.wide));
    };
    int x = 0;
    for (; x + 32 <= n; x += 32) {
        const __m256i w = _mm256_packus_epi16(block(x), block(x + 16));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + x), _mm256_permute4x64_epi64(w, 0xD8));
    }
    for (; x + 16 <= n; x += 16) {
        const __m256i w = block(x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x),
                         _mm_packus_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1)));
    }
    for (; x < n; ++x) {
        sums[x] += std::int32_t(fresh[x]) - std::int32_t(stale[x]);
        dst[x] = saturate<Rok8u>(mean_one(sums[x], m));
    }
}

void box_mean(const std::uint16_t* s, int n, int nc, int w, Mean m, std::uint16_t* p, Rok8u* d, bool stream) {
    mean_uint16(s, n, nc, w, m, p, d, stream);
}
void box_mean(const std::int32_t* s, int n, int nc, int w, Mean m, std::int32_t* p, Rok8u* d) { mean_int32(s, n, nc, w, m, p, d); }
void box_mean(const std::int32_t* s, int n, int nc, int w, Mean m, std::int32_t* p, Rok16s* d) { mean_int32(s, n, nc, w, m, p, d); }
void box_mean(const std::int32_t* s, int n, int nc, int w, Mean m, std::int32_t* p, Rok16u* d) { mean_int32(s, n, nc, w, m, p, d); }
void box_mean(const double* s, int n, int nc, int w, double a, double* p, Rok8u* d) { mean_double(s, n, nc, w, a, p, d); }
void box_mean(const double* s, int n, int nc, int w, double a, double* p, Rok16s* d) { mean_double(s, n, nc, w, a, p, d); }
void box_mean(const double* s, int n, int nc, int w, double a, double* p, Rok16u* d) { mean_double(s, n, nc, w, a, p, d); }
void box_mean(const double* s, int n, int nc, int w, double a, double* p, Rok32f* d) { mean_double(s, n, nc, w, a, p, d); }
void box_mean(const double* s, int n, int nc, int w, double a, double* p, Rok64f* d) { mean_double(s, n, nc, w, a, p, d); }

void window_sum(const std::int32_t* sums, int n, int nc, int width, std::int32_t* prefix, Rok32f* dst) {
    windows(sums, n, nc, width, prefix, [&](int x, __m256i s) { _mm256_storeu_ps(dst + x, _mm256_cvtepi32_ps(s)); },
            [&](int x, std::int32_t s) { dst[x] = float(s); });
}

void window_sum(const double* sums, int n, int nc, int width, double* prefix, Rok32f* dst) {
    windows(sums, n, nc, width, prefix, [&](int x, __m256d s) { _mm_storeu_ps(dst + x, _mm256_cvtpd_ps(s)); },
            [&](int x, double s) { dst[x] = float(s); });
}

}  // namespace rok::kernels::box
