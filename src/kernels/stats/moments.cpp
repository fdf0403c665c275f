// Raw moments in one pass. Integer samples: each row is cut into chunks of
// blocks (32 bytes or 8 words); a block yields B_i = sum over its pixels j of
// j^i I_j (i = 0..3) in 32-bit lanes, and running sums of running sums of
// the B_i over the chunk's blocks give, with additions only, the sums of
// B_i times powers of the block number. Those turn exactly into the chunk's
// sums of x^m I, and a binomial shift places the chunk within the row.
// Float samples: fused products in double, eight partials per power.
#include "kernels/stats/moments.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace rok::kernels {

namespace {

using i128 = __int128;

template <class T>
inline const T* row_at(const T* p, int step, int y) {
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(p) + std::ptrdiff_t(step) * y);
}

inline std::uint64_t lane_sum(__m256i v) {  // eight unsigned 32-bit lanes
    const __m256i wide = _mm256_add_epi64(_mm256_cvtepu32_epi64(_mm256_castsi256_si128(v)),
                                          _mm256_cvtepu32_epi64(_mm256_extracti128_si256(v, 1)));
    const __m128i s = _mm_add_epi64(_mm256_castsi256_si128(wide), _mm256_extracti128_si256(wide, 1));
    return std::uint64_t(_mm_cvtsi128_si64(s)) + std::uint64_t(_mm_extract_epi64(s, 1));
}

// 32 bytes per block: j^i I_j for j = 0..31, a 32-bit lane holding four
// pixels (B_2, B_3: paired by vpmaddwd, j^3 <= 29791 fitting a 16-bit
// factor, both halves added). With 80 blocks no unsigned lane of the running
// sums passes 2^32: the largest, B_0 (at most 2040 a lane) summed four times
// over, stays below C(83, 4) * 2040 < 3.75e9, B_1 (at most 30090) thrice
// below C(82, 3) * 30090 < 2.67e9.
struct ByteBlocks {
    using T = Rok8u;
    static constexpr int kPixels = 32, kBlocks = 80;
    __m256i w[2][3];
    __m256i j8 = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23,
                                  24, 25, 26, 27, 28, 29, 30, 31);
    ByteBlocks() {
        for (int half = 0; half < 2; ++half) {
            alignas(32) std::int16_t j1[16], j2[16], j3[16];
            for (int k = 0; k < 16; ++k) {
                const int j = 16 * half + k;
                j1[k] = std::int16_t(j);
                j2[k] = std::int16_t(j * j);
                j3[k] = std::int16_t(j * j * j);
            }
            w[half][0] = _mm256_load_si256(reinterpret_cast<const __m256i*>(j1));
            w[half][1] = _mm256_load_si256(reinterpret_cast<const __m256i*>(j2));
            w[half][2] = _mm256_load_si256(reinterpret_cast<const __m256i*>(j3));
        }
    }
    void terms(const T* p, __m256i* b) const {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
        const __m256i lo = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
        const __m256i hi = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16)));
        // B_0 by byte sums into the low halves of four 64-bit lanes (each at
        // most 2040, the high halves staying 0); B_1 by byte products with
        // j <= 31 (pairs at most 15555, no saturation), four pixels a lane
        // (at most 30090); B_2 and B_3 need 16-bit factors.
        b[0] = _mm256_sad_epu8(x, _mm256_setzero_si256());
        b[1] = _mm256_madd_epi16(_mm256_maddubs_epi16(x, j8), _mm256_set1_epi16(1));
        for (int i = 1; i < 3; ++i)
            b[i + 1] = _mm256_add_epi32(_mm256_madd_epi16(lo, w[0][i]), _mm256_madd_epi16(hi, w[1][i]));
    }
};

// Eight words per block in 32-bit lanes (j^3 <= 343); 32 blocks keep the
// running sums below 2^32 (B_0 thrice summed: C(35, 4) * 65535 < 3.5e9).
struct WordBlocks {
    using T = Rok16u;
    static constexpr int kPixels = 8, kBlocks = 32;
    __m256i w1 = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    __m256i w2 = _mm256_setr_epi32(0, 1, 4, 9, 16, 25, 36, 49);
    __m256i w3 = _mm256_setr_epi32(0, 1, 8, 27, 64, 125, 216, 343);
    void terms(const T* p, __m256i* b) const {
        const __m256i v = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
        b[0] = v;
        b[1] = _mm256_mullo_epi32(v, w1);
        b[2] = _mm256_mullo_epi32(v, w2);
        b[3] = _mm256_mullo_epi32(v, w3);
    }
};

