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

// The 16-bit forms: bound, offset, then a multiply-high and a shift, or a
// shift with ties to even, then subtract.
template <Form16 F>
inline __m256i finish16_form(__m256i u, const BytesFinish& f) {
    const __m128i k = _mm_cvtsi32_si128(f.shift);
    u = _mm256_min_epu16(u, _mm256_set1_epi16(std::int16_t(f.hi)));
    if constexpr (F == Form16::Multiply) {
        u = _mm256_add_epi16(u, _mm256_set1_epi16(std::int16_t(f.add)));
        u = _mm256_srl_epi16(_mm256_mulhi_epu16(u, _mm256_set1_epi16(std::int16_t(f.mul))), k);
    } else {
        const __m256i odd = _mm256_and_si256(_mm256_xor_si256(_mm256_srl_epi16(u, k), _mm256_set1_epi16(std::int16_t(f.parity))),
                                             _mm256_set1_epi16(std::int16_t(f.odd)));
        u = _mm256_srl_epi16(_mm256_add_epi16(_mm256_add_epi16(u, _mm256_set1_epi16(std::int16_t(f.add))), odd), k);
    }
    return _mm256_sub_epi16(u, _mm256_set1_epi16(f.sub));
}

template <Form16 F>
inline __m256i finish16(__m256i u, const BytesFinish& f) {
    if constexpr (F == Form16::None) return finish16_wide(u, f);
    else return finish16_form<F>(u, f);
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
// kernel row r - d of destination row d.
template <int KW, int KH, int R, Form16 F>
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
                // Each sum is added to as its products come: left free, the
                // compiler forms every product first and spills them.
                asm("" : "+x"(e[d]), "+x"(o[d]));
            }
        }
#pragma GCC unroll 8
    for (int d = 0; d < R; ++d) {
        const __m256i ue = _mm256_sub_epi16(e[d], low), uo = _mm256_sub_epi16(o[d], low);
        put(out[d] + x, finish16<F>(ue, f), finish16<F>(uo, f));
    }
}

template <int KW, int KH, int R, Form16 F>
inline void pass(const Rok8u* src, std::ptrdiff_t srcStep, const __m256i* w, int n, Rok8u* dst, std::ptrdiff_t dstStep,
                 const BytesFinish& f) {
    const Rok8u* rows[2 * R + KH - 1];
    for (int r = 0; r < 2 * R + KH - 1; ++r) rows[r] = down(src, r * srcStep);
    Rok8u* out[R];
    for (int d = 0; d < R; ++d) out[d] = dst + d * dstStep;
    int x = 0;
    for (; x + 32 <= n; x += 32) block<KW, KH, R, F>(rows, w, x, out, f);
    if (x < n) block<KW, KH, R, F>(rows, w, n - 32, out, f);  // the last outputs again, to the same values
}

template <int KW, int KH, int R, Form16 F>
void rows_of(const Rok8u* src, std::ptrdiff_t srcStep, const std::int16_t* weights, int n, Rok8u* dst,
             std::ptrdiff_t dstStep, int rows, const BytesFinish& finish) {
    constexpr int NP = (KW + 1) / 2;
    // A copy of the finish that no store to the destination can reach, so
    // that its constants stay in registers.
    const BytesFinish f = finish;
    __m256i w[KH * NP];
    for (int t = 0; t < KH * NP; ++t) w[t] = _mm256_set1_epi16(weights[t]);
    int y = 0;
    for (; y + R <= rows; y += R)
        pass<KW, KH, R, F>(down(src, y * srcStep), srcStep, w, n, dst + y * dstStep, dstStep, f);
    if constexpr (R > 1)
        for (; y < rows; ++y) pass<KW, KH, 1, F>(down(src, y * srcStep), srcStep, w, n, dst + y * dstStep, dstStep, f);
}

template <int KW, int KH, int R>
void rows_any(const Rok8u* src, std::ptrdiff_t srcStep, const std::int16_t* weights, int n, Rok8u* dst,
              std::ptrdiff_t dstStep, int rows, const BytesFinish& f) {
    switch (f.form) {
        case Form16::Multiply: return rows_of<KW, KH, R, Form16::Multiply>(src, srcStep, weights, n, dst, dstStep, rows, f);
        case Form16::Shift: return rows_of<KW, KH, R, Form16::Shift>(src, srcStep, weights, n, dst, dstStep, rows, f);
        default: return rows_of<KW, KH, R, Form16::None>(src, srcStep, weights, n, dst, dstStep, rows, f);
    }
}

