// The float stages must equal the plain left-to-right evaluation lane for
// lane, so no multiply and add may be fused.
#pragma GCC optimize("fp-contract=off")

#include "kernels/filter/separable.h"

#include <immintrin.h>

#include <cmath>
#include <type_traits>

#include "kernels/rules.h"

namespace rok::kernels::sep {

namespace {

// ---- scalar rules: the readable statement of every lane ----------------

// Nearest integer, ties to even, whatever the rounding control says.
double nearest_even(double p) {
    double r = std::floor(p);
    const double d = p - r;
    if (d > 0.5 || (d == 0.5 && std::fmod(r, 2.0) != 0.0)) r += 1.0;
    return r;
}

template <class D>
D finish_one(std::int64_t v, const FinishRule& f) {
    switch (f.kind) {
        case Finish::ShiftEven:
            return saturate<D>(shift_round_even(v, f.shift));
        case Finish::Nearest: {
            const double p = f.wide ? double(v) * f.c : double(float(v) * float(f.c));
            return saturate<D>(std::int64_t(nearest_even(p)));
        }
        default:
            return saturate<D>(v);
    }
}

float finish_float(float v, const FinishRule& f) {
    if (f.kind == Finish::Scale) return v * float(f.c);
    if (f.kind == Finish::Divide) return v / float(f.c);
    return v;
}

// One weighted sum of float inputs at(src, off), groups and terms in order.
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

// ---- vector helpers ------------------------------------------------------

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// 32 bytes with the 8-byte quarters ordered 0 2 1 3, so that the in-lane
// byte interleave yields samples 0..15 and 16..31 in order.
inline __m256i load_bytes(const Rok8u* p, __m256i flip) {
    return _mm256_permute4x64_epi64(_mm256_xor_si256(load(p), flip), 0xD8);
}

// Eight 32-bit values rounded as the Nearest rule says.
inline __m256i nearest8(__m256i v, const FinishRule& f) {
    constexpr int kNearest = _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC;
    if (!f.wide) {
        const __m256 p = _mm256_mul_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(float(f.c)));
        return _mm256_cvttps_epi32(_mm256_round_ps(p, kNearest));
    }
    const __m256d c = _mm256_set1_pd(f.c);
    const __m256d lo = _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(v)), c);
    const __m256d hi = _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(v, 1)), c);
    const __m128i a = _mm256_cvttpd_epi32(_mm256_round_pd(lo, kNearest));
    const __m128i b = _mm256_cvttpd_epi32(_mm256_round_pd(hi, kNearest));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
}

// 32-bit values / 2^shift with ties to even (arithmetic shift).
inline __m256i shift_even32(__m256i v, int shift) {
    const __m128i k = _mm_cvtsi32_si128(shift);
    const __m256i odd = _mm256_and_si256(_mm256_sra_epi32(v, k), _mm256_set1_epi32(1));
    const __m256i bias = _mm256_set1_epi32((1 << (shift - 1)) - 1);
    return _mm256_sra_epi32(_mm256_add_epi32(_mm256_add_epi32(v, bias), odd), k);
}

inline __m256i finish32(__m256i v, const FinishRule& f) {
    if (f.kind == Finish::ShiftEven) return shift_even32(v, f.shift);
    if (f.kind == Finish::Nearest) return nearest8(v, f);
    return v;
}

// Sixteen 32-bit results (two vectors in sample order) saturated and stored.
inline void store16(Rok8u* d, __m256i a, __m256i b) {
    const __m256i w = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d),
                     _mm_packus_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1)));
}
inline void store16(Rok16s* d, __m256i a, __m256i b) {
    store(d, _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8));
}
inline void store16(Rok16u* d, __m256i a, __m256i b) {
    store(d, _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8));
}

// Runs body(x) over vector blocks of `step` samples; a short last block is
// run again ending at n (its samples are recomputed to the same values), and
// rows shorter than one block go to scalar(x) sample by sample.
template <class Body, class Scalar>
void blocks(int n, int step, Body&& body, Scalar&& scalar) {
    if (n < step) {
        for (int x = 0; x < n; ++x) scalar(x);
        return;
    }
    int x = 0;
    for (; x + step <= n; x += step) body(x);
    if (x < n) body(n - step);
}

