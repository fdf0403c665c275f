// One-channel 8u filters of 3x3 and 5x5 with small coefficients, the kernel's
// size known when compiled. Horizontally adjacent taps go in byte pairs as
// in filter_sum_bytes (one multiply-add per pair, sums in 16-bit lanes from
// the lowest reachable sum), but the sums stay in registers: several
// destination rows share each source load, and the finish turns the 16-bit
// sums straight into destination bytes. Each result equals filter_sum_bytes
// followed by filter_finish.
#pragma GCC optimize("no-tree-ter")

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "kernels/filter/filter_finish.h"
#include "kernels/filter/filter_sum.h"

namespace rok::kernels {

namespace {

inline const Rok8u* down(const Rok8u* p, std::ptrdiff_t bytes) { return p + bytes; }

inline __m256i load(const Rok8u* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

// The rule of filter_finish on 32-bit sums, eight lanes at a time, before
// saturation to 8 bits.
inline __m256i finish8(__m256i s, const IntRule& r) {
    switch (r.kind) {
        case IntFinish::ShiftEven: {
            const __m128i k = _mm_cvtsi32_si128(r.shift);
            const __m256i odd = _mm256_and_si256(_mm256_sra_epi32(s, k), _mm256_set1_epi32(1));
            const __m256i bias = _mm256_set1_epi32((1 << (r.shift - 1)) - 1);
            return _mm256_sra_epi32(_mm256_add_epi32(_mm256_add_epi32(s, bias), odd), k);
        }
        case IntFinish::Reciprocal: {
            const __m256 f = _mm256_mul_ps(_mm256_cvtepi32_ps(s), _mm256_set1_ps(r.reciprocal));
            return _mm256_cvtps_epi32(_mm256_min_ps(_mm256_max_ps(f, _mm256_setzero_ps()), _mm256_set1_ps(255.0f)));
        }
        default:  // Saturate
            return s;
    }
}

// Sixteen offset sums (unsigned 16-bit lanes, sum - lowest) finished into
// sixteen signed 16-bit results, in order.
inline __m256i finish16_wide(__m256i u, const BytesFinish& f) {
    const __m256i low = _mm256_set1_epi32(f.lowest);
    const __m256i a = finish8(_mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(u)), low), f.rule);
    const __m256i b = finish8(_mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(u, 1)), low), f.rule);
    return _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
}

// The fixed-point form: clamp, offset, multiply-high, shift, subtract.
inline __m256i finish16_fixed(__m256i u, const BytesFinish& f) {
    u = _mm256_min_epu16(u, _mm256_set1_epi16(std::int16_t(f.hi)));
    u = _mm256_add_epi16(u, _mm256_set1_epi16(std::int16_t(f.add)));
    u = _mm256_srl_epi16(_mm256_mulhi_epu16(u, _mm256_set1_epi16(std::int16_t(f.mul))), _mm_cvtsi32_si128(f.shift));
    return _mm256_sub_epi16(u, _mm256_set1_epi16(f.sub));
}

// Even outputs (x, x+2, ...) and odd ones (x+1, x+3, ...) as 16-bit results
// saturated into 32 bytes in order.
inline void put(Rok8u* d, __m256i even, __m256i odd) {
    const __m256i order = _mm256_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15,
                                           0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_shuffle_epi8(_mm256_packus_epi16(even, odd), order));
}

// Pair p of a kernel row starts at column 2p; an odd width ends with a pair
// at column KW - 2 whose first weight is zero.
template <int KW>
constexpr int pair_start(int p) {
    return 2 * p + 1 < KW ? 2 * p : KW - 2;
}

// R destination rows, 32 samples each at column x. Source row r serves
// kernel row r - o of destination row o.
template <int KW, int KH, int R, bool Fixed>
inline void block(const Rok8u* const* rows, const __m256i* w, int x, Rok8u* const* out, const BytesFinish& f) {
    constexpr int NP = (KW + 1) / 2;
    const __m256i low = _mm256_set1_epi16(std::int16_t(f.lowest));
    __m256i e[R], o[R];
#pragma GCC unroll 8
    for (int d = 0; d < R; ++d) e[d] = o[d] = _mm256_setzero_si256();
    // The rows that the next pass reads first are fetched one pass ahead.
#pragma GCC unroll 8
    for (int d = 0; d < R; ++d) _mm_prefetch(reinterpret_cast<const char*>(rows[R + KH - 1 + d] + x), _MM_HINT_T0);
#pragma GCC unroll 16
    for (int r = 0; r < R + KH - 1; ++r)
#pragma GCC unroll 8
        for (int p = 0; p < NP; ++p) {
            const Rok8u* at = rows[r] + x + pair_start<KW>(p);
            const __m256i a = load(at), b = load(at + 1);
#pragma GCC unroll 8
            for (int d = 0; d < R; ++d) {
                const int j = r - d;
                if (j < 0 || j >= KH) continue;
                e[d] = _mm256_add_epi16(e[d], _mm256_maddubs_epi16(a, w[j * NP + p]));
                o[d] = _mm256_add_epi16(o[d], _mm256_maddubs_epi16(b, w[j * NP + p]));
            }
        }
#pragma GCC unroll 8
    for (int d = 0; d < R; ++d) {
        const __m256i ue = _mm256_sub_epi16(e[d], low), uo = _mm256_sub_epi16(o[d], low);
        if constexpr (Fixed) put(out[d] + x, finish16_fixed(ue, f), finish16_fixed(uo, f));
        else put(out[d] + x, finish16_wide(ue, f), finish16_wide(uo, f));
    }
}