// Whether the 16-bit form equals the rule for every offset sum 0..span,
// both as the vector lanes form them and saturated to bytes as the stores
// do: sixteen sums a step, the last step's lanes past span held at span.
template <Form16 F>
bool form_matches(const BytesFinish& f, int span) {
    const IntFinish kind = f.rule.kind;
    if (kind != IntFinish::Saturate && kind != IntFinish::ShiftEven && kind != IntFinish::Reciprocal) {
        // The rounding-mode rules: filter_finish itself, 1024 sums at a time.
        alignas(32) std::int32_t sums[1024];
        Rok8u want[1024], got[1024 + 16];
        for (int v0 = 0; v0 <= span; v0 += 1024) {
            const int m = std::min(1024, span + 1 - v0);
            for (int i = 0; i < m; ++i) sums[i] = f.lowest + v0 + i;
            filter_finish(sums, m, f.rule, want);
            const __m256i last = _mm256_set1_epi16(std::int16_t(span));
            for (int i = 0; i < m; i += 16) {
                const __m256i first = _mm256_add_epi16(_mm256_set1_epi16(std::int16_t(v0 + i)),
                                                       _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
                const __m256i u = v0 + i + 15 <= span ? first : _mm256_min_epu16(first, last);
                const __m256i g = finish16_form<F>(u, f);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(got + i),
                                 _mm256_castsi256_si128(_mm256_permute4x64_epi64(_mm256_packus_epi16(g, g), 0xD8)));
            }
            if (!std::equal(want, want + m, got)) return false;
        }
        return true;
    }
    const __m256i step = _mm256_set1_epi16(16), last = _mm256_set1_epi16(std::int16_t(span));
    const __m256i low = _mm256_set1_epi32(f.lowest);
    __m256i first = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    __m256i bad = _mm256_setzero_si256();
    for (int v = 0; v <= span; v += 16, first = _mm256_add_epi16(first, step)) {
        const __m256i u = v + 15 <= span ? first : _mm256_min_epu16(first, last);
        const __m256i a = finish8(_mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(u)), low), f.rule);
        const __m256i b = finish8(_mm256_add_epi32(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(u, 1)), low), f.rule);
        const __m256i want = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
        const __m256i got = finish16_form<F>(u, f);
        bad = _mm256_or_si256(bad, _mm256_xor_si256(_mm256_packus_epi16(want, want), _mm256_packus_epi16(got, got)));
    }
    return _mm256_testz_si256(bad, bad);
}

// The rule on one sum.
int rule_of(int s, const IntRule& r) {
    Rok8u out;
    filter_finish(&s, 1, r, &out);
    return out;
}

// One row of any kernel shape, the pairs at runtime offsets: 32 outputs a
// step, the last step ending at n.
template <Form16 F>
void row_of(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs, int n, Rok8u* dst,
            const BytesFinish& finish) {
    const BytesFinish f = finish;
    const __m256i low = _mm256_set1_epi16(std::int16_t(f.lowest));
    auto block = [&](int x) {
        __m256i e = _mm256_setzero_si256(), o = _mm256_setzero_si256();
        for (int p = 0; p < pairs; ++p) {
            const Rok8u* at = base + offs[p] + x;
            const __m256i w = _mm256_set1_epi16(weights[p]);
            e = _mm256_add_epi16(e, _mm256_maddubs_epi16(load(at), w));
            o = _mm256_add_epi16(o, _mm256_maddubs_epi16(load(at + 1), w));
        }
        put(dst + x, finish16<F>(_mm256_sub_epi16(e, low), f), finish16<F>(_mm256_sub_epi16(o, low), f));
    };
    int x = 0;
    for (; x + 32 <= n; x += 32) block(x);
    if (x < n) block(n - 32);  // the last outputs again, to the same values
}

// Any two taps of any layout: the pair's samples interleaved byte by byte,
// so that each 16-bit lane holds one output's two samples. The low half of
// the interleave gives samples 0-7 and 16-23 of the block, the high half
// 8-15 and 24-31, which the final pack puts back in order.
template <Form16 F>
void any_of(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs, int full, int n,
            Rok8u* dst, const BytesFinish& finish) {
    const BytesFinish f = finish;
    const __m256i low = _mm256_set1_epi16(std::int16_t(f.lowest));
    auto block = [&](int x) {
        __m256i lo = _mm256_setzero_si256(), hi = _mm256_setzero_si256();
        for (int p = 0; p < pairs; ++p) {
            const __m256i a = load(base + offs[p] + x);
            const __m256i b = p < full ? load(base + offs[pairs + p] + x) : a;  // a lone tap: second weight 0
            const __m256i w = _mm256_set1_epi16(weights[p]);
            lo = _mm256_add_epi16(lo, _mm256_maddubs_epi16(_mm256_unpacklo_epi8(a, b), w));
            hi = _mm256_add_epi16(hi, _mm256_maddubs_epi16(_mm256_unpackhi_epi8(a, b), w));
        }
        const __m256i l = finish16<F>(_mm256_sub_epi16(lo, low), f), h = finish16<F>(_mm256_sub_epi16(hi, low), f);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + x), _mm256_packus_epi16(l, h));
    };
    int x = 0;
    for (; x + 32 <= n; x += 32) block(x);
    if (x < n) block(n - 32);  // the last outputs again, to the same values
}

}  // namespace