// Sums s[m] of x^m I over `blocks` whole blocks from x = 0. Within a chunk
// every quantity fits 64 bits (s[3] < 2^11 ^ 4 * 65535).
template <class Blocks>
void chunk_sums(const Blocks& bl, const typename Blocks::T* p, int blocks, std::int64_t* s) {
    // aIR: B_I summed R + 1 times over the blocks so far. Named one by one
    // so that all ten stay in registers across blocks.
    __m256i a00 = _mm256_setzero_si256(), a01 = a00, a02 = a00, a03 = a00, a10 = a00, a11 = a00, a12 = a00,
            a20 = a00, a21 = a00, a30 = a00;
    for (int q = 0; q < blocks; ++q) {
        __m256i b[4];
        bl.terms(p + q * Blocks::kPixels, b);
        a00 = _mm256_add_epi32(a00, b[0]);
        a01 = _mm256_add_epi32(a01, a00);
        a02 = _mm256_add_epi32(a02, a01);
        a03 = _mm256_add_epi32(a03, a02);
        a10 = _mm256_add_epi32(a10, b[1]);
        a11 = _mm256_add_epi32(a11, a10);
        a12 = _mm256_add_epi32(a12, a11);
        a20 = _mm256_add_epi32(a20, b[2]);
        a21 = _mm256_add_epi32(a21, a20);
        a30 = _mm256_add_epi32(a30, b[3]);
    }
    const __m256i a[4][4] = {{a00, a01, a02, a03}, {a10, a11, a12, a00}, {a20, a21, a00, a00}, {a30, a00, a00, a00}};
    // After Q blocks a[i][r] = sum over q of C(u + r - 1, r) B_i(q), u = Q - q:
    // first the powers of u, then those of q = Q - u.
    const std::int64_t Q = blocks;
    std::int64_t P[4][4];  // P[i][r] = sum over q of q^r B_i(q)
    for (int i = 0; i < 4; ++i) {
        std::int64_t A[4] = {}, U[4] = {};
        for (int r = 0; r < 4 - i; ++r) A[r] = std::int64_t(lane_sum(a[i][r]));
        U[0] = A[0];
        U[1] = A[1];
        U[2] = 2 * A[2] - U[1];
        U[3] = 6 * A[3] - 3 * U[2] - 2 * U[1];
        P[i][0] = U[0];
        P[i][1] = Q * U[0] - U[1];
        P[i][2] = Q * Q * U[0] - 2 * Q * U[1] + U[2];
        P[i][3] = Q * Q * Q * U[0] - 3 * Q * Q * U[1] + 3 * Q * U[2] - U[3];
    }
    // x = K q + j: x^m = sum over i of C(m, i) K^(m - i) q^(m - i) j^i.
    const std::int64_t K = Blocks::kPixels;
    s[0] = P[0][0];
    s[1] = K * P[0][1] + P[1][0];
    s[2] = K * K * P[0][2] + 2 * K * P[1][1] + P[2][0];
    s[3] = K * K * K * P[0][3] + 3 * K * K * P[1][2] + 3 * K * P[2][1] + P[3][0];
}

// Adds the sums of x^m I of n contiguous samples that start at column x0.
template <class Blocks>
void span_sums(const Blocks& bl, const typename Blocks::T* p, int x0, int n, i128* s) {
    int x = 0;
    for (; x + Blocks::kPixels <= n;) {
        const int blocks = std::min(Blocks::kBlocks, (n - x) / Blocks::kPixels);
        std::int64_t c[4];
        chunk_sums(bl, p + x, blocks, c);
        // Moved to start at column X: (X + x')^m expanded.
        const i128 X = x0 + x;
        s[0] += c[0];
        s[1] += c[1] + X * c[0];
        s[2] += c[2] + 2 * X * c[1] + X * X * c[0];
        s[3] += c[3] + 3 * X * c[2] + 3 * X * X * c[1] + X * X * X * c[0];
        x += blocks * Blocks::kPixels;
    }
    for (; x < n; ++x) {
        const i128 X = x0 + x, v = p[x];
        s[0] += v;
        s[1] += X * v;
        s[2] += X * X * v;
        s[3] += X * X * X * v;
    }
}