template <int KW, int KH, int R, bool Fixed>
inline void pass(const Rok8u* src, std::ptrdiff_t srcStep, const __m256i* w, int n, Rok8u* dst, std::ptrdiff_t dstStep,
                 const BytesFinish& f) {
    const Rok8u* rows[2 * R + KH - 1];
    for (int r = 0; r < 2 * R + KH - 1; ++r) rows[r] = down(src, r * srcStep);
    Rok8u* out[R];
    for (int d = 0; d < R; ++d) out[d] = dst + d * dstStep;
    int x = 0;
    for (; x + 32 <= n; x += 32) block<KW, KH, R, Fixed>(rows, w, x, out, f);
    if (x < n) block<KW, KH, R, Fixed>(rows, w, n - 32, out, f);  // the last outputs again, to the same values
}

template <int KW, int KH, int R, bool Fixed>
void rows_of(const Rok8u* src, std::ptrdiff_t srcStep, const std::int16_t* weights, int n, Rok8u* dst,
             std::ptrdiff_t dstStep, int rows, const BytesFinish& f) {
    constexpr int NP = (KW + 1) / 2;
    __m256i w[KH * NP];
    for (int t = 0; t < KH * NP; ++t) w[t] = _mm256_set1_epi16(weights[t]);
    int y = 0;
    for (; y + R <= rows; y += R)
        pass<KW, KH, R, Fixed>(down(src, y * srcStep), srcStep, w, n, dst + y * dstStep, dstStep, f);
    if constexpr (R > 1)
        for (; y < rows; ++y) pass<KW, KH, 1, Fixed>(down(src, y * srcStep), srcStep, w, n, dst + y * dstStep, dstStep, f);
}

template <int KW, int KH, int R>
void rows_any(const Rok8u* src, std::ptrdiff_t srcStep, const std::int16_t* weights, int n, Rok8u* dst,
              std::ptrdiff_t dstStep, int rows, const BytesFinish& f) {
    if (f.fixed) rows_of<KW, KH, R, true>(src, srcStep, weights, n, dst, dstStep, rows, f);
    else rows_of<KW, KH, R, false>(src, srcStep, weights, n, dst, dstStep, rows, f);
}

// The reciprocal rule on one sum: the single-precision product rounded
// (in the current rounding mode, as the vector conversion does) and held
// within 0..255.
int reciprocal_rule(int s, float reciprocal) {
    const float p = std::min(std::max(float(s) * reciprocal, 0.0f), 255.0f);
    return int(std::nearbyint(p));
}

// The fixed-point form on one offset sum, 16-bit lanes emulated.
int fixed_rule(unsigned u, const BytesFinish& f) {
    u = std::min(u, unsigned(f.hi));
    u = (u + f.add) & 0xFFFFu;
    u = ((u * f.mul) >> 16) >> f.shift;
    const int r = std::int16_t(std::uint16_t(u - std::uint16_t(f.sub)));
    return std::min(std::max(r, 0), 255);
}

// Whether the fixed-point form, saturated to 0..255, equals the reciprocal
// rule for every offset sum 0..span: sixteen sums a step, both rules as the
// vector lanes form them.
bool fixed_matches(const BytesFinish& f, int span) {
    const __m256i step = _mm256_set1_epi16(16);
    const __m256i low = _mm256_set1_epi32(f.lowest);
    __m256i u = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    __m256i bad = _mm256_setzero_si256();
    int v = 0;
    for (; v + 16 <= span + 1; v += 16, u = _mm256_add_epi16(u, step)) {
        const __m256i a = finish8(_mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(u)), low), f.rule);
        const __m256i b = finish8(_mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(u, 1)), low), f.rule);
        const __m256i want = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
        const __m256i got = finish16_fixed(u, f);  // saturated to bytes as the stores do
        bad = _mm256_or_si256(bad, _mm256_xor_si256(_mm256_packus_epi16(want, want), _mm256_packus_epi16(got, got)));
    }
    if (!_mm256_testz_si256(bad, bad)) return false;
    for (; v <= span; ++v)
        if (fixed_rule(unsigned(v), f) != reciprocal_rule(v + f.lowest, f.rule.reciprocal)) return false;
    return true;
}

}  // namespace

