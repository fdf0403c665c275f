// 8x8 block cosine transforms: two passes of broadcast-and-FMA over whole
// rows (eight lanes are the eight columns), so no transpose is needed.
#include "kernels/transform/dct8x8.h"

#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace rok::kernels::dct {

const unsigned char kZigzagRaster[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

const unsigned char kZigzagNumber[64] = {
    0,  1,  5,  6,  14, 15, 27, 28, 2,  4,  7,  13, 16, 26, 29, 42, 3,  8,  12, 17, 25, 30,
    41, 43, 9,  11, 18, 24, 31, 40, 44, 53, 10, 19, 23, 32, 39, 45, 52, 54, 20, 22, 33, 38,
    46, 51, 55, 60, 21, 34, 37, 47, 50, 56, 59, 61, 35, 36, 48, 49, 57, 58, 62, 63};

namespace {

// sqrt(2) * cos(k * pi / 16) in 14 bits, k = 0 .. 8 (k = 0 is never used by
// the transform's non-DC rows; the DC row takes k = 4, which is 1.0).
constexpr int kFixedCos[9] = {23170, 22725, 21407, 19266, 16384, 12873, 8867, 4520, 0};

// sqrt(2) * cos(a * pi / 16) for any a, from the 14-bit table (sign folded).
int fixed_cos(int a) {
    a %= 32;
    if (a > 16) a = 32 - a;
    if (a <= 8) return kFixedCos[a];
    return -kFixedCos[16 - a];
}

struct Tables {
    alignas(32) float a[3][64];  // left factor, overall scale folded in (float kinds)
    alignas(32) float b[3][64];  // right factor
    // Fixed-point pairs: pair[f][i][p] holds M[i][2p] in its low and
    // M[i][2p+1] in its high 16 bits, M = K (forward) or K transposed.
    alignas(32) std::int32_t pair[2][8][4];
};

Tables make_tables() {
    Tables t{};
    float c32[64], cExact[64];
    std::int16_t k16[64];
    const float invSqrt2 = 0.70710677f;
    const double pi = 3.14159265358979323846;
    for (int u = 0; u < 8; ++u)
        for (int x = 0; x < 8; ++x) {
            const double cosine = std::cos((2 * x + 1) * u * pi / 16);
            // 32f: 0.5 * C(u) * cos with C(0) the float 0.70710677.
            c32[u * 8 + x] = float(0.5 * (u == 0 ? double(invSqrt2) : 1.0) * cosine);
            cExact[u * 8 + x] = float(0.5 * (u == 0 ? std::sqrt(0.5) : 1.0) * cosine);
            // 16s: sqrt(2) * C(u) * cos in 14 bits; the remaining 1/(2 sqrt(2))
            // per side is the 2^-3 of the final shifts.
            k16[u * 8 + x] = std::int16_t(u == 0 ? 16384 : fixed_cos((2 * x + 1) * u));
        }
    auto set = [&](Block8 k, const float* c, bool forward, float scale) {
        const int i = int(k);
        for (int r = 0; r < 8; ++r)
            for (int s = 0; s < 8; ++s) {
                const float crs = c[r * 8 + s], csr = c[s * 8 + r];
                t.a[i][r * 8 + s] = (forward ? crs : csr) * scale;
                t.b[i][r * 8 + s] = forward ? csr : crs;
            }
    };
    set(Block8::Fwd32f, c32, true, 1.0f);
    set(Block8::Inv32f, c32, false, 1.0f);
    set(Block8::InvExact, cExact, false, 1.0f);
    for (int f = 0; f < 2; ++f)
        for (int i = 0; i < 8; ++i)
            for (int p = 0; p < 4; ++p) {
                const int lo = f == 0 ? k16[i * 8 + 2 * p] : k16[(2 * p) * 8 + i];
                const int hi = f == 0 ? k16[i * 8 + 2 * p + 1] : k16[(2 * p + 1) * 8 + i];
                t.pair[f][i][p] = std::int32_t(std::uint32_t(std::uint16_t(lo)) | (std::uint32_t(std::uint16_t(hi)) << 16));
            }
    return t;
}

const Tables& tables() {
    static const Tables t = make_tables();
    return t;
}

// out row u = sum_i A[u][i] * (sum_k X[i][k] * B[k]). X rows at x + i * xStep
// bytes; the eight results stay in registers until every input is read.
inline void core(const float* x, std::ptrdiff_t xStep, __m256 out[8], Block8 kind) {
    const Tables& t = tables();
    const float* a = t.a[int(kind)];
    const float* b = t.b[int(kind)];
    __m256 bk[8], y[8];
    for (int k = 0; k < 8; ++k) bk[k] = _mm256_load_ps(b + 8 * k);
    for (int i = 0; i < 8; ++i) {
        const float* row = reinterpret_cast<const float*>(reinterpret_cast<const char*>(x) + i * xStep);
        __m256 acc = _mm256_mul_ps(_mm256_broadcast_ss(row), bk[0]);
        for (int k = 1; k < 8; ++k) acc = _mm256_fmadd_ps(_mm256_broadcast_ss(row + k), bk[k], acc);
        y[i] = acc;
    }
    for (int u = 0; u < 8; ++u) {
        __m256 acc = _mm256_mul_ps(_mm256_broadcast_ss(a + 8 * u), y[0]);
        for (int i = 1; i < 8; ++i) acc = _mm256_fmadd_ps(_mm256_broadcast_ss(a + 8 * u + i), y[i], acc);
        out[u] = acc;
    }
}

// Rounded to nearest (the default rounding mode) and saturated to 16 bits.
inline __m128i to_16s(__m256 v) {
    const __m256i i = _mm256_cvtps_epi32(v);
    return _mm_packs_epi32(_mm256_castsi256_si128(i), _mm256_extracti128_si256(i, 1));
}

inline void load_16s(const Rok16s* src, std::ptrdiff_t srcStep, float* x) {
    for (int i = 0; i < 8; ++i) {
        const __m128i r =
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(reinterpret_cast<const char*>(src) + i * srcStep));
        _mm256_store_ps(x + 8 * i, _mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(r)));
    }
}


