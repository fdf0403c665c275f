// The fixed-filter kernel template, included by the kernel sources that
// instantiate it (one per source width). A kernel runs the column stage of
// its plan over a strip into the mids and the row stage into the
// destination: 8-bit sources with byte multiply-adds into 16-bit mids and
// 16-bit sums where the plan's values fit (32-bit where not), 16-bit sources
// in 32-bit lanes. Float data skips the mids (fused): each row is summed
// in single precision in the plan's order straight from the source rows.
#pragma once

#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "kernels/filter/fixed.h"
#include "kernels/rules.h"

// The lambdas that unroll() spells out are inlined whatever their size, so
// that the plan's constants reach every instruction.
#define ROK_INLINE __attribute__((always_inline))

namespace rok::kernels::fixed {

namespace detail {

// ---- scalar rules: the readable statement of every lane -----------------

// Nearest integer, ties to even, whatever the rounding control says.
inline double nearest_even(double p) {
    double r = std::floor(p);
    const double d = p - r;
    if (d > 0.5 || (d == 0.5 && std::fmod(r, 2.0) != 0.0)) r += 1.0;
    return r;
}

template <class D>
D finish_int(std::int64_t v, const FinishRule& f, bool wide) {
    switch (f.kind) {
        case Finish::ShiftEven: return saturate<D>(shift_round_even(v, f.shift));
        case Finish::Nearest: {
            const double p = wide ? double(v) * f.c : double(float(v) * float(f.c));
            return saturate<D>(std::int64_t(nearest_even(p)));
        }
        default: return saturate<D>(v);
    }
}

inline float finish_float(float v, const FinishRule& f) {
    if (f.kind == Finish::Scale) return v * float(f.c);
    if (f.kind == Finish::Divide) return v / float(f.c);
    return v;
}

// A float sum, groups and terms in order; at(term) is the term's input.
template <class At>
float grouped(const Sum& s, At&& at) {
    float acc = 0.0f;
    for (int g = 0; g < s.n; ++g) {
        const Group& grp = s.g[g];
        float part = grp.t[0].sign > 0 ? at(grp.t[0]) : -at(grp.t[0]);
        for (int t = 1; t < grp.n; ++t) part = grp.t[t].sign > 0 ? part + at(grp.t[t]) : part - at(grp.t[t]);
        if (grp.w != 1.0) part = float(grp.w) * part;
        acc = g == 0 ? part : acc + part;
    }
    return acc;
}

// ---- vector helpers --------------------------------------------------------

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// Runs body(x) over blocks of `step` samples; a short last block runs again
// ending at n (recomputing the same values), and rows shorter than one block
// go to scalar(x) sample by sample.
template <class Body, class Scalar>
[[gnu::always_inline]] inline void blocks(int n, int step, Body&& body, Scalar&& scalar) {
    if (n < step) {
        for (int x = 0; x < n; ++x) scalar(x);
        return;
    }
    int x = 0;
    for (; x + step <= n; x += step) body(x);
    if (x < n) body(n - step);
}

// f(integral_constant<int, 0>) .. f(integral_constant<int, N - 1>): the
// plans' loops spelled out, so that every index, weight and sign is a
// constant of the code.
template <class F, int... I>
[[gnu::always_inline]] inline void unroll_each(F& f, std::integer_sequence<int, I...>) {
    (f(std::integral_constant<int, I>{}), ...);
}
template <int N, class F>
[[gnu::always_inline]] inline void unroll(F&& f) {
    unroll_each(f, std::make_integer_sequence<int, N>{});
}

// The row stage's blocks: body(x, stream) for blocks of `step` samples of
// D. When streaming, the blocks between the first and the last start on
// 32-byte boundaries and their stores bypass the cache; the first and last
// (which may overlap them, recomputing the same values) store normally.
template <class D, class Body, class Scalar>
[[gnu::always_inline]] inline void out_blocks(const D* out, int n, int step, bool stream, Body&& body, Scalar&& scalar) {
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(out);
    if (n < step || !stream || at % sizeof(D) != 0) {
        blocks(n, step, [&](int x) { body(x, false); }, scalar);
        return;
    }
    body(0, false);
    int x = int((32 - at % 32) % 32 / sizeof(D));
    for (; x + step <= n; x += step) body(x, true);
    if (x < n) body(n - step, false);
}

// out_blocks for 32-byte blocks whose streamed part is whole 64-byte lines:
// no line is written both by ordinary and by streaming stores (a line that
// the cache holds and a streaming store then writes is flushed first, which
// cost more than the streaming saved). Ordinary blocks cover the head up to
// the first line boundary (none where the row starts on one) and the tail
// after the last whole line (at least one block, or none); blocks within
// each part may overlap, recomputing the same values.
template <class D, class Body, class Scalar>
[[gnu::always_inline]] inline void line_blocks(const D* out, int n, bool stream, Body&& body, Scalar&& scalar) {
    constexpr int step = 32 / int(sizeof(D)), line = 64 / int(sizeof(D));
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(out);
    int first = int((64 - at % 64) % 64 / sizeof(D));
    if (first > 0 && first < step) first += line;
    if (!stream || at % sizeof(D) != 0 || n < first + line) {
        blocks(n, step, [&](int x) { body(x, false); }, scalar);
        return;
    }
    int end = first + (n - first) / line * line;
    if (end < n && n - end < step) end -= line;
    // [from, to), at least one block long, in ordinary blocks.
    auto ordinary = [&](int from, int to) {
        int x = from;
        for (; x + step <= to; x += step) body(x, false);
        if (x < to) body(to - step, false);
    };
    if (first > 0) ordinary(0, first);
    for (int x = first; x < end; x += step) body(x, true);
    if (end < n) ordinary(end, n);
}

inline void put(void* p, __m256i v, bool stream) {
    if (stream) _mm256_stream_si256(static_cast<__m256i*>(p), v);
    else _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
inline void put(float* p, __m256 v, bool stream) {
    if (stream) _mm256_stream_ps(p, v);
    else _mm256_storeu_ps(p, v);
}

// Eight 32-bit values rounded by the Nearest rule, independent of the
// rounding control.
template <bool Wide>
inline __m256i nearest8(__m256i v, double c) {
    constexpr int kNearest = _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC;
    if constexpr (!Wide) {
        const __m256 p = _mm256_mul_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(float(c)));
        return _mm256_cvttps_epi32(_mm256_round_ps(p, kNearest));
    } else {
        const __m256d k = _mm256_set1_pd(c);
        const __m256d lo = _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(v)), k);
        const __m256d hi = _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(v, 1)), k);
        const __m128i a = _mm256_cvttpd_epi32(_mm256_round_pd(lo, kNearest));
        const __m128i b = _mm256_cvttpd_epi32(_mm256_round_pd(hi, kNearest));
        return _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
    }
}

