// Complex transforms on packets of eight sequences: the self-sorting
// mixed-radix passes and Bluestein's convolution for other lengths.
//
// The pass of radix p maps L interleaved sub-problems of length p * Mp to
// p * L sub-problems of length Mp (decimation in frequency):
//   out[j + L k + L p n1] = w^(n1 k) * sum_n2 in[j + L (n1 + Mp n2)] e^(-2 pi i n2 k / p),
// w = e^(-2 pi i / (p Mp)), so after the last pass (Mp = 1) element k is
// F(k) in natural order. The inverse transform swaps the real and imaginary
// halves of every packet on the way in and out (IDFT(x) = swap(DFT(swap(x)))),
// so one set of passes serves both directions.
#include <immintrin.h>

#include <cstring>
#include <type_traits>

#include "kernels/transform/fft_plan.h"

namespace rok::kernels::fft {

namespace {

struct C {
    __m256 re, im;
};

// Where the real and imaginary halves of a packet lie (0 and 8 floats, or
// swapped for the inverse).
struct Parts {
    int re, im;
};

inline C load(const float* p, Parts h) { return {_mm256_loadu_ps(p + h.re), _mm256_loadu_ps(p + h.im)}; }
inline void store(float* p, Parts h, C v) {
    _mm256_storeu_ps(p + h.re, v.re);
    _mm256_storeu_ps(p + h.im, v.im);
}
inline C add(C a, C b) { return {_mm256_add_ps(a.re, b.re), _mm256_add_ps(a.im, b.im)}; }
inline C sub(C a, C b) { return {_mm256_sub_ps(a.re, b.re), _mm256_sub_ps(a.im, b.im)}; }
inline C times(C a, __m256 s) { return {_mm256_mul_ps(a.re, s), _mm256_mul_ps(a.im, s)}; }
template <bool Scaled>
inline C times_if(C a, __m256 s) {
    if constexpr (Scaled) return times(a, s);
    return a;
}
// a * (wr + i wi)
inline C mul(C a, __m256 wr, __m256 wi) {
    return {_mm256_fmsub_ps(a.re, wr, _mm256_mul_ps(a.im, wi)), _mm256_fmadd_ps(a.re, wi, _mm256_mul_ps(a.im, wr))};
}

// cos and sin of 2 pi m / p for m = 0 .. p-1.
template <int P>
struct Roots;
template <>
struct Roots<3> {
    static constexpr float c[3] = {1.0f, -0.5f, -0.5f};
    static constexpr float s[3] = {0.0f, 0.8660254037844387f, -0.8660254037844387f};
};
template <>
struct Roots<5> {
    static constexpr float c[5] = {1.0f, 0.30901699437494745f, -0.8090169943749473f, -0.8090169943749473f,
                                   0.30901699437494745f};
    static constexpr float s[5] = {0.0f, 0.9510565162951535f, 0.5877852522924732f, -0.5877852522924732f,
                                   -0.9510565162951535f};
};
template <>
struct Roots<7> {
    static constexpr float c[7] = {1.0f,
                                   0.6234898018587336f,
                                   -0.22252093395631434f,
                                   -0.900968867902419f,
                                   -0.900968867902419f,
                                   -0.22252093395631434f,
                                   0.6234898018587336f};
    static constexpr float s[7] = {0.0f,
                                   0.7818314824680298f,
                                   0.9749279121818236f,
                                   0.43388373911755823f,
                                   -0.43388373911755823f,
                                   -0.9749279121818236f,
                                   -0.7818314824680298f};
};

// a[k] <- sum_n a[n] e^(-2 pi i n k / P).
template <int P>
inline void butterfly(C* a) {
    if constexpr (P == 2) {
        const C t = a[0];
        a[0] = add(t, a[1]);
        a[1] = sub(t, a[1]);
    } else if constexpr (P == 4) {
        const C t0 = add(a[0], a[2]), t1 = sub(a[0], a[2]);
        const C t2 = add(a[1], a[3]), t3 = sub(a[1], a[3]);
        a[0] = add(t0, t2);
        a[2] = sub(t0, t2);
        // t1 -/+ i t3
        a[1] = {_mm256_add_ps(t1.re, t3.im), _mm256_sub_ps(t1.im, t3.re)};
        a[3] = {_mm256_sub_ps(t1.re, t3.im), _mm256_add_ps(t1.im, t3.re)};
    } else if constexpr (P == 8) {
        // Two radix-4 butterflies on the even and odd inputs; the odd
        // results turn by w8^k, w8 = (1 - i) / sqrt 2, before they join.
        C e[4] = {a[0], a[2], a[4], a[6]}, o[4] = {a[1], a[3], a[5], a[7]};
        butterfly<4>(e);
        butterfly<4>(o);
        const __m256 h = _mm256_set1_ps(0.70710678118654752f);
        o[1] = {_mm256_mul_ps(_mm256_add_ps(o[1].re, o[1].im), h), _mm256_mul_ps(_mm256_sub_ps(o[1].im, o[1].re), h)};
        o[2] = {o[2].im, _mm256_sub_ps(_mm256_setzero_ps(), o[2].re)};
        o[3] = {_mm256_mul_ps(_mm256_sub_ps(o[3].im, o[3].re), h),
                _mm256_mul_ps(_mm256_sub_ps(_mm256_setzero_ps(), _mm256_add_ps(o[3].re, o[3].im)), h)};
        for (int k = 0; k < 4; ++k) {
            a[k] = add(e[k], o[k]);
            a[k + 4] = sub(e[k], o[k]);
        }
    } else {
        // Odd p: pairs n, p-n give t = a[n] + a[p-n] (cosine terms) and
        // u = a[n] - a[p-n] (sine terms); y[k] = c - i d, y[p-k] = c + i d.
        constexpr int H = (P - 1) / 2;
        C t[H], u[H];
        C y0 = a[0];
        for (int n = 1; n <= H; ++n) {
            t[n - 1] = add(a[n], a[P - n]);
            u[n - 1] = sub(a[n], a[P - n]);
            y0 = add(y0, t[n - 1]);
        }
        for (int k = 1; k <= H; ++k) {
            C c = a[0];
            C d = {_mm256_setzero_ps(), _mm256_setzero_ps()};
            for (int n = 1; n <= H; ++n) {
                const int m = n * k % P;
                const __m256 cm = _mm256_set1_ps(Roots<P>::c[m]), sm = _mm256_set1_ps(Roots<P>::s[m]);
                c = {_mm256_fmadd_ps(cm, t[n - 1].re, c.re), _mm256_fmadd_ps(cm, t[n - 1].im, c.im)};
                d = {_mm256_fmadd_ps(sm, u[n - 1].re, d.re), _mm256_fmadd_ps(sm, u[n - 1].im, d.im)};
            }
            a[k] = {_mm256_add_ps(c.re, d.im), _mm256_sub_ps(c.im, d.re)};
            a[P - k] = {_mm256_sub_ps(c.re, d.im), _mm256_add_ps(c.im, d.re)};
        }
        a[0] = y0;
    }
}

// One pass; `scale` (the last pass only, where Mp is 1) multiplies every
// output when it is not 1.
template <int P>
void pass(const float* src, std::ptrdiff_t ss, float* dst, std::ptrdiff_t ds, const Stage& st, Parts h,
          float scale) {
    const int L = st.L, Mp = st.Mp;
    const std::ptrdiff_t inGap = std::ptrdiff_t(L) * Mp * ss, outGap = std::ptrdiff_t(L) * ds;
    auto plain = [&](auto scaled) {
        const __m256 s = _mm256_set1_ps(scale);
        for (int j = 0; j < L; ++j) {
            C a[P];
            for (int n = 0; n < P; ++n) a[n] = load(src + j * ss + n * inGap, h);
            butterfly<P>(a);
            for (int k = 0; k < P; ++k) store(dst + j * ds + k * outGap, h, times_if<decltype(scaled)::value>(a[k], s));
        }
    };
    if (scale != 1.0f)
        plain(std::true_type{});
    else
        plain(std::false_type{});
    for (int n1 = 1; n1 < Mp; ++n1) {
        const float* in = src + std::ptrdiff_t(L) * n1 * ss;
        float* out = dst + std::ptrdiff_t(L) * P * n1 * ds;
        const float* w = st.tw + 2 * (n1 - 1) * (P - 1);
        __m256 wr[P], wi[P];
        for (int k = 1; k < P; ++k) {
            wr[k] = _mm256_broadcast_ss(w + 2 * (k - 1));
            wi[k] = _mm256_broadcast_ss(w + 2 * (k - 1) + 1);
        }
        for (int j = 0; j < L; ++j) {
            C a[P];
            for (int n = 0; n < P; ++n) a[n] = load(in + j * ss + n * inGap, h);
            butterfly<P>(a);
            store(out + j * ds, h, a[0]);
            for (int k = 1; k < P; ++k) store(out + j * ds + k * outGap, h, mul(a[k], wr[k], wi[k]));
        }
    }
}

void run_pass(const float* src, std::ptrdiff_t ss, float* dst, std::ptrdiff_t ds, const Stage& st, Parts h,
              float scale) {
    switch (st.radix) {
        case 2: return pass<2>(src, ss, dst, ds, st, h, scale);
        case 3: return pass<3>(src, ss, dst, ds, st, h, scale);
        case 4: return pass<4>(src, ss, dst, ds, st, h, scale);
        case 5: return pass<5>(src, ss, dst, ds, st, h, scale);
        case 7: return pass<7>(src, ss, dst, ds, st, h, scale);
        default: return pass<8>(src, ss, dst, ds, st, h, scale);
    }
}

void transform(const ComplexPlan* plan, const float* src, std::ptrdiff_t ss, float* dst, std::ptrdiff_t ds,
               float* work, Parts h, float scale);

// Bluestein: F(k) = c(k) * sum_n (x(n) c(n)) conj c(k - n), c(k) = e^(-i pi k^2 / n),
// the sum a circular convolution of length M done by the smooth plan.
void bluestein(const ComplexPlan* plan, const float* src, std::ptrdiff_t ss, float* dst, std::ptrdiff_t ds,
               float* work, Parts h, float scale) {
    constexpr Parts natural{0, kLanes};
    constexpr std::ptrdiff_t packet = kComplexPacketFloats;
    const int n = plan->n, m = plan->sub->n;
    float* a = work;
    float* b = a + std::ptrdiff_t(m) * packet;
    float* subWork = b + std::ptrdiff_t(m) * packet;
    for (int k = 0; k < n; ++k) {
        const C x = load(src + k * ss, h);
        store(a + k * packet, natural,
              mul(x, _mm256_broadcast_ss(plan->chirp + 2 * k), _mm256_broadcast_ss(plan->chirp + 2 * k + 1)));
    }
    std::memset(a + std::ptrdiff_t(n) * packet, 0, std::size_t(m - n) * packet * sizeof(float));
    transform(plan->sub, a, packet, b, packet, subWork, natural, 1.0f);
    for (int k = 0; k < m; ++k) {
        float* p = b + k * packet;
        store(p, natural,
              mul(load(p, natural), _mm256_broadcast_ss(plan->filter + 2 * k),
                  _mm256_broadcast_ss(plan->filter + 2 * k + 1)));
    }
    transform(plan->sub, b, packet, a, packet, subWork, Parts{kLanes, 0}, 1.0f);
    const __m256 s = _mm256_set1_ps(scale);
    for (int k = 0; k < n; ++k) {
        C y = mul(load(a + k * packet, natural), _mm256_broadcast_ss(plan->chirp + 2 * k),
                  _mm256_broadcast_ss(plan->chirp + 2 * k + 1));
        if (scale != 1.0f) y = times(y, s);
        store(dst + k * ds, h, y);
    }
}

void transform(const ComplexPlan* plan, const float* src, std::ptrdiff_t ss, float* dst, std::ptrdiff_t ds,
               float* work, Parts h, float scale) {
    if (plan->sub) return bluestein(plan, src, ss, dst, ds, work, h, scale);
    if (plan->stages == 0) {  // length 1
        C x = load(src, h);
        store(dst, h, scale != 1.0f ? times(x, _mm256_set1_ps(scale)) : x);
        return;
    }
    // Intermediate results alternate between the two halves of work.
    float* half[2] = {work, work + std::ptrdiff_t(plan->n) * kComplexPacketFloats};
    const float* in = src;
    std::ptrdiff_t is = ss;
    for (int s = 0; s < plan->stages; ++s) {
        const bool last = s == plan->stages - 1;
        float* out = last ? dst : half[s & 1];
        const std::ptrdiff_t os = last ? ds : kComplexPacketFloats;
        run_pass(in, is, out, os, plan->stage[s], h, last ? scale : 1.0f);
        in = out;
        is = os;
    }
}

}  // namespace

void complex_forward(const ComplexPlan* plan, const float* src, std::ptrdiff_t srcStride, float* dst,
                     std::ptrdiff_t dstStride, float* work) {
    transform(plan, src, srcStride, dst, dstStride, work, Parts{0, kLanes}, plan->forward_scale);
}

void complex_inverse(const ComplexPlan* plan, const float* src, std::ptrdiff_t srcStride, float* dst,
                     std::ptrdiff_t dstStride, float* work) {
    transform(plan, src, srcStride, dst, dstStride, work, Parts{kLanes, 0}, plan->inverse_scale);
}

}  // namespace rok::kernels::fft
