// Walkers shared by the reduction kernels (AVX2; included by kernel sources
// only). A row is cut into vectors of L samples; vector k of a row feeds
// accumulator k mod P, and P x L is a multiple of the channel count, so each
// accumulator lane always sees the same channel. The last, partial vector of
// a row is read from a padded copy, never past the row's end.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#include "frame/image.h"

namespace rok::kernels::stats_engine {

// Calls body(k, i, n) for every vector of a row of m samples: k its
// accumulator, i its first sample, n its length (L, or fewer for the last).
// Whole rounds of P vectors pass k as a compile-time constant so that the
// accumulators can live in registers.
template <int P, std::size_t L, class Body>
inline void walk_row(std::size_t m, Body&& body) {
    std::size_t i = 0;
    for (; i + P * L <= m; i += P * L)
        [&]<int... K>(std::integer_sequence<int, K...>) {
            (body(std::integral_constant<int, K>{}, i + K * L, std::integral_constant<std::size_t, L>{}), ...);
        }(std::make_integer_sequence<int, P>{});
    for (int k = 0; i < m; ++k, i += L) body(k, i, std::min(L, m - i));
}

// A copy of the n < L samples at p, padded up to L samples. Pad lanes repeat
// the same channel's sample of the row's last pixel (row[m - nc + channel]),
// which leaves any minimum or maximum unchanged.
template <class T, std::size_t L>
struct Padded {
    alignas(32) T v[L];
    Padded(const T* row, std::size_t i, std::size_t n, std::size_t m, int nc) {
        std::memcpy(v, row + i, n * sizeof(T));
        for (std::size_t k = n; k < L; ++k) v[k] = row[m - std::size_t(nc) + (i + k) % std::size_t(nc)];
    }
};

// As Padded, with zeros.
template <class T, std::size_t L>
struct Zeroed {
    alignas(32) T v[L] = {};
    Zeroed(const T* p, std::size_t n) { std::memcpy(v, p, n * sizeof(T)); }
};

// Lanes where index < n.
inline __m256i lanes_below(std::size_t n) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(int(n)), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

// Eight samples as 32-bit lanes (32-bit types are loaded as they are).
inline __m256i widen8(const Rok8u* p) { return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok8s* p) { return _mm256_cvtepi8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok16u* p) { return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok16s* p) { return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
inline __m256i widen8(const Rok32f* p) { return _mm256_castps_si256(_mm256_loadu_ps(p)); }

// Adds each channel's lanes: out[c] += lanes[j] for j mod nc == c.
template <class A, class B>
inline void lanes_to_channels(const A* lanes, int count, int nc, B* out) {
    for (int j = 0; j < count; ++j) out[j % nc] += B(lanes[j]);
}

// Totals of 32-bit terms term(x, y, k) of eight samples (y is x's partner
// in the second source, or x itself). Each term must lie within +-65535;
// the 32-bit lanes are moved into 64-bit totals before 16384 additions, so
// no lane can overflow.
template <int P, class T, class Term>
void sum_terms32(const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc, Term term,
                 std::int64_t* out) {
    constexpr int kFlushEvery = 16384;
    __m256i acc[P], lo[P], hi[P];
    for (int k = 0; k < P; ++k) acc[k] = lo[k] = hi[k] = _mm256_setzero_si256();
    int pending = 0;
    auto flush = [&] {
        for (int k = 0; k < P; ++k) {
            lo[k] = _mm256_add_epi64(lo[k], _mm256_cvtepi32_epi64(_mm256_castsi256_si128(acc[k])));
            hi[k] = _mm256_add_epi64(hi[k], _mm256_cvtepi32_epi64(_mm256_extracti128_si256(acc[k], 1)));
            acc[k] = _mm256_setzero_si256();
        }
        pending = 0;
    };
    for (int y = 0; y < h; ++y) {
        const T* ra = row(a, as, y);
        const T* rb = b ? row(b, bs, y) : ra;
        walk_row<P, 8>(m, [&](auto k, std::size_t i, auto n) {
            __m256i t;
            if (n < 8) {
                const Zeroed<T, 8> za(ra + i, n), zb(rb + i, n);
                t = _mm256_and_si256(term(widen8(za.v), widen8(zb.v), int(k)), lanes_below(n));
            } else {
                t = term(widen8(ra + i), widen8(rb + i), int(k));
            }
            acc[k] = _mm256_add_epi32(acc[k], t);
            if (++pending == kFlushEvery) flush();
        });
    }
    flush();
    alignas(32) std::int64_t lanes[8 * P];
    for (int k = 0; k < P; ++k) {
        _mm256_store_si256(reinterpret_cast<__m256i*>(lanes + 8 * k), lo[k]);
        _mm256_store_si256(reinterpret_cast<__m256i*>(lanes + 8 * k + 4), hi[k]);
    }
    lanes_to_channels(lanes, 8 * P, nc, out);
}

// Totals of 64-bit products u * v, where factors(x, y) gives the two
// 32-bit factors of eight samples (|u|, |v| < 2^31).
template <int P, class T, class Factors>
void sum_products64(const T* a, int as, const T* b, int bs, std::size_t m, int h, int nc, Factors factors,
                    std::int64_t* out) {
    __m256i even[P], odd[P];
    for (int k = 0; k < P; ++k) even[k] = odd[k] = _mm256_setzero_si256();
    for (int y = 0; y < h; ++y) {
        const T* ra = row(a, as, y);
        const T* rb = b ? row(b, bs, y) : ra;
        walk_row<P, 8>(m, [&](auto k, std::size_t i, auto n) {
            __m256i u, v;
            if (n < 8) {
                const Zeroed<T, 8> za(ra + i, n), zb(rb + i, n);
                std::tie(u, v) = factors(widen8(za.v), widen8(zb.v));
                u = _mm256_and_si256(u, lanes_below(n));
            } else {
                std::tie(u, v) = factors(widen8(ra + i), widen8(rb + i));
            }
            even[k] = _mm256_add_epi64(even[k], _mm256_mul_epi32(u, v));
            odd[k] = _mm256_add_epi64(odd[k], _mm256_mul_epi32(_mm256_srli_epi64(u, 32), _mm256_srli_epi64(v, 32)));
        });
    }
    alignas(32) std::int64_t e[4], o[4];
    std::int64_t lanes[8 * P];
    for (int k = 0; k < P; ++k) {
        _mm256_store_si256(reinterpret_cast<__m256i*>(e), even[k]);
        _mm256_store_si256(reinterpret_cast<__m256i*>(o), odd[k]);
        for (int j = 0; j < 4; ++j) {
            lanes[8 * k + 2 * j] = e[j];
            lanes[8 * k + 2 * j + 1] = o[j];
        }
    }
    lanes_to_channels(lanes, 8 * P, nc, out);
}

// Bytes where index < n.
inline __m256i bytes_below(std::size_t n) {
    const __m256i idx = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20,
                                         21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
    return _mm256_cmpgt_epi8(_mm256_set1_epi8(char(n)), idx);
}

// Totals of byte terms term(x, y, k) of 32 samples of 8-bit data. One
// channel: sum of absolute differences against zero into 64-bit lanes.
// Several: every byte position of the P-vector block keeps its own 16-bit
// lane (even and odd bytes apart), moved into 64-bit lanes before any
// reaches 256 additions, and positions are folded to channels at the end.
template <int P, bool Unit = false, class Term>
void sum_byte_terms(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h, int nc, Term term,
                    std::int64_t* out) {
    const __m256i zero = _mm256_setzero_si256();
    const auto terms = [&](const Rok8u* ra, const Rok8u* rb, auto k, std::size_t i, auto n) {
        if (n < 32) {
            const Zeroed<Rok8u, 32> za(ra + i, n), zb(rb + i, n);
            return _mm256_and_si256(term(_mm256_load_si256(reinterpret_cast<const __m256i*>(za.v)),
                                         _mm256_load_si256(reinterpret_cast<const __m256i*>(zb.v)), int(k)),
                                    bytes_below(n));
        }
        return term(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(ra + i)),
                    _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rb + i)), int(k));
    };
    if (nc == 1) {
        // Terms of 0 or 1 (Unit) first gather in byte counters, summed
        // every 255 steps.
        __m256i acc = zero, counts = zero;
        int steps = 0;
        for (int y = 0; y < h; ++y) {
            const Rok8u* ra = row(a, as, y);
            const Rok8u* rb = b ? row(b, bs, y) : ra;
            walk_row<P, 32>(m, [&](auto k, std::size_t i, auto n) {
                if constexpr (Unit) {
                    counts = _mm256_add_epi8(counts, terms(ra, rb, k, i, n));
                    if (++steps < 255) return;
                    acc = _mm256_add_epi64(acc, _mm256_sad_epu8(counts, zero));
                    counts = zero;
                    steps = 0;
                } else {
                    acc = _mm256_add_epi64(acc, _mm256_sad_epu8(terms(ra, rb, k, i, n), zero));
                }
            });
        }
        acc = _mm256_add_epi64(acc, _mm256_sad_epu8(counts, zero));
        alignas(32) std::int64_t lanes[4];
        _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), acc);
        out[0] += lanes[0] + lanes[1] + lanes[2] + lanes[3];
        return;
    }
    // 16-bit lane j of lo[k] holds byte 2j of vector k, of hi[k] byte 2j + 1.
    const __m256i low_byte = _mm256_set1_epi16(0xFF);
    __m256i lo[P], hi[P], wide[P][2][4];
    for (int k = 0; k < P; ++k) {
        lo[k] = hi[k] = zero;
        for (auto& half : wide[k])
            for (__m256i& g : half) g = zero;
    }
    int adds = 0;  // to accumulator 0, which every row starts with
    const auto flush = [&] {
        for (int k = 0; k < P; ++k) {
            const __m256i* acc[2] = {&lo[k], &hi[k]};
            for (int s = 0; s < 2; ++s) {
                const __m128i l = _mm256_castsi256_si128(*acc[s]), u = _mm256_extracti128_si256(*acc[s], 1);
                __m256i* w = wide[k][s];
                w[0] = _mm256_add_epi64(w[0], _mm256_cvtepu16_epi64(l));
                w[1] = _mm256_add_epi64(w[1], _mm256_cvtepu16_epi64(_mm_srli_si128(l, 8)));
                w[2] = _mm256_add_epi64(w[2], _mm256_cvtepu16_epi64(u));
                w[3] = _mm256_add_epi64(w[3], _mm256_cvtepu16_epi64(_mm_srli_si128(u, 8)));
            }
            lo[k] = hi[k] = zero;
        }
        adds = 0;
    };
    for (int y = 0; y < h; ++y) {
        const Rok8u* ra = row(a, as, y);
        const Rok8u* rb = b ? row(b, bs, y) : ra;
        walk_row<P, 32>(m, [&](auto k, std::size_t i, auto n) {
            const __m256i t = terms(ra, rb, k, i, n);
            lo[k] = _mm256_add_epi16(lo[k], _mm256_and_si256(t, low_byte));
            hi[k] = _mm256_add_epi16(hi[k], _mm256_srli_epi16(t, 8));
            if (int(k) == 0 && ++adds == 255) flush();
        });
    }
    flush();
    for (int k = 0; k < P; ++k)
        for (int s = 0; s < 2; ++s)
            for (int g = 0; g < 4; ++g) {
                alignas(32) std::int64_t lanes[4];
                _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), wide[k][s][g]);
                // Group g holds 16-bit lanes 4g..4g+3 of lo (s = 0) or hi.
                for (int j = 0; j < 4; ++j) out[(32 * k + 2 * (4 * g + j) + s) % nc] += lanes[j];
            }
}