template <int Shift>
inline __m256i shift_even32(__m256i v) {
    const __m256i odd = _mm256_and_si256(_mm256_srai_epi32(v, Shift), _mm256_set1_epi32(1));
    return _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(v, _mm256_set1_epi32((1 << (Shift - 1)) - 1)), odd), Shift);
}
template <int Shift>
inline __m256i shift_even16(__m256i v) {
    const __m256i odd = _mm256_and_si256(_mm256_srai_epi16(v, Shift), _mm256_set1_epi16(1));
    return _mm256_srai_epi16(_mm256_add_epi16(_mm256_add_epi16(v, _mm256_set1_epi16((1 << (Shift - 1)) - 1)), odd), Shift);
}

// Non-negative values in single precision: v * c + 0.5 in one fused step
// and truncated. The Nearest rule's margins (no result within 1/(2d) of a
// half) dwarf the one rounding of the fused step, so this is the same
// nearest integer in one instruction fewer.
inline __m256i nearest8_positive(__m256i v, double c) {
    return _mm256_cvttps_epi32(_mm256_fmadd_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(float(c)), _mm256_set1_ps(0.5f)));
}

template <FinishRule R, bool Wide, bool Positive = false>
inline __m256i finish32(__m256i v) {
    if constexpr (R.kind == Finish::ShiftEven) return shift_even32<R.shift>(v);
    else if constexpr (R.kind == Finish::Nearest && Positive && !Wide) return nearest8_positive(v, R.c);
    else if constexpr (R.kind == Finish::Nearest) return nearest8<Wide>(v, R.c);
    else return v;
}

// Sixteen 32-bit results (two vectors in sample order) saturated and stored.
inline void store16(Rok8u* d, __m256i a, __m256i b) {
    const __m256i w = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d),
                     _mm_packus_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1)));
}
inline void store16(Rok16s* d, __m256i a, __m256i b, bool stream) {
    put(d, _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8), stream);
}
inline void store16(Rok16u* d, __m256i a, __m256i b, bool stream) {
    put(d, _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8), stream);
}

// 32 bytes with the 8-byte quarters ordered 0 2 1 3, so that the in-lane
// byte interleave yields samples 0..15 and 16..31 in order; signed bytes
// biased by 128 into unsigned ones.
template <bool Flip>
inline __m256i load_bytes(const void* p) {
    __m256i v = load(p);
    if constexpr (Flip) v = _mm256_xor_si256(v, _mm256_set1_epi8(char(0x80)));
    return _mm256_permute4x64_epi64(v, 0xD8);
}

// ---- the kernel ----------------------------------------------------------------

template <Fixed F, int Size, class S, class D>
struct Kernel {
    static constexpr bool kFloat = std::is_floating_point_v<S>;
    static constexpr const Plan& P = plan_of(F, Size, kFloat);
    static constexpr FinishRule kFinish = finish_of(F, Size, kFloat);
    static constexpr Flat kRow = flatten(P.row);
    static constexpr Ranges kRanges =
        ranges_of(P, kFloat ? Range{} : Range{std::numeric_limits<S>::min(), std::numeric_limits<S>::max()});
    static constexpr long long kRowMax = kRanges.row.hi > -kRanges.row.lo ? kRanges.row.hi : -kRanges.row.lo;
    // Nearest in double precision once values reach 2^22 (single precision
    // is exact below).
    static constexpr bool kWide = kRowMax >= (1ll << 22);
    static constexpr bool kPositive = kRanges.row.lo >= 0;
    static constexpr int kBias = kFinish.kind == Finish::ShiftEven ? 1 << (kFinish.shift - 1) : 0;
    // 8-bit sources: 16-bit row sums where every value (with the rounding
    // bias) fits, and unsigned mids where a mid exceeds 32767.
    static constexpr bool kNarrow = kRanges.row.lo >= -32768 && kRanges.row.hi + kBias <= 32767;
    static constexpr bool kUnsignedMids = [] {
        bool u = false;
        for (int m = 0; m < P.mids; ++m) u = u || kRanges.mid[m].hi > 32767;
        return u;
    }();
    static constexpr BytePairs kPairs = byte_pairs(P);
    static_assert(sizeof(S) != 1 || byte_mids_fit(P, std::is_signed_v<S>), "the plan must fit 16-bit mids");

    using I = std::conditional_t<sizeof(S) == 1, std::int16_t, std::conditional_t<kFloat, float, std::int32_t>>;