// kVec vectors of one float group at sample x: w * (+-t0 +- t1 ...), where
// at(term) points at the term's input for sample 0 of the block.
constexpr int kVec = 4;
template <class At>
inline void group_vectors(const Group& grp, At&& at, __m256* part) {
    const float* r0 = at(grp.t[0]);
    for (int v = 0; v < kVec; ++v) {
        const __m256 t = _mm256_loadu_ps(r0 + 8 * v);
        part[v] = grp.t[0].sign > 0 ? t : _mm256_xor_ps(t, _mm256_set1_ps(-0.0f));
    }
    for (int t = 1; t < grp.n; ++t) {
        const float* r = at(grp.t[t]);
        for (int v = 0; v < kVec; ++v) {
            const __m256 l = _mm256_loadu_ps(r + 8 * v);
            part[v] = grp.t[t].sign > 0 ? _mm256_add_ps(part[v], l) : _mm256_sub_ps(part[v], l);
        }
    }
    if (grp.w != 1.0) {
        const __m256 w = _mm256_set1_ps(float(grp.w));
        for (int v = 0; v < kVec; ++v) part[v] = _mm256_mul_ps(w, part[v]);
    }
}

// The groups of a float sum added in order.
template <class At>
inline void sum_vectors(const Sum& s, At&& at, __m256* acc) {
    group_vectors(s.g[0], at, acc);
    for (int g = 1; g < s.n; ++g) {
        __m256 part[kVec];
        group_vectors(s.g[g], at, part);
        for (int v = 0; v < kVec; ++v) acc[v] = _mm256_add_ps(acc[v], part[v]);
    }
}

// ---- column stage ----------------------------------------------------------

void column_bytes_impl(const Rok8u* const* rows, bool signedSource, const BytePairs& plan, int mids, int n,
                       std::int16_t* const* out) {
    const __m256i flip = _mm256_set1_epi8(signedSource ? char(0x80) : 0);
    __m256i w[kMaxMids][kMaxRows];
    for (int m = 0; m < mids; ++m)
        for (int p = 0; p < plan.pairs; ++p) w[m][p] = _mm256_set1_epi16(plan.weights[m][p]);
    auto body = [&](int x) {
        __m256i lo[kMaxRows], hi[kMaxRows];
        for (int p = 0; p < plan.pairs; ++p) {
            const __m256i a = load_bytes(rows[plan.a[p]] + x, flip);
            const __m256i b = plan.b[p] < 0 ? _mm256_setzero_si256() : load_bytes(rows[plan.b[p]] + x, flip);
            lo[p] = _mm256_unpacklo_epi8(a, b);
            hi[p] = _mm256_unpackhi_epi8(a, b);
        }
        for (int m = 0; m < mids; ++m) {
            __m256i l = _mm256_setzero_si256(), h = _mm256_setzero_si256();
            for (int p = 0; p < plan.pairs; ++p) {
                l = _mm256_add_epi16(l, _mm256_maddubs_epi16(lo[p], w[m][p]));
                h = _mm256_add_epi16(h, _mm256_maddubs_epi16(hi[p], w[m][p]));
            }
            if (signedSource) {
                const __m256i bias = _mm256_set1_epi16(plan.bias[m]);
                l = _mm256_sub_epi16(l, bias);
                h = _mm256_sub_epi16(h, bias);
            }
            store(out[m] + x, l);
            store(out[m] + x + 16, h);
        }
    };
    auto scalar = [&](int x) {
        for (int m = 0; m < mids; ++m) {
            std::int32_t v = 0;
            for (int p = 0; p < plan.pairs; ++p) {
                const int wa = std::int8_t(plan.weights[m][p] & 0xFF), wb = std::int8_t(plan.weights[m][p] >> 8);
                auto sample = [&](int r) { return signedSource ? std::int32_t(std::int8_t(rows[r][x])) : rows[r][x]; };
                v += wa * sample(plan.a[p]);
                if (plan.b[p] >= 0) v += wb * sample(plan.b[p]);
            }
            out[m][x] = std::int16_t(v);
        }
    };
    blocks(n, 32, body, scalar);
}

template <class S>
inline __m256i widen8(const S* p) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    if constexpr (std::is_same_v<S, Rok16s>) return _mm256_cvtepi16_epi32(v);
    else return _mm256_cvtepu16_epi32(v);
}