// Rows per pass, chosen by timing on one core: 3x3 forms two (its six
// weights and four sums stay in registers), 5x5 three.
BytePairRowsFn byte_pair_rows_kernel(int kw, int kh) {
    if (kw == 3 && kh == 3) return &rows_any<3, 3, 2>;
    if (kw == 5 && kh == 5) return &rows_any<5, 5, 3>;
    return nullptr;
}

namespace {

BytesFinish search_finish(const IntRule& rule, int lowest, int highest) {
    BytesFinish f;
    f.rule = rule;
    f.lowest = lowest;
    const int span = highest - lowest;
    if (rule.kind != IntFinish::Reciprocal || rule.divisor < 2 || span < 0 || span > 65535) return f;
    const float rc = rule.reciprocal;
    auto want = [&](int u) { return reciprocal_rule(u + lowest, rc); };
    // The rule does not fall as the sum grows, so every sum from the first
    // one giving 255 gives 255: the sums are held below that one, which
    // keeps the offset sums within 16 bits. Results below 0 saturate to 0
    // when stored, and the check compares saturated results.
    int hi = span;
    if (want(span) == 255) {
        int a = 0, b = span;
        while (a < b) {
            const int m = a + (b - a) / 2;
            if (want(m) == 255) b = m;
            else a = m + 1;
        }
        hi = a;
    }
    // Rounded to nearest: floor((s + h) / d) with h = (d - 1) / 2, that is
    // floor((u + add) / d) - sub, add = (lowest + h) mod d; the quotient
    // by a multiply-high and a shift, the multiplier rounded either way
    // (rounded down it needs the dividend one larger).
    const int d = rule.divisor, h = (d - 1) / 2;
    const long long base = (long long)lowest + h;
    const long long fl = base >= 0 ? base / d : -((-base + d - 1) / d);
    const int add0 = int(base - fl * d);
    // The widest multiplier that fits 16 bits is the most exact; where it is
    // rounded up and misses, rounded down it may still hold, with the next
    // shift too.
    int top = 15;
    while (top > 0 && ((1LL << (16 + top)) + d - 1) / d > 65535) --top;
    const int tries[3][2] = {{top, 1}, {top, 0}, {top + 1, 0}};
    for (const auto& t : tries) {
        const int k = t[0], up = t[1];
        const long long scaled = 1LL << (16 + k);
        const long long m = up ? (scaled + d - 1) / d : scaled / d;
        if (k > 15 || m < 1 || m > 65535) continue;
        const int add = add0 + (up ? 0 : 1);
        if ((long long)hi + add > 65535) continue;
        BytesFinish c = f;
        c.hi = std::uint16_t(hi);
        c.add = std::uint16_t(add);
        c.mul = std::uint16_t(m);
        c.shift = k;
        if (-fl < -32768 || -fl > 32767) continue;
        c.sub = std::int16_t(-fl);
        c.fixed = true;
        if (fixed_matches(c, span)) return c;
    }
    return f;
}

}  // namespace

// The check costs about as much as filtering a few hundred thousand pixels,
// so each thread keeps the answer of its last search: a caller filtering
// frame after frame with one kernel pays once. The answer depends on the
// rounding mode that the float rule runs in, which is part of the key.
BytesFinish byte_pair_finish(const IntRule& rule, int lowest, int highest) {
    struct Entry {
        bool valid = false;
        IntFinish kind{};
        int divisor = 0, lowest = 0, highest = 0;
        float reciprocal = 0.0f;
        unsigned csr = 0;
        BytesFinish finish;
    };
    static thread_local Entry last;
    const unsigned csr = _mm_getcsr() & 0x6000u;
    if (last.valid && last.kind == rule.kind && last.divisor == rule.divisor && last.lowest == lowest &&
        last.highest == highest && last.reciprocal == rule.reciprocal && last.csr == csr)
        return last.finish;
    const BytesFinish f = search_finish(rule, lowest, highest);
    last = Entry{true, rule.kind, rule.divisor, lowest, highest, rule.reciprocal, csr, f};
    return f;
}

}  // namespace rok::kernels