    // ---- Gauss 5x5 on 8u ----
    //
    // (Several channels, and one-channel rows narrower than 32 pixels: one
    // channel otherwise takes the row-first kernel of fixed_gauss5.cpp.)
    // The mask's columns 0 and 4, 1 and 3, and 2 as mids M0, M1, M2 (the
    // plan's), then the nearest integer to (M0 + M0 + M1 + M1 + M2) / 571 at
    // their column offsets. With T = sum + 286, q = (T * 14691) >> 23 is that
    // nearest integer for every sum from 0 to 145605 (checked exhaustively).
    // T reaches 145891, beyond 16 bits, but the row stage works in 16-bit
    // lanes all the same (16 results per operation instead of 8): the
    // wrapping adds give T modulo 65536, the carries out of the two adds that
    // can overflow give the high part h (0 to 2), and
    //   (T * 14691) >> 23 == (h * 14691 + ((T mod 65536) * 14691 >> 16)) >> 7
    // exactly (the dropped low half is a fraction below one of an integer
    // that is then floored again), with every term within unsigned 16 bits.
    // The mids are unsigned 16-bit values; M2 carries the 286, folded into
    // the byte multiply-adds by pairing source row 2 with the constant 26
    // (26 * 11 = 286).
    static constexpr bool kGauss5Bytes = F == Fixed::Gauss && Size == 5 && std::is_same_v<S, Rok8u>;
    static constexpr int kG5Round = 286, kG5Mul = 14691, kG5Shift = 23;
    static constexpr int kG5Const = 26, kG5ConstW = 11;
    static_assert(kG5Const * kG5ConstW == kG5Round, "the rounding term of the Gauss 5x5 row stage");
    // Byte weights of the pairs (row 0, row 1), (row 2, the constant), (row 3, row 4).
    static constexpr int kG5W[3][3][2] = {{{2, 7}, {12, 0}, {7, 2}},
                                          {{7, 31}, {52, 0}, {31, 7}},
                                          {{12, 52}, {127, kG5ConstW}, {52, 12}}};

    // 32 mids of each kind from column x on.
    struct G5Column {
        const S *s0, *s1, *s2, *s3, *s4;
        std::int16_t *m0, *m1, *m2;
        G5Column(const S* const* rows, std::int16_t* const* mids)
            : s0(rows[0]), s1(rows[1]), s2(rows[2]), s3(rows[3]), s4(rows[4]), m0(mids[0]), m1(mids[1]), m2(mids[2]) {}
        [[gnu::always_inline]] void operator()(int x) const {
            const __m256i ck = _mm256_set1_epi8(char(kG5Const));
            std::int16_t* const mid[3] = {m0, m1, m2};
            const __m256i r0 = load_bytes<false>(s0 + x), r1 = load_bytes<false>(s1 + x);
            const __m256i r2 = load_bytes<false>(s2 + x), r3 = load_bytes<false>(s3 + x);
            const __m256i r4 = load_bytes<false>(s4 + x);
            const __m256i lo[3] = {_mm256_unpacklo_epi8(r0, r1), _mm256_unpacklo_epi8(r2, ck),
                                   _mm256_unpacklo_epi8(r3, r4)};
            const __m256i hi[3] = {_mm256_unpackhi_epi8(r0, r1), _mm256_unpackhi_epi8(r2, ck),
                                   _mm256_unpackhi_epi8(r3, r4)};
            unroll<3>([&](auto m) ROK_INLINE {
                __m256i l = _mm256_setzero_si256(), h = _mm256_setzero_si256();
                unroll<3>([&](auto q) ROK_INLINE {
                    // Each product pair stays within signed 16 bits (at most
                    // 127 * 255 + 286); their sum wraps into the unsigned mid.
                    const __m256i w = _mm256_set1_epi16(std::int16_t((kG5W[m][q][1] << 8) | (kG5W[m][q][0] & 0xFF)));
                    if constexpr (q == 0) {
                        l = _mm256_maddubs_epi16(lo[q], w);
                        h = _mm256_maddubs_epi16(hi[q], w);
                    } else {
                        l = _mm256_add_epi16(l, _mm256_maddubs_epi16(lo[q], w));
                        h = _mm256_add_epi16(h, _mm256_maddubs_epi16(hi[q], w));
                    }
                });
                store(mid[m] + x, l);
                store(mid[m] + x + 16, h);
            });
        }
    };

    // 32 results from sample x on, in order.
    struct G5Row {
        const std::int16_t *a0, *a4, *b1, *b3, *c2;
        G5Row(std::int16_t* const* mids, int nc)
            : a0(mids[0]), a4(mids[0] + 4 * nc), b1(mids[1] + nc), b3(mids[1] + 3 * nc), c2(mids[2] + 2 * nc) {}
        // Sixteen results in order, in 16-bit lanes.
        [[gnu::always_inline]] __m256i sixteen(int x) const {
            const __m256i k = _mm256_set1_epi16(std::int16_t(kG5Mul)), one = _mm256_set1_epi16(1);
            const __m256i u = _mm256_add_epi16(load(a0 + x), load(a4 + x));  // at most 15300
            const __m256i v = _mm256_add_epi16(load(b1 + x), load(b3 + x));  // at most 65280
            const __m256i s = _mm256_add_epi16(u, v);
            const __m256i t = _mm256_add_epi16(s, load(c2 + x));
            // A wrapped unsigned sum is below either addend (by 65536 less the
            // other, never zero); subtracting with saturation leaves 0 where
            // it did not wrap.
            const __m256i carry1 = _mm256_min_epu16(_mm256_subs_epu16(u, s), one);
            const __m256i carry2 = _mm256_min_epu16(_mm256_subs_epu16(s, t), one);
            const __m256i high = _mm256_mullo_epi16(_mm256_add_epi16(carry1, carry2), k);
            return _mm256_srli_epi16(_mm256_add_epi16(high, _mm256_mulhi_epu16(t, k)), kG5Shift - 16);
        }
        [[gnu::always_inline]] __m256i operator()(int x) const {
            return _mm256_permute4x64_epi64(_mm256_packus_epi16(sixteen(x), sixteen(x + 16)), 0xD8);
        }
        Rok8u scalar(int x) const {
            auto at = [](const std::int16_t* p, int i) { return std::int64_t(std::uint16_t(p[i])); };
            const std::int64_t sum = at(a0, x) + at(a4, x) + at(b1, x) + at(b3, x) + at(c2, x) - kG5Round;
            return finish_int<Rok8u>(sum, kFinish, kWide);
        }
    };