// 8x8 transpose of 16-bit lanes.
inline void transpose_16s(__m128i r[8]) {
    __m128i a[8], b[8];
    for (int i = 0; i < 4; ++i) {
        a[2 * i] = _mm_unpacklo_epi16(r[2 * i], r[2 * i + 1]);
        a[2 * i + 1] = _mm_unpackhi_epi16(r[2 * i], r[2 * i + 1]);
    }
    for (int h = 0; h < 2; ++h) {
        b[4 * h + 0] = _mm_unpacklo_epi32(a[4 * h + 0], a[4 * h + 2]);
        b[4 * h + 1] = _mm_unpackhi_epi32(a[4 * h + 0], a[4 * h + 2]);
        b[4 * h + 2] = _mm_unpacklo_epi32(a[4 * h + 1], a[4 * h + 3]);
        b[4 * h + 3] = _mm_unpackhi_epi32(a[4 * h + 1], a[4 * h + 3]);
    }
    for (int i = 0; i < 4; ++i) {
        r[2 * i] = _mm_unpacklo_epi64(b[i], b[4 + i]);
        r[2 * i + 1] = _mm_unpackhi_epi64(b[i], b[4 + i]);
    }
}

// One fixed-point pass over eight vectors of eight lanes: out[i] = sat16(
// round(sum_p (in[2p] M[i][2p] + in[2p+1] M[i][2p+1]) >> 2, shift)), lane by
// lane. The pairs are interleaved once so that each pair sum is one madd.
inline void fixed_pass(const __m128i in[8], const std::int32_t (*pair)[4], int shift, __m128i out[8]) {
    __m256i v[4];
    for (int p = 0; p < 4; ++p)
        v[p] = _mm256_set_m128i(_mm_unpackhi_epi16(in[2 * p], in[2 * p + 1]),
                                _mm_unpacklo_epi16(in[2 * p], in[2 * p + 1]));
    const __m256i half = _mm256_set1_epi32(1 << (shift - 1));
    const __m128i sh = _mm_cvtsi32_si128(shift);
    __m256i sum[2];
    for (int i = 0; i < 8; i += 2) {
        for (int j = 0; j < 2; ++j) {
            __m256i acc = _mm256_srai_epi32(_mm256_madd_epi16(v[0], _mm256_set1_epi32(pair[i + j][0])), 2);
            for (int p = 1; p < 4; ++p)
                acc = _mm256_add_epi32(acc, _mm256_srai_epi32(_mm256_madd_epi16(v[p], _mm256_set1_epi32(pair[i + j][p])), 2));
            sum[j] = _mm256_sra_epi32(_mm256_add_epi32(acc, half), sh);
        }
        // packs works within 128-bit halves: [i 0-3, i+1 0-3 | i 4-7, i+1 4-7].
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(sum[0], sum[1]), 0xd8);
        out[i] = _mm256_castsi256_si128(packed);
        out[i + 1] = _mm256_extracti128_si256(packed, 1);
    }
}

// The 16s rule on eight rows of eight samples, in place: rows first (the
// rows transposed so that lanes run down the block), then the columns.
inline void fixed_block(__m128i r[8], bool forward) {
    const std::int32_t (*pair)[4] = tables().pair[forward ? 0 : 1];
    __m128i t[8];
    transpose_16s(r);
    fixed_pass(r, pair, 12, t);
    transpose_16s(t);
    fixed_pass(t, pair, 15, r);
}