// Totals of products of 16-bit pairs over one-channel 8-bit rows: 32
// samples are widened as even and odd bytes and each madd gives 8 pair sums below
// 2^17; both accumulators move to 64-bit lanes every 8192 steps, before
// any lane can reach 2^31.
enum class Pairs { Product, Square, DiffSquare };

template <Pairs Mode>
std::int64_t sum_pair_products(const Rok8u* a, int as, const Rok8u* b, int bs, std::size_t m, int h) {
    constexpr int kFlushEvery = 8192;
    const __m256i zero = _mm256_setzero_si256();
    __m256i lo[2] = {zero, zero}, hi[2] = {zero, zero}, wide = zero;
    int pending = 0;
    const auto flush = [&] {
        for (int k = 0; k < 2; ++k)
            for (const __m256i* v : {&lo[k], &hi[k]}) {
                wide = _mm256_add_epi64(wide, _mm256_cvtepi32_epi64(_mm256_castsi256_si128(*v)));
                wide = _mm256_add_epi64(wide, _mm256_cvtepi32_epi64(_mm256_extracti128_si256(*v, 1)));
            }
        lo[0] = lo[1] = hi[0] = hi[1] = zero;
        pending = 0;
    };
    for (int y = 0; y < h; ++y) {
        const Rok8u* ra = row(a, as, y);
        const Rok8u* rb = Mode == Pairs::Square ? ra : row(b, bs, y);
        const auto load = [](const Rok8u* r, std::size_t i, auto n) {
            if (n < 32) {
                const Zeroed<Rok8u, 32> z(r + i, n);
                return _mm256_load_si256(reinterpret_cast<const __m256i*>(z.v));
            }
            return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r + i));
        };
        // Even and odd bytes as 16-bit lanes, by mask and shift (no shuffles).
        const __m256i low_byte = _mm256_set1_epi16(0xFF);
        walk_row<2, 32>(m, [&](auto k, std::size_t i, auto n) {
            const __m256i x = load(ra, i, n);
            __m256i xl = _mm256_and_si256(x, low_byte), xh = _mm256_srli_epi16(x, 8), zl = xl, zh = xh;
            if constexpr (Mode != Pairs::Square) {
                const __m256i z = load(rb, i, n);
                zl = _mm256_and_si256(z, low_byte);
                zh = _mm256_srli_epi16(z, 8);
            }
            if constexpr (Mode == Pairs::DiffSquare) {
                zl = xl = _mm256_sub_epi16(xl, zl);
                zh = xh = _mm256_sub_epi16(xh, zh);
            }
            lo[k] = _mm256_add_epi32(lo[k], _mm256_madd_epi16(xl, zl));
            hi[k] = _mm256_add_epi32(hi[k], _mm256_madd_epi16(xh, zh));
            if (++pending == kFlushEvery) flush();
        });
    }
    flush();
    alignas(32) std::int64_t lanes[4];
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), wide);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3];
}

}  // namespace rok::kernels::stats_engine