    static void gauss5_column(const S* const* rows, int n, std::int16_t* const* mids) {
        const G5Column col(rows, mids);
        auto scalar = [&](int x) {
            const int a = rows[0][x] + rows[4][x], b = rows[1][x] + rows[3][x], c = rows[2][x];
            mids[0][x] = std::int16_t(2 * a + 7 * b + 12 * c);
            mids[1][x] = std::int16_t(7 * a + 31 * b + 52 * c);
            mids[2][x] = std::int16_t(std::uint16_t(12 * a + 52 * b + 127 * c + kG5Round));
        };
        blocks(n, 32, col, scalar);
    }

    static void gauss5_row(std::int16_t* const* mids, int nc, int n, Rok8u* out, bool stream) {
        const G5Row row(mids, nc);
        line_blocks(out, n, stream, [&](int x, bool s) ROK_INLINE { put(out + x, row(x), s); },
                    [&](int x) { out[x] = row.scalar(x); });
    }

    // ---- column stage ----

    static void column(const S* const* rows, int n, I* const* mids) {
        if constexpr (kGauss5Bytes) gauss5_column(rows, n, mids);
        else if constexpr (sizeof(S) == 1) column_bytes(rows, n, mids);
        else column_words(rows, n, mids);
    }

    static void column_bytes(const S* const* rows, int n, std::int16_t* const* mids) {
        constexpr bool kSigned = std::is_signed_v<S>;
        auto body = [&](int x) {
            __m256i lo[kPairs.pairs], hi[kPairs.pairs];
            unroll<kPairs.pairs>([&](auto p) ROK_INLINE {
                const __m256i a = load_bytes<kSigned>(rows[kPairs.a[p]] + x);
                __m256i b = _mm256_setzero_si256();
                if constexpr (kPairs.b[p] >= 0) b = load_bytes<kSigned>(rows[kPairs.b[p]] + x);
                lo[p] = _mm256_unpacklo_epi8(a, b);
                hi[p] = _mm256_unpackhi_epi8(a, b);
            });
            unroll<P.mids>([&](auto m) ROK_INLINE {
                __m256i l = _mm256_setzero_si256(), h = _mm256_setzero_si256();
                unroll<kPairs.pairs>([&](auto p) ROK_INLINE {
                    if constexpr (kPairs.wa[m][p] != 0 || kPairs.wb[m][p] != 0) {
                        const __m256i w =
                            _mm256_set1_epi16(std::int16_t((kPairs.wb[m][p] << 8) | (kPairs.wa[m][p] & 0xFF)));
                        l = _mm256_add_epi16(l, _mm256_maddubs_epi16(lo[p], w));
                        h = _mm256_add_epi16(h, _mm256_maddubs_epi16(hi[p], w));
                    }
                });
                if constexpr (kSigned) {
                    // Each biased sample counted 128 too many.
                    const __m256i bias = _mm256_set1_epi16(std::int16_t(128 * kPairs.weightSum[m]));
                    l = _mm256_sub_epi16(l, bias);
                    h = _mm256_sub_epi16(h, bias);
                }
                store(mids[m] + x, l);
                store(mids[m] + x + 16, h);
            });
        };
        auto scalar = [&](int x) {
            for (int m = 0; m < P.mids; ++m) {
                std::int32_t v = 0;
                for (int p = 0; p < kPairs.pairs; ++p) {
                    v += kPairs.wa[m][p] * std::int32_t(rows[kPairs.a[p]][x]);
                    if (kPairs.b[p] >= 0) v += kPairs.wb[m][p] * std::int32_t(rows[kPairs.b[p]][x]);
                }
                mids[m][x] = std::int16_t(v);  // the mid modulo 2^16, as the lanes hold it
            }
        };
        blocks(n, 32, body, scalar);
    }