inline void load_rows_16s(const Rok16s* src, std::ptrdiff_t srcStep, __m128i r[8]) {
    for (int i = 0; i < 8; ++i)
        r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(reinterpret_cast<const char*>(src) + i * srcStep));
}
inline void store_rows_16s(const __m128i r[8], Rok16s* dst, std::ptrdiff_t dstStep) {
    for (int i = 0; i < 8; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(reinterpret_cast<char*>(dst) + i * dstStep), r[i]);
}

}  // namespace

void block_32f(const Rok32f* src, std::ptrdiff_t srcStep, Rok32f* dst, std::ptrdiff_t dstStep, Block8 kind) {
    __m256 out[8];
    core(src, srcStep, out, kind);
    for (int u = 0; u < 8; ++u)
        _mm256_storeu_ps(reinterpret_cast<float*>(reinterpret_cast<char*>(dst) + u * dstStep), out[u]);
}

void block_16s(const Rok16s* src, std::ptrdiff_t srcStep, Rok16s* dst, std::ptrdiff_t dstStep, Block8 kind) {
    if (kind == Block8::Fwd16s || kind == Block8::Inv16s) {
        __m128i r[8];
        load_rows_16s(src, srcStep, r);
        fixed_block(r, kind == Block8::Fwd16s);
        store_rows_16s(r, dst, dstStep);
        return;
    }
    alignas(32) float x[64];
    load_16s(src, srcStep, x);
    __m256 out[8];
    core(x, 32, out, kind);
    for (int u = 0; u < 8; ++u)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(reinterpret_cast<char*>(dst) + u * dstStep), to_16s(out[u]));
}

void fwd_8u16s(const Rok8u* src, std::ptrdiff_t srcStep, Rok16s* dst, Rok16s addVal) {
    const __m128i add = _mm_set1_epi16(addVal);
    __m128i r[8];
    for (int i = 0; i < 8; ++i) {
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i * srcStep));
        r[i] = _mm_add_epi16(_mm_cvtepu8_epi16(b), add);  // 16-bit, wrapping
    }
    fixed_block(r, true);
    store_rows_16s(r, dst, 16);
}

void inv_16s8u(const Rok16s* src, Rok8u* dst, std::ptrdiff_t dstStep, Rok16s addVal, Rok8u lo, Rok8u hi) {
    __m128i r[8];
    load_rows_16s(src, 16, r);
    fixed_block(r, false);
    const __m128i add = _mm_set1_epi16(addVal);
    const bool plain = lo == 0 && hi == 255;
    const __m128i vlo = _mm_set1_epi16(lo), vhi = _mm_set1_epi16(hi);
    for (int u = 0; u < 8; ++u) {
        __m128i v = _mm_add_epi16(r[u], add);
        // [0, 255] is what unsigned saturation gives; other bounds clamp first.
        if (!plain) v = _mm_min_epi16(_mm_max_epi16(v, vlo), vhi);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + u * dstStep), _mm_packus_epi16(v, v));
    }
}

void inv_corner_16s(const Rok16s* src, Rok16s* dst, int n) {
    // Zero coefficients add nothing to any pair sum, so the corner alone
    // gives the full inverse's results.
    alignas(16) Rok16s x[64] = {};
    for (int v = 0; v < n; ++v)
        for (int u = 0; u < n; ++u) x[v * 8 + u] = src[v * 8 + u];
    __m128i r[8];
    load_rows_16s(x, 16, r);
    fixed_block(r, false);
    store_rows_16s(r, dst, 16);
}

void inv_reduced_16s(const Rok16s* src, Rok16s* dst, int n) {
    // Orthonormal n-point inverse: x(i) = sum_u s(u) c(u) cos((2i+1) u pi / 2n)
    // with s(0) = sqrt(1/n), s(u) = sqrt(2/n); the n/8 factor per block makes
    // a flat block keep its value.
    const double pi = 3.14159265358979323846;
    double basis[4][4];
    for (int i = 0; i < n; ++i)
        for (int u = 0; u < n; ++u)
            basis[i][u] = (u == 0 ? std::sqrt(1.0 / n) : std::sqrt(2.0 / n)) * std::cos((2 * i + 1) * u * pi / (2 * n));
    const double scale = double(n) / 8.0;
    double coef[4][4], rows[4][4];
    for (int v = 0; v < n; ++v)
        for (int u = 0; u < n; ++u) coef[v][u] = src[v * 8 + u] * scale;
    for (int v = 0; v < n; ++v)
        for (int i = 0; i < n; ++i) {
            double s = 0;
            for (int u = 0; u < n; ++u) s += basis[i][u] * coef[v][u];
            rows[v][i] = s;
        }
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            double s = 0;
            for (int v = 0; v < n; ++v) s += basis[j][v] * rows[v][i];
            const double r = std::nearbyint(s);
            dst[j * n + i] = Rok16s(r > 32767 ? 32767 : r < -32768 ? -32768 : r);
        }
}

}  // namespace rok::kernels::dct