void byte_pair_any_row(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs, int full,
                       int n, Rok8u* dst, const BytesFinish& f) {
    switch (f.form) {
        case Form16::Multiply: return any_of<Form16::Multiply>(base, offs, weights, pairs, full, n, dst, f);
        case Form16::Shift: return any_of<Form16::Shift>(base, offs, weights, pairs, full, n, dst, f);
        default: return any_of<Form16::None>(base, offs, weights, pairs, full, n, dst, f);
    }
}

void byte_pair_row(const Rok8u* base, const std::ptrdiff_t* offs, const std::int16_t* weights, int pairs, int n,
                   Rok8u* dst, const BytesFinish& f) {
    switch (f.form) {
        case Form16::Multiply: return row_of<Form16::Multiply>(base, offs, weights, pairs, n, dst, f);
        case Form16::Shift: return row_of<Form16::Shift>(base, offs, weights, pairs, n, dst, f);
        default: return row_of<Form16::None>(base, offs, weights, pairs, n, dst, f);
    }
}

// Rows per pass, chosen by timing on one core (1 to 4 rows): 3x3 forms
// three, 5x5 four.
BytePairRowsFn byte_pair_rows_kernel(int kw, int kh) {
    if (kw == 3 && kh == 3) return &rows_any<3, 3, 3>;
    if (kw == 5 && kh == 5) return &rows_any<5, 5, 4>;
    return nullptr;
}

namespace {

BytesFinish search_finish(const IntRule& rule, int lowest, int highest) {
    BytesFinish f;
    f.rule = rule;
    f.lowest = lowest;
    const int span = highest - lowest;
    if (span < 0 || span > 65535) return f;
    // Every rule here does not fall as the sum grows, so every sum from the
    // first one giving 255 gives 255: the sums are held below that one,
    // which keeps the offset sums within 16 bits. Results below 0 saturate
    // to 0 when stored.
    int hi = span;
    if (rule_of(highest, rule) == 255) {
        int a = 0, b = span;
        while (a < b) {
            const int m = a + (b - a) / 2;
            if (rule_of(m + lowest, rule) == 255) b = m;
            else a = m + 1;
        }
        hi = a;
    }
    f.hi = std::uint16_t(hi);
    auto floor_div = [](long long a, long long d) { return a >= 0 ? a / d : -((-a + d - 1) / d); };

    const IntFinish kind = rule.kind;
    const bool shifts = kind == IntFinish::Saturate || kind == IntFinish::ShiftEven || kind == IntFinish::TruncShift ||
                        kind == IntFinish::HalfAwayShift;
    if (shifts) {
        // s >> k with ties to even is (s + 2^(k-1) - 1 + ((s >> k) & 1)) >> k,
        // with ties away (s + 2^(k-1)) >> k, toward zero s >> k (negative
        // sums give 0 after saturation either way). With lowest a multiple
        // of 2^k, s >> k is (u >> k) + (lowest >> k): the parity of the
        // second term flips that of the first, and it is subtracted at the
        // end. The saturating rule is the case k = 0.
        const int k = kind == IntFinish::Saturate ? 0 : rule.shift;
        if (k > 15 || lowest % (1 << k) != 0) return f;
        const long long q = floor_div(lowest, 1LL << k);
        const int half = k ? 1 << (k - 1) : 0;
        BytesFinish c = f;
        c.form = Form16::Shift;
        c.shift = k;
        c.add = std::uint16_t(kind == IntFinish::ShiftEven ? half - 1 : kind == IntFinish::HalfAwayShift ? half : 0);
        c.odd = std::uint16_t(kind == IntFinish::ShiftEven ? 1 : 0);
        c.parity = std::uint16_t(q & 1);
        c.sub = std::int16_t(-q);
        if (-q < -32768 || -q > 32767 || (long long)hi + c.add + c.odd > 65535) return f;
        return form_matches<Form16::Shift>(c, span) ? c : f;
    }
    if (rule.divisor < 2) return f;
    // Rounded to nearest: floor((s + h) / d) with h = (d - 1) / 2 (ties
    // away: h = d / 2; toward zero, where only sums of 0 and more matter
    // after saturation: h = 0), that is floor((u + add) / d) - sub,
    // add = (lowest + h) mod d; the quotient by a multiply-high and a shift,
    // the multiplier rounded either way (rounded down it needs the dividend
    // one larger). Ties to even with an even divisor round differently from
    // every such form: the check turns them away.
    const int d = rule.divisor;
    const int h = kind == IntFinish::TruncDivide ? 0 : kind == IntFinish::HalfAwayDivide ? d / 2 : (d - 1) / 2;
    const long long base = (long long)lowest + h;
    const long long fl = floor_div(base, d);
    const int add0 = int(base - fl * d);
    if (-fl < -32768 || -fl > 32767) return f;
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
        const int add = add0 + (up ? 0 : 1);
        if (k > 15 || m < 1 || m > 65535 || (long long)hi + add > 65535) continue;
        BytesFinish c = f;
        c.form = Form16::Multiply;
        c.add = std::uint16_t(add);
        c.mul = std::uint16_t(m);
        c.shift = k;
        c.sub = std::int16_t(-fl);
        if (form_matches<Form16::Multiply>(c, span)) return c;
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