    static void column_words(const S* const* rows, int n, std::int32_t* const* mids) {
        auto widen = [](const S* p) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            if constexpr (std::is_signed_v<S>) return _mm256_cvtepi16_epi32(v);
            else return _mm256_cvtepu16_epi32(v);
        };
        unroll<P.mids>([&](auto m) ROK_INLINE {
            constexpr const Flat& c = kColumns[m];
            auto body = [&](int x) {
                __m256i a = _mm256_setzero_si256(), b = _mm256_setzero_si256();
                unroll<c.n>([&](auto i) ROK_INLINE {
                    const __m256i w = _mm256_set1_epi32(c.w[i]);
                    a = _mm256_add_epi32(a, _mm256_mullo_epi32(widen(rows[c.src[i]] + x), w));
                    b = _mm256_add_epi32(b, _mm256_mullo_epi32(widen(rows[c.src[i]] + x + 8), w));
                });
                store(mids[m] + x, a);
                store(mids[m] + x + 8, b);
            };
            auto scalar = [&](int x) {
                std::int32_t v = 0;
                for (int i = 0; i < c.n; ++i) v += c.w[i] * std::int32_t(rows[c.src[i]][x]);
                mids[m][x] = v;
            };
            blocks(n, 16, body, scalar);
        });
    }
    static constexpr Flat kColumns[kMaxMids] = {flatten(P.column[0]), flatten(P.column[1]), flatten(P.column[2])};

    // A float sum: mid M of the column stage, or the row stage for M < 0.
    template <int M>
    static constexpr const Sum& sum_at() {
        if constexpr (M < 0) return P.row;
        else return P.column[M];
    }

    // ---- row stage ----

    static void row(I* const* mids, int nc, int n, D* out, bool stream) {
        if constexpr (kGauss5Bytes) {
            gauss5_row(mids, nc, n, out, stream);
        } else if constexpr (kFloat) {
            static_assert(!kFloat, "float data takes the kernels that make rows from the source (fused)");
        } else {
            const I* p[kRow.n];
            unroll<kRow.n>([&](auto i) ROK_INLINE { p[i] = mids[kRow.src[i]] + kRow.off[i] * nc; });
            auto scalar = [&](int x) {
                std::int64_t v = 0;
                for (int i = 0; i < kRow.n; ++i) {
                    std::int64_t m = p[i][x];
                    if constexpr (sizeof(S) == 1) m = kUnsignedMids ? std::int64_t(std::uint16_t(p[i][x])) : m;
                    v += kRow.w[i] * m;
                }
                out[x] = finish_int<D>(v, kFinish, kWide);
            };
            if constexpr (sizeof(S) == 1) row_halfwords(p, n, out, stream, scalar);
            else row_words(p, n, out, stream, scalar);
        }
    }

    // Sixteen sums of 16-bit mids in 16-bit lanes (the narrow plans).
    [[gnu::always_inline]] static __m256i sum16(const std::int16_t* const* p, int x) {
        __m256i a = _mm256_setzero_si256();
        unroll<kRow.n>([&](auto i) ROK_INLINE {
            const __m256i v = load(p[i] + x);
            if constexpr (kRow.w[i] == 1) a = _mm256_add_epi16(a, v);
            else if constexpr (kRow.w[i] == -1) a = _mm256_sub_epi16(a, v);
            else a = _mm256_add_epi16(a, _mm256_mullo_epi16(v, _mm256_set1_epi16(std::int16_t(kRow.w[i]))));
        });
        return a;
    }

    // The wide row stage adds two terms of equal weight in 16 bits wherever
    // their sum still fits the mids' 16-bit lanes, then widens.
    struct RowPairs {
        int n = 0;
        int a[kMaxFlat] = {}, b[kMaxFlat] = {}, w[kMaxFlat] = {};
    };
    static constexpr RowPairs kRowPairs = [] {
        RowPairs r;
        bool used[kMaxFlat] = {};
        const long long lo = kUnsignedMids ? 0 : -32768, hi = kUnsignedMids ? 65535 : 32767;
        for (int i = 0; i < kRow.n; ++i) {
            if (used[i]) continue;
            used[i] = true;
            const Range& ri = kRanges.mid[kRow.src[i]];
            int partner = -1;
            for (int j = i + 1; j < kRow.n && partner < 0; ++j) {
                const Range& rj = kRanges.mid[kRow.src[j]];
                if (!used[j] && kRow.w[j] == kRow.w[i] && ri.lo + rj.lo >= lo && ri.hi + rj.hi <= hi) partner = j;
            }
            if (partner >= 0) used[partner] = true;
            r.a[r.n] = i;
            r.b[r.n] = partner;
            r.w[r.n++] = kRow.w[i];
        }
        return r;
    }();

    // 16-bit values widened to 32 bits within each 128-bit lane: lo holds
    // samples 0-3 and 8-11, hi 4-7 and 12-15 (packing them back restores the
    // order).
    template <bool Unsigned>
    [[gnu::always_inline]] static void widen_in_lanes(__m256i v, __m256i& lo, __m256i& hi) {
        const __m256i ext = Unsigned ? _mm256_setzero_si256() : _mm256_srai_epi16(v, 15);
        lo = _mm256_unpacklo_epi16(v, ext);
        hi = _mm256_unpackhi_epi16(v, ext);
    }

    // Sixteen sums of 16-bit mids in 32-bit lanes, in the in-lane order.
    [[gnu::always_inline]] static void sum16_wide(const std::int16_t* const* p, int x, __m256i& a, __m256i& b) {
        a = b = _mm256_setzero_si256();
        unroll<kRowPairs.n>([&](auto g) ROK_INLINE {
            __m256i v = load(p[kRowPairs.a[g]] + x);
            if constexpr (kRowPairs.b[g] >= 0) v = _mm256_add_epi16(v, load(p[kRowPairs.b[g]] + x));
            __m256i l, h;
            widen_in_lanes<kUnsignedMids>(v, l, h);
            if constexpr (kRowPairs.w[g] == 1) {
                a = _mm256_add_epi32(a, l);
                b = _mm256_add_epi32(b, h);
            } else if constexpr (kRowPairs.w[g] == -1) {
                a = _mm256_sub_epi32(a, l);
                b = _mm256_sub_epi32(b, h);
            } else {
                const __m256i w = _mm256_set1_epi32(kRowPairs.w[g]);
                a = _mm256_add_epi32(a, _mm256_mullo_epi32(l, w));
                b = _mm256_add_epi32(b, _mm256_mullo_epi32(h, w));
            }
        });
    }

    // Sixteen finished results in the in-lane order of sum16_wide.
    [[gnu::always_inline]] static void finished16(const std::int16_t* const* p, int x, __m256i& a, __m256i& b) {
        if constexpr (kNarrow) {
            widen_in_lanes<false>(sum16(p, x), a, b);
        } else {
            sum16_wide(p, x, a, b);
        }
        a = finish32<kFinish, kWide, kPositive>(a);
        b = finish32<kFinish, kWide, kPositive>(b);
    }

    template <class Scalar>
    static void row_halfwords(const std::int16_t* const* p, int n, D* out, bool stream, Scalar&& scalar) {
        if constexpr (kNarrow && kFinish.kind != Finish::Nearest) {
            auto finish = [](__m256i v) {
                if constexpr (kFinish.kind == Finish::ShiftEven) return shift_even16<kFinish.shift>(v);
                else return v;
            };
            if constexpr (std::is_same_v<D, Rok8u>) {
                line_blocks(out, n, stream, [&](int x, bool s) {
                    const __m256i a = finish(sum16(p, x)), b = finish(sum16(p, x + 16));
                    put(out + x, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8), s);
                }, scalar);
            } else {
                line_blocks(out, n, stream, [&](int x, bool s) { put(out + x, finish(sum16(p, x)), s); }, scalar);
            }
        } else if constexpr (std::is_same_v<D, Rok8u>) {
            line_blocks(out, n, stream, [&](int x, bool s) {
                __m256i a0, b0, a1, b1;
                finished16(p, x, a0, b0);
                finished16(p, x + 16, a1, b1);
                const __m256i w = _mm256_packus_epi16(_mm256_packs_epi32(a0, b0), _mm256_packs_epi32(a1, b1));
                put(out + x, _mm256_permute4x64_epi64(w, 0xD8), s);
            }, scalar);
        } else {
            line_blocks(out, n, stream, [&](int x, bool s) {
                __m256i a, b;
                finished16(p, x, a, b);
                put(out + x, _mm256_packs_epi32(a, b), s);
            }, scalar);
        }
    }

    template <class Scalar>
    static void row_words(const std::int32_t* const* p, int n, D* out, bool stream, Scalar&& scalar) {
        auto sum8 = [&](int x) {
            __m256i a = _mm256_setzero_si256();
            unroll<kRow.n>([&](auto i) ROK_INLINE {
                const __m256i v = load(p[i] + x);
                if constexpr (kRow.w[i] == 1) a = _mm256_add_epi32(a, v);
                else if constexpr (kRow.w[i] == -1) a = _mm256_sub_epi32(a, v);
                else a = _mm256_add_epi32(a, _mm256_mullo_epi32(v, _mm256_set1_epi32(kRow.w[i])));
            });
            return finish32<kFinish, kWide, kPositive>(a);
        };
        out_blocks(out, n, 16, stream, [&](int x, bool s) { store16(out + x, sum8(x), sum8(x + 8), s); }, scalar);
    }

    // ---- float plans straight from the source rows ----
    //
    // Every mid the row stage reads is formed in registers at its column
    // offset from unaligned loads of the source rows, so no mid row is
    // written and read back, and two destination rows are made per pass
    // from the Size + 1 source rows they share. Every mid value is formed by
    // the plan's operations in the plan's order wherever it is formed, so
    // the results are those of the two stages bit for bit.

    // Sum M (a column mid, or the row stage for M < 0) of one vector;
    // at(src, off) is a term's input vector.
    template <int M, class At>
    [[gnu::always_inline]] static __m256 sum_vector(At&& at) {
        constexpr const Sum& s = sum_at<M>();
        __m256 acc;
        unroll<s.n>([&](auto g) ROK_INLINE {
            constexpr const Group& grp = s.g[g];
            __m256 part;
            unroll<grp.n>([&](auto t) ROK_INLINE {
                constexpr Term term = grp.t[t];
                const __m256 l = at(std::integral_constant<int, term.src>{}, std::integral_constant<int, term.off>{});
                if constexpr (t == 0) part = term.sign > 0 ? l : _mm256_xor_ps(l, _mm256_set1_ps(-0.0f));
                else part = term.sign > 0 ? _mm256_add_ps(part, l) : _mm256_sub_ps(part, l);
            });
            if constexpr (grp.w != 1.0) part = _mm256_mul_ps(_mm256_set1_ps(float(grp.w)), part);
            if constexpr (g == 0) acc = part;
            else acc = _mm256_add_ps(acc, part);
        });
        return acc;
    }

    [[gnu::always_inline]] static __m256 finish8(__m256 v) {
        if constexpr (kFinish.kind == Finish::Scale) v = _mm256_mul_ps(v, _mm256_set1_ps(float(kFinish.c)));
        else if constexpr (kFinish.kind == Finish::Divide) v = _mm256_div_ps(v, _mm256_set1_ps(float(kFinish.c)));
        return v;
    }

    // Eight finished results of the destination row whose neighbourhood
    // starts at source row r[0], from sample x on.
    [[gnu::always_inline]] static __m256 fused8(const float* const* r, std::ptrdiff_t x, std::ptrdiff_t nc) {
        return finish8(sum_vector<-1>([&](auto mid, auto off) ROK_INLINE {
            return sum_vector<decltype(mid)::value>([&](auto src, auto) ROK_INLINE {
                return _mm256_loadu_ps(r[decltype(src)::value] + x + decltype(off)::value * nc);
            });
        }));
    }

    // One-channel rows: each mid is formed once per block of 8 samples and
    // its values at the row stage's offsets are taken from two neighbouring
    // blocks by lane shifts, so a source sample is loaded once per pass and
    // each mid value summed once (the unaligned loads above form a mid
    // value again for every offset that reads it).
    struct MidBlocks {
        __m256 m[kMaxMids];
    };
    [[gnu::always_inline]] static MidBlocks mid_blocks(const float* const* r, std::ptrdiff_t x) {
        MidBlocks b;
        unroll<P.mids>([&](auto m) ROK_INLINE {
            b.m[m] = sum_vector<m>([&](auto src, auto) ROK_INLINE { return _mm256_loadu_ps(r[decltype(src)::value] + x); });
        });
        return b;
    }
    // Lanes K..K+7 of the sixteen in a then b.
    template <int K>
    [[gnu::always_inline]] static __m256 lanes_from(__m256 a, __m256 b) {
        if constexpr (K == 0) return a;
        else if constexpr (K == 8) return b;
        else {
            const __m256 middle = _mm256_permute2f128_ps(a, b, 0x21);  // lanes 4..11
            if constexpr (K == 4) return middle;
            else if constexpr (K < 4)
                return _mm256_castsi256_ps(_mm256_alignr_epi8(_mm256_castps_si256(middle), _mm256_castps_si256(a), 4 * K));
            else
                return _mm256_castsi256_ps(_mm256_alignr_epi8(_mm256_castps_si256(b), _mm256_castps_si256(middle), 4 * (K - 4)));
        }
    }
    [[gnu::always_inline]] static __m256 row_from(const MidBlocks& a, const MidBlocks& b) {
        return finish8(sum_vector<-1>([&](auto mid, auto off) ROK_INLINE {
            return lanes_from<decltype(off)::value>(a.m[decltype(mid)::value], b.m[decltype(mid)::value]);
        }));
    }

    static float fused1(const float* const* r, int x, int nc) {
        return finish_float(grouped(P.row,
                                    [&](const Term& t) {
                                        return grouped(P.column[t.src],
                                                       [&](const Term& c) { return r[c.src][x + t.off * nc]; });
                                    }),
                            kFinish);
    }

    // Two destination rows (rows[0..Size]) in blocks of 16 samples. When
    // streaming, the blocks from the first 64-byte boundary of out0 on fill
    // whole cache lines and bypass the cache (out1 too where it has the same
    // alignment); a block before that boundary and the last block (which may
    // overlap the others, recomputing the same values) store normally.
    static void fused(const float* const* rows, int pixels, int nc, float* out0, float* out1, bool stream) {
        constexpr int kStep = 16;
        const int n = pixels * nc;
        if (n < kStep) {
            for (int x = 0; x < n; ++x) {
                out0[x] = fused1(rows, x, nc);
                out1[x] = fused1(rows + 1, x, nc);
            }
            return;
        }
        // Local copies of the row pointers, and every result computed before
        // the first store: the two rows then share their loads (a store
        // through out0 could otherwise alter what a pointer in `rows` or a
        // source sample holds, as far as the compiler knows).
        const float* r[Size + 1];
        for (int j = 0; j <= Size; ++j) r[j] = rows[j];
        const std::uintptr_t at0 = reinterpret_cast<std::uintptr_t>(out0);
        const bool stream1 = (reinterpret_cast<std::uintptr_t>(out1) - at0) % 64 == 0;
        // Each pass reads two source rows that no earlier pass read, from
        // memory. Asking for the next pass's two (the rows below, one source
        // step apart) into the level-2 cache while this one computes hides
        // their arrival from its start (a 3840x2160 Sobel took about 0.75 of
        // the time asking 4 KiB ahead in its own new rows, 0.85 of that again
        // with this). Stores that stay in the cache first read their lines:
        // the next pass's destination lines are asked for the same way (a
        // 1920x1080 Sobel took 0.85 of the time; asking for them to write,
        // into level 1, took longer). One 64-byte line per row per 16
        // samples; a prefetch past the image is dropped, never faults.
        const std::uintptr_t below = reinterpret_cast<std::uintptr_t>(r[Size]),
                             step = reinterpret_cast<std::uintptr_t>(r[1]) - reinterpret_cast<std::uintptr_t>(r[0]);
        const std::uintptr_t outStep = reinterpret_cast<std::uintptr_t>(out1) - at0;
        auto ahead = [&](int x) ROK_INLINE {
            const std::uintptr_t at = below + step + sizeof(float) * std::uintptr_t(x);
            _mm_prefetch(reinterpret_cast<const char*>(at), _MM_HINT_T1);
            _mm_prefetch(reinterpret_cast<const char*>(at + step), _MM_HINT_T1);
            if (!stream) {
                const std::uintptr_t out = at0 + 2 * outStep + sizeof(float) * std::uintptr_t(x);
                _mm_prefetch(reinterpret_cast<const char*>(out), _MM_HINT_T1);
                _mm_prefetch(reinterpret_cast<const char*>(out + outStep), _MM_HINT_T1);
            }
        };
        auto body = [&](int x, bool s) ROK_INLINE {
            ahead(x);
            const __m256 a0 = fused8(r, x, nc), a1 = fused8(r, x + 8, nc);
            const __m256 b0 = fused8(r + 1, x, nc), b1 = fused8(r + 1, x + 8, nc);
            put(out1 + x, b0, s && stream1);
            put(out1 + x + 8, b1, s && stream1);
            put(out0 + x, a0, s);
            put(out0 + x + 8, a1, s);
        };
        int x = 0;
        const bool s = stream && at0 % sizeof(float) == 0;
        if (s) {
            x = int((64 - at0 % 64) % 64 / sizeof(float));
            if (x > 0) body(0, false);
        }
        if (nc == 1 && x + 24 <= n + Size - 1) {
            // Blocks x, x + 8 and x + 16 of each mid make the 16 results
            // from x; the last reads source samples up to x + 23.
            MidBlocks t0 = mid_blocks(r, x), u0 = mid_blocks(r + 1, x);
            for (; x + 24 <= n + Size - 1; x += kStep) {
                ahead(x);
                const MidBlocks t1 = mid_blocks(r, x + 8), t2 = mid_blocks(r, x + 16);
                const MidBlocks u1 = mid_blocks(r + 1, x + 8), u2 = mid_blocks(r + 1, x + 16);
                const __m256 a0 = row_from(t0, t1), a1 = row_from(t1, t2);
                put(out1 + x, row_from(u0, u1), s && stream1);
                put(out1 + x + 8, row_from(u1, u2), s && stream1);
                put(out0 + x, a0, s);
                put(out0 + x + 8, a1, s);
                t0 = t2;
                u0 = u2;
            }
        }
        for (; x + kStep <= n; x += kStep) body(x, s);
        if (x < n) body(n - kStep, false);
    }

    // Pixels per chunk of the 8-bit kernels: a multiple of 64, so that on
    // rows starting on a cache line every chunk does too.
    static constexpr int kChunk = 1024;

    static void strip(const S* const* rows, int pixels, int nc, void* scratch, int midStride, D* out, bool stream) {
        I* mids[kMaxMids];
        for (int m = 0; m < P.mids; ++m) mids[m] = static_cast<I*>(scratch) + std::ptrdiff_t(m) * midStride;
        if constexpr (sizeof(S) == 1) {
            // In chunks, so that the mids of a chunk are still in the level-1
            // cache when the row stage reads them (whole 4K rows of three
            // mids and five source rows are not); the chunks recompute the
            // size - 1 mid columns they share.
            const S* at[kMaxRows];
            for (int x = 0; x < pixels; x += kChunk) {
                const int w = pixels - x < kChunk ? pixels - x : kChunk;
                for (int j = 0; j < Size; ++j) at[j] = rows[j] + std::ptrdiff_t(x) * nc;
                column(at, (w + Size - 1) * nc, mids);
                row(mids, nc, w * nc, out + std::ptrdiff_t(x) * nc, stream);
            }
        } else {
            column(rows, (pixels + Size - 1) * nc, mids);
            row(mids, nc, pixels * nc, out, stream);
        }
    }
};

}  // namespace detail