template <class S>
void column_words(const S* const* rows, const Weights* sums, int mids, int n, std::int32_t* const* out) {
    for (int m = 0; m < mids; ++m) {
        const Weights& s = sums[m];
        auto body = [&](int x) {
            __m256i a = _mm256_setzero_si256(), b = _mm256_setzero_si256();
            for (int i = 0; i < s.n; ++i) {
                const __m256i w = _mm256_set1_epi32(s.w[i]);
                a = _mm256_add_epi32(a, _mm256_mullo_epi32(widen8(rows[s.src[i]] + x), w));
                b = _mm256_add_epi32(b, _mm256_mullo_epi32(widen8(rows[s.src[i]] + x + 8), w));
            }
            store(out[m] + x, a);
            store(out[m] + x + 8, b);
        };
        auto scalar = [&](int x) {
            std::int32_t v = 0;
            for (int i = 0; i < s.n; ++i) v += s.w[i] * std::int32_t(rows[s.src[i]][x]);
            out[m][x] = v;
        };
        blocks(n, 16, body, scalar);
    }
}

// Four vectors of float sums at once: the groups' adds form dependent chains.
void column_floats(const Rok32f* const* rows, const Sum* sums, int mids, int n, float* const* out) {
    for (int m = 0; m < mids; ++m) {
        const Sum& s = sums[m];
        auto body = [&](int x) {
            __m256 acc[kVec];
            sum_vectors(s, [&](const Term& t) { return rows[t.src] + x; }, acc);
            for (int v = 0; v < kVec; ++v) _mm256_storeu_ps(out[m] + x + 8 * v, acc[v]);
        };
        auto scalar = [&](int x) { out[m][x] = grouped(s, [&](const Term& t) { return rows[t.src][x]; }); };
        blocks(n, 8 * kVec, body, scalar);
    }
}

// ---- row stage -----------------------------------------------------------------

// 16 sums of 16-bit mids into 32-bit lanes (two vectors in sample order).
inline void sum16_wide(const std::int16_t* const* mids, bool unsignedMids, const Weights& s, int x, __m256i& a,
                       __m256i& b) {
    a = b = _mm256_setzero_si256();
    for (int i = 0; i < s.n; ++i) {
        const __m256i v = load(mids[s.src[i]] + x + s.off[i]);
        const __m256i w = _mm256_set1_epi32(s.w[i]);
        __m256i l, h;
        if (unsignedMids) {
            l = _mm256_cvtepu16_epi32(_mm256_castsi256_si128(v));
            h = _mm256_cvtepu16_epi32(_mm256_extracti128_si256(v, 1));
        } else {
            l = _mm256_cvtepi16_epi32(_mm256_castsi256_si128(v));
            h = _mm256_cvtepi16_epi32(_mm256_extracti128_si256(v, 1));
        }
        a = _mm256_add_epi32(a, _mm256_mullo_epi32(l, w));
        b = _mm256_add_epi32(b, _mm256_mullo_epi32(h, w));
    }
}

inline __m256i sum16_narrow(const std::int16_t* const* mids, const Weights& s, int x) {
    __m256i a = _mm256_setzero_si256();
    for (int i = 0; i < s.n; ++i) {
        const __m256i v = load(mids[s.src[i]] + x + s.off[i]);
        a = s.w[i] == 1    ? _mm256_add_epi16(a, v)
            : s.w[i] == -1 ? _mm256_sub_epi16(a, v)
                           : _mm256_add_epi16(a, _mm256_mullo_epi16(v, _mm256_set1_epi16(std::int16_t(s.w[i]))));
    }
    return a;
}

// 16-bit values / 2^shift with ties to even; the bias fits by the narrow rule.
inline __m256i shift_even16(__m256i v, int shift) {
    const __m128i k = _mm_cvtsi32_si128(shift);
    const __m256i odd = _mm256_and_si256(_mm256_sra_epi16(v, k), _mm256_set1_epi16(1));
    const __m256i bias = _mm256_set1_epi16(std::int16_t((1 << (shift - 1)) - 1));
    return _mm256_sra_epi16(_mm256_add_epi16(_mm256_add_epi16(v, bias), odd), k);
}

template <class D>
std::int64_t scalar_sum16(const std::int16_t* const* mids, bool unsignedMids, const Weights& s, int x) {
    std::int64_t v = 0;
    for (int i = 0; i < s.n; ++i) {
        const std::int16_t m = mids[s.src[i]][x + s.off[i]];
        v += std::int64_t(s.w[i]) * (unsignedMids ? std::int64_t(std::uint16_t(m)) : std::int64_t(m));
    }
    return v;
}