template <class Blocks>
void integer_moments(const typename Blocks::T* p, int step, int w, int h, int nc, i128* out) {
    using T = typename Blocks::T;
    const Blocks bl;
    constexpr int kGather = 1024;
    T gathered[kGather];
    for (int y = 0; y < h; ++y) {
        const T* r = row_at(p, step, y);
        i128 s[4] = {};
        if (nc == 1) {
            span_sums(bl, r, 0, w, s);
        } else {
            for (int x0 = 0; x0 < w; x0 += kGather) {
                const int n = std::min(kGather, w - x0);
                for (int i = 0; i < n; ++i) gathered[i] = r[std::size_t(x0 + i) * nc];
                span_sums(bl, gathered, x0, n, s);
            }
        }
        const i128 Y = y;
        for (int m = 0; m < 4; ++m) {
            i128 yn = 1;
            for (int n = 0; m + n < 4; ++n, yn *= Y) out[4 * n + m] += yn * s[m];
        }
    }
}

}  // namespace

void raw_moments(const Rok8u* p, int step, int w, int h, int nc, __int128* out) {
    integer_moments<ByteBlocks>(p, step, w, h, nc, out);
}

void raw_moments(const Rok16u* p, int step, int w, int h, int nc, __int128* out) {
    integer_moments<WordBlocks>(p, step, w, h, nc, out);
}

void raw_moments(const Rok32f* p, int step, int w, int h, int nc, double* out) {
    constexpr int kGather = 1024;  // a multiple of 8, so partial x mod 8 stays put
    alignas(32) float gathered[kGather];
    for (int y = 0; y < h; ++y) {
        const float* r = row_at(p, step, y);
        __m256d s[4][2];
        for (auto& pair : s) pair[0] = pair[1] = _mm256_setzero_pd();
        // Whole runs of eight from column x0; returns how many samples it took.
        auto runs = [&s](const float* q, int x0, int n) {
            const __m256d eight = _mm256_set1_pd(8.0);
            __m256d X[2] = {_mm256_setr_pd(x0, x0 + 1, x0 + 2, x0 + 3), _mm256_setr_pd(x0 + 4, x0 + 5, x0 + 6, x0 + 7)};
            int x = 0;
            for (; x + 8 <= n; x += 8) {
                const __m256 v = _mm256_loadu_ps(q + x);
                const __m256d I[2] = {_mm256_cvtps_pd(_mm256_castps256_ps128(v)),
                                      _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1))};
                for (int k = 0; k < 2; ++k) {
                    const __m256d x2 = _mm256_mul_pd(X[k], X[k]), x3 = _mm256_mul_pd(x2, X[k]);
                    s[0][k] = _mm256_add_pd(s[0][k], I[k]);
                    s[1][k] = _mm256_fmadd_pd(I[k], X[k], s[1][k]);
                    s[2][k] = _mm256_fmadd_pd(I[k], x2, s[2][k]);
                    s[3][k] = _mm256_fmadd_pd(I[k], x3, s[3][k]);
                    X[k] = _mm256_add_pd(X[k], eight);
                }
            }
            return x;
        };
        // The last few samples of the row: at tail[i], column tailX + i.
        const float* tail = r;
        int tailX = 0, tailN = 0;
        if (nc == 1) {
            tailX = runs(r, 0, w);
            tail = r + tailX;
            tailN = w - tailX;
        } else {
            for (int x0 = 0; x0 < w; x0 += kGather) {
                const int n = std::min(kGather, w - x0);
                for (int i = 0; i < n; ++i) gathered[i] = r[std::size_t(x0 + i) * nc];
                const int took = runs(gathered, x0, n);
                tail = gathered + took;
                tailX = x0 + took;
                tailN = n - took;
            }
        }
        alignas(32) double part[4][8];
        for (int m = 0; m < 4; ++m) {
            _mm256_store_pd(part[m], s[m][0]);
            _mm256_store_pd(part[m] + 4, s[m][1]);
        }
        for (int i = 0; i < tailN; ++i) {
            const int x = tailX + i, k = x % 8;
            const double I = tail[i], X = x, x2 = X * X, x3 = x2 * X;
            part[0][k] += I;
            part[1][k] = std::fma(I, X, part[1][k]);
            part[2][k] = std::fma(I, x2, part[2][k]);
            part[3][k] = std::fma(I, x3, part[3][k]);
        }
        const double Y = y;
        for (int m = 0; m < 4; ++m) {
            const double* q = part[m];
            const double total = ((q[0] + q[4]) + (q[1] + q[5])) + ((q[2] + q[6]) + (q[3] + q[7]));
            double yn = 1.0;
            for (int n = 0; m + n < 4; ++n, yn *= Y) out[4 * n + m] += yn * total;
        }
    }
}

}  // namespace rok::kernels