template <Fixed F, int Size, class S, class D>
constexpr Strip<S, D> strip_of() {
    return &detail::Kernel<F, Size, S, D>::strip;
}

template <Fixed F, int Size>
constexpr Rows<Rok32f, Rok32f> fused_of() {
    return &detail::Kernel<F, Size, Rok32f, Rok32f>::fused;
}

// The filters that the 8u, 16s and 32f same-type members share.
template <class S, class D>
Strip<S, D> same_type(Fixed f, int size) {
    const bool five = size == 5;
    switch (f) {
        case Fixed::PrewittVert: return strip_of<Fixed::PrewittVert, 3, S, D>();
        case Fixed::PrewittHoriz: return strip_of<Fixed::PrewittHoriz, 3, S, D>();
        case Fixed::SobelVert: return strip_of<Fixed::SobelVert, 3, S, D>();
        case Fixed::SobelHoriz: return strip_of<Fixed::SobelHoriz, 3, S, D>();
        case Fixed::Laplace:
        case Fixed::Hipass:
            if (!five) return strip_of<Fixed::Laplace, 3, S, D>();  // the same mask at 3x3
            return f == Fixed::Laplace ? strip_of<Fixed::Laplace, 5, S, D>() : strip_of<Fixed::Hipass, 5, S, D>();
        case Fixed::Lowpass: return five ? strip_of<Fixed::Lowpass, 5, S, D>() : strip_of<Fixed::Lowpass, 3, S, D>();
        case Fixed::Gauss: return five ? strip_of<Fixed::Gauss, 5, S, D>() : strip_of<Fixed::Gauss, 3, S, D>();
        case Fixed::Sharpen: return strip_of<Fixed::Sharpen, 3, S, D>();
        default: return nullptr;
    }
}

