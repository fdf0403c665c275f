// One-channel float filters of the common shapes, with the kernel's size
// known when compiled: every loop over the taps unrolls, the coefficients
// are broadcast once per call, and several destination rows are formed in
// one pass so that each source vector they share is loaded once. Each
// destination sample is still the plain sum of filter_sum, taps in the same
// order, with separate multiplies and adds.
#pragma GCC optimize("fp-contract=off", "no-tree-ter")

#include <immintrin.h>

#include <algorithm>
#include <cstdint>

#include "kernels/filter/filter_sum.h"


namespace rok::kernels {

namespace {

constexpr int kLanes = 8;

inline const float* down(const float* p, std::ptrdiff_t bytes) {
    return reinterpret_cast<const float*>(reinterpret_cast<const char*>(p) + bytes);
}
inline float* down(float* p, std::ptrdiff_t bytes) {
    return reinterpret_cast<float*>(reinterpret_cast<char*>(p) + bytes);
}

// acc + sample * coefficient with the operands in a fixed order. Where two
// NaNs meet, the result is the first operand's, and the compiler may swap
// the operands of a plain multiply or add differently in every
// instantiation; the order is pinned so that a NaN's payload does not
// depend on which kernel (and so which thread split) made the sample.
inline __m256 mul_add(__m256 acc, __m256 sample, __m256 coefficient) {
    __m256 p;
    asm("vmulps %2, %1, %0" : "=x"(p) : "x"(sample), "x"(coefficient));
    asm("vaddps %2, %1, %0" : "=x"(acc) : "x"(acc), "x"(p));
    return acc;
}
inline float mul_add(float acc, float sample, float coefficient) {
    float p;
    asm("vmulss %2, %1, %0" : "=x"(p) : "x"(sample), "x"(coefficient));
    asm("vaddss %2, %1, %0" : "=x"(acc) : "x"(acc), "x"(p));
    return acc;
}

// The rule for one sample: kernel rows top to bottom, each left to right.
template <int KW, int KH>
inline float one(const float* src, std::ptrdiff_t step, const float* coef, int x) {
    float s = 0.0f;
    for (int j = 0; j < KH; ++j) {
        const float* r = down(src, j * step) + x;
        for (int i = 0; i < KW; ++i) s = mul_add(s, r[i], coef[j * KW + i]);
    }
    return s;
}

// V vectors of R destination rows at column x. Source row r serves kernel
// row r - o of destination row o; walking the source rows in order keeps
// each destination's taps in order.
template <int KW, int KH, int R, int V>
inline void block(const float* const* rows, const __m256* c, const float* coef, int x, float* const* out, const bool* stream) {
    __m256 a[R][V];
#pragma GCC unroll 8
    for (int o = 0; o < R; ++o)
#pragma GCC unroll 8
        for (int v = 0; v < V; ++v) a[o][v] = _mm256_setzero_ps();
    // Kernels of up to nine taps keep every coefficient in a register; larger
    // ones broadcast each coefficient where it is used (see below).
    // The source rows that the next pass reads first are fetched one pass
    // ahead: far enough to hide a trip to memory, near enough to stay in
    // the core's cache. Columns fetch them into the second-level cache only
    // (a pass over four rows reads ten, more than the first level holds:
    // 0.92-0.94 of the time at 1920x1080 and 3840x2160); rows, which read
    // one sequential stream that the hardware fetches well, fetch nothing
    // (0.78 of the time at 3840x2160 from memory, 0.73 in bands of 32 rows
    // read from the cache).
    if constexpr (KH > 1) {
#pragma GCC unroll 8
        for (int o = 0; o < R; ++o)
#pragma GCC unroll 8
            for (int v = 0; v < V; v += 2)
                _mm_prefetch(reinterpret_cast<const char*>(rows[R + KH - 1 + o] + x + kLanes * v),
                             KW == 1 ? _MM_HINT_T1 : _MM_HINT_T0);
    }
#pragma GCC unroll 16
    for (int r = 0; r < R + KH - 1; ++r)
#pragma GCC unroll 16
        for (int i = 0; i < KW; ++i) {
            __m256 k[R];
            // An empty asm each step keeps the compiler from holding a
            // broadcast for its later uses (each is used once a row of
            // three): it would hold all of them and spill them, and reload
            // samples too.
            if constexpr (KW * KH > 9) asm("" : "+r"(coef));
#pragma GCC unroll 8
            for (int o = 0; o < R; ++o) {
                const int j = std::clamp(r - o, 0, KH - 1);
                if constexpr (KW * KH > 9) k[o] = _mm256_broadcast_ss(coef + j * KW + i);
                else k[o] = c[j * KW + i];
            }
#pragma GCC unroll 8
            for (int v = 0; v < V; ++v) {
                const __m256 s = _mm256_loadu_ps(rows[r] + x + i + kLanes * v);  // one load for every row it serves
#pragma GCC unroll 8
                for (int o = 0; o < R; ++o)
                    if (r - o >= 0 && r - o < KH) a[o][v] = mul_add(a[o][v], s, k[o]);
            }
        }
#pragma GCC unroll 8
    for (int o = 0; o < R; ++o)
#pragma GCC unroll 8
        for (int v = 0; v < V; ++v) {
            float* p = out[o] + x + kLanes * v;
            if (stream[o]) _mm256_stream_ps(p, a[o][v]);
            else _mm256_storeu_ps(p, a[o][v]);
        }
}

// R destination rows, n samples each. With `stream`, the first row's
// stores start at a 32-byte boundary and bypass the cache, and so do every
// other row's that is then aligned too.
template <int KW, int KH, int R, int V>
inline void pass(const float* src, std::ptrdiff_t srcStep, const __m256* c, const float* coef, int n, float* dst,
                 std::ptrdiff_t dstStep, bool stream) {
    const float* rows[2 * R + KH - 1];
    for (int r = 0; r < 2 * R + KH - 1; ++r) rows[r] = down(src, r * srcStep);
    float* out[R];
    for (int o = 0; o < R; ++o) out[o] = down(dst, o * dstStep);
    auto scalar = [&](int x) {
        for (int o = 0; o < R; ++o) out[o][x] = one<KW, KH>(rows[o], srcStep, coef, x);
    };
    int x = 0;
    const auto addr = [](const float* p) { return reinterpret_cast<std::uintptr_t>(p); };
    if (stream && addr(out[0]) % sizeof(float) == 0)
        for (const int head = std::min(n, int((32 - addr(out[0]) % 32) % 32 / sizeof(float))); x < head; ++x) scalar(x);
    bool st[R];
    for (int o = 0; o < R; ++o) st[o] = stream && addr(out[o] + x) % 32 == 0;
    for (; x + kLanes * V <= n; x += kLanes * V) block<KW, KH, R, V>(rows, c, coef, x, out, st);
    for (; x + kLanes <= n; x += kLanes) block<KW, KH, R, 1>(rows, c, coef, x, out, st);
    for (; x < n; ++x) scalar(x);
}

template <int KW, int KH, int R, int V>
void shaped_rows(const float* src, std::ptrdiff_t srcStep, const float* coef, int n, float* dst,
                 std::ptrdiff_t dstStep, int rows, bool stream) {
    __m256 c[KW * KH];
    for (int t = 0; t < KW * KH; ++t) c[t] = _mm256_set1_ps(coef[t]);
    int y = 0;
    for (; y + R <= rows; y += R)
        pass<KW, KH, R, V>(down(src, y * srcStep), srcStep, c, coef, n, down(dst, y * dstStep), dstStep, stream);
    if constexpr (R > 1)
        for (; y < rows; ++y)
            pass<KW, KH, 1, V>(down(src, y * srcStep), srcStep, c, coef, n, down(dst, y * dstStep), dstStep, stream);
}

}  // namespace

// Rows and vectors per pass, chosen by timing on one core (the least of 60
// calls at 1920x1080 and 3840x2160): 3x3 keeps its nine coefficients and
// six sums in registers (three rows of two vectors); 5x5 shares each source
// vector among three rows of three vectors, nine sums, one broadcast of a
// coefficient serving three vectors (0.97 of the time of three rows of two
// at 1920x1080, 0.955 at 3840x2160, in turns with it; three rows of two
// took 13% less than two rows of four); columns share theirs among four
// rows; rows have nothing to share and take four vectors of one row.
ShapedRowsFn shaped_rows_kernel(int kw, int kh) {
    if (kw == 3 && kh == 3) return &shaped_rows<3, 3, 3, 2>;
    if (kw == 5 && kh == 5) return &shaped_rows<5, 5, 3, 3>;
    if (kh == 1) switch (kw) {
            case 3: return &shaped_rows<3, 1, 1, 4>;
            case 4: return &shaped_rows<4, 1, 1, 4>;
            case 5: return &shaped_rows<5, 1, 1, 4>;
            case 6: return &shaped_rows<6, 1, 1, 4>;
            case 7: return &shaped_rows<7, 1, 1, 4>;
            default: break;
        }
    if (kw == 1) switch (kh) {
            case 3: return &shaped_rows<1, 3, 4, 2>;
            case 4: return &shaped_rows<1, 4, 4, 2>;
            case 5: return &shaped_rows<1, 5, 4, 2>;
            case 6: return &shaped_rows<1, 6, 4, 2>;
            case 7: return &shaped_rows<1, 7, 4, 2>;
            default: break;
        }
    return nullptr;
}

}  // namespace rok::kernels