template <class D>
void rows16(const std::int16_t* const* mids, bool unsignedMids, bool narrow, const Weights& s, const FinishRule& f,
            int n, D* dst) {
    auto scalar = [&](int x) { dst[x] = finish_one<D>(scalar_sum16<D>(mids, unsignedMids, s, x), f); };
    if (narrow && f.kind != Finish::Nearest) {
        auto finish = [&](__m256i v) { return f.kind == Finish::ShiftEven ? shift_even16(v, f.shift) : v; };
        if constexpr (std::is_same_v<D, Rok8u>) {
            blocks(n, 32, [&](int x) {
                const __m256i a = finish(sum16_narrow(mids, s, x)), b = finish(sum16_narrow(mids, s, x + 16));
                store(dst + x, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
            }, scalar);
        } else {
            blocks(n, 16, [&](int x) { store(dst + x, finish(sum16_narrow(mids, s, x))); }, scalar);
        }
        return;
    }
    blocks(n, 16, [&](int x) {
        __m256i a, b;
        if (narrow) {
            const __m256i v = sum16_narrow(mids, s, x);
            a = _mm256_cvtepi16_epi32(_mm256_castsi256_si128(v));
            b = _mm256_cvtepi16_epi32(_mm256_extracti128_si256(v, 1));
        } else {
            sum16_wide(mids, unsignedMids, s, x, a, b);
        }
        store16(dst + x, finish32(a, f), finish32(b, f));
    }, scalar);
}

template <class D>
void rows32(const std::int32_t* const* mids, const Weights& s, const FinishRule& f, int n, D* dst) {
    auto sum8 = [&](int x) {
        __m256i a = _mm256_setzero_si256();
        for (int i = 0; i < s.n; ++i)
            a = _mm256_add_epi32(a, _mm256_mullo_epi32(load(mids[s.src[i]] + x + s.off[i]), _mm256_set1_epi32(s.w[i])));
        return a;
    };
    blocks(n, 16, [&](int x) { store16(dst + x, finish32(sum8(x), f), finish32(sum8(x + 8), f)); },
           [&](int x) {
               std::int64_t v = 0;
               for (int i = 0; i < s.n; ++i) v += std::int64_t(s.w[i]) * mids[s.src[i]][x + s.off[i]];
               dst[x] = finish_one<D>(v, f);
           });
}

void rows_float(const float* const* mids, const Sum& s, int nc, const FinishRule& f, int n, Rok32f* dst) {
    auto body = [&](int x) {
        __m256 acc[kVec];
        sum_vectors(s, [&](const Term& t) { return mids[t.src] + x + t.off * nc; }, acc);
        const __m256 c = _mm256_set1_ps(float(f.c));
        for (int v = 0; v < kVec; ++v) {
            __m256 r = acc[v];
            if (f.kind == Finish::Scale) r = _mm256_mul_ps(r, c);
            else if (f.kind == Finish::Divide) r = _mm256_div_ps(r, c);
            _mm256_storeu_ps(dst + x + 8 * v, r);
        }
    };
    auto scalar = [&](int x) {
        dst[x] = finish_float(grouped(s, [&](const Term& t) { return mids[t.src][x + t.off * nc]; }), f);
    };
    blocks(n, 8 * kVec, body, scalar);
}

}  // namespace

void column_bytes(const Rok8u* const* rows, bool signedSource, const BytePairs& plan, int mids, int n,
                  std::int16_t* const* out) {
    column_bytes_impl(rows, signedSource, plan, mids, n, out);
}
void column_sums(const Rok16s* const* r, const Weights* s, int m, int n, std::int32_t* const* o) { column_words(r, s, m, n, o); }
void column_sums(const Rok16u* const* r, const Weights* s, int m, int n, std::int32_t* const* o) { column_words(r, s, m, n, o); }
void column_sums(const Rok32f* const* r, const Sum* s, int m, int n, float* const* o) { column_floats(r, s, m, n, o); }

void row_sums(const std::int16_t* const* m, bool u, bool narrow, const Weights& s, const FinishRule& f, int n, Rok8u* d) {
    rows16(m, u, narrow, s, f, n, d);
}
void row_sums(const std::int16_t* const* m, bool u, bool narrow, const Weights& s, const FinishRule& f, int n, Rok16s* d) {
    rows16(m, u, narrow, s, f, n, d);
}
void row_sums(const std::int32_t* const* m, const Weights& s, const FinishRule& f, int n, Rok16s* d) { rows32(m, s, f, n, d); }
void row_sums(const std::int32_t* const* m, const Weights& s, const FinishRule& f, int n, Rok16u* d) { rows32(m, s, f, n, d); }
void row_sums(const float* const* m, const Sum& s, int nc, const FinishRule& f, int n, Rok32f* d) {
    rows_float(m, s, nc, f, n, d);
}

}  // namespace rok::kernels::sep