// The derivative filters with a mask code, on one-channel data (8u16s,
// 8s16s and 32f).
template <class S, class D>
Strip<S, D> derivative(Fixed f, int size) {
    const bool five = size == 5;
    switch (f) {
        case Fixed::SobelVert: return five ? strip_of<Fixed::SobelVert, 5, S, D>() : strip_of<Fixed::SobelVert, 3, S, D>();
        case Fixed::SobelHoriz: return five ? strip_of<Fixed::SobelHoriz, 5, S, D>() : strip_of<Fixed::SobelHoriz, 3, S, D>();
        case Fixed::SobelVertSecond:
            return five ? strip_of<Fixed::SobelVertSecond, 5, S, D>() : strip_of<Fixed::SobelVertSecond, 3, S, D>();
        case Fixed::SobelHorizSecond:
            return five ? strip_of<Fixed::SobelHorizSecond, 5, S, D>() : strip_of<Fixed::SobelHorizSecond, 3, S, D>();
        case Fixed::SobelCross: return five ? strip_of<Fixed::SobelCross, 5, S, D>() : strip_of<Fixed::SobelCross, 3, S, D>();
        case Fixed::ScharrVert: return strip_of<Fixed::ScharrVert, 3, S, D>();
        case Fixed::ScharrHoriz: return strip_of<Fixed::ScharrHoriz, 3, S, D>();
        case Fixed::Laplace: return five ? strip_of<Fixed::Laplace, 5, S, D>() : strip_of<Fixed::Laplace, 3, S, D>();
        default: return nullptr;
    }
}

}  // namespace rok::kernels::fixed

#undef ROK_INLINE
