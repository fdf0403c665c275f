// Real transforms into and out of the packed layout, on packets of eight
// sequences.
//
// Even n = 2h: n real packets are already h complex packets z(m) =
// x(2m) + i x(2m+1) in split form, so the forward transform runs the complex
// plan of length h on them and splits Z into the spectra of the even and odd
// samples: with E(k) = Z(k) + conj Z(h-k), O(k) = -i (Z(k) - conj Z(h-k)) and
// w = e^(-2 pi i / n),
//   F(k) = (E(k) + w^k O(k)) / 2,   F(h-k) = conj(E(k) - w^k O(k)) / 2.
// The inverse builds Z'(k) = (F(k) + conj F(h-k)) + i w^-k (F(k) - conj F(h-k))
// and runs the inverse complex transform, whose split output is the real
// sequence again (times n). Odd n transforms the sequence as a complex one.
#include <immintrin.h>

#include "kernels/transform/fft_plan.h"

namespace rok::kernels::fft {

namespace {

constexpr std::ptrdiff_t kReal = kRealPacketFloats;
constexpr std::ptrdiff_t kComplex = kComplexPacketFloats;

inline __m256 ld(const float* p) { return _mm256_loadu_ps(p); }
inline void st(float* p, __m256 v) { _mm256_storeu_ps(p, v); }
inline __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
inline __m256 sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
inline __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }

void forward_even(const RealPlan* plan, float* x, float* work) {
    const int n = plan->n, h = n / 2;
    float* z = work;
    complex_forward(plan->complex, x, kComplex, z, kComplex, z + h * kComplex);
    const __m256 s = _mm256_set1_ps(plan->forward_scale);
    const __m256 half = _mm256_set1_ps(0.5f * plan->forward_scale);
    const __m256 zr = ld(z), zi = ld(z + kLanes);
    st(x, mul(add(zr, zi), s));
    st(x + (n - 1) * kReal, mul(sub(zr, zi), s));
    for (int k = 1; 2 * k <= h; ++k) {
        const int j = h - k;
        const float* a = z + k * kComplex;
        const float* b = z + j * kComplex;
        const __m256 ar = ld(a), ai = ld(a + kLanes), br = ld(b), bi = ld(b + kLanes);
        const __m256 er = add(ar, br), ei = sub(ai, bi);
        // O = -i (Z(k) - conj Z(h-k)) = (ai + bi) - i (ar - br)
        const __m256 orr = add(ai, bi), oi = sub(br, ar);
        const __m256 wr = _mm256_broadcast_ss(plan->tw + 2 * k), wi = _mm256_broadcast_ss(plan->tw + 2 * k + 1);
        const __m256 pr = _mm256_fmsub_ps(orr, wr, mul(oi, wi)), pi = _mm256_fmadd_ps(orr, wi, mul(oi, wr));
        st(x + (2 * k - 1) * kReal, mul(add(er, pr), half));
        st(x + 2 * k * kReal, mul(add(ei, pi), half));
        if (j != k) {
            st(x + (2 * j - 1) * kReal, mul(sub(er, pr), half));
            st(x + 2 * j * kReal, mul(sub(pi, ei), half));
        }
    }
}

void inverse_even(const RealPlan* plan, float* x, float* work) {
    const int n = plan->n, h = n / 2;
    float* z = work;
    const __m256 s = _mm256_set1_ps(plan->inverse_scale);
    const __m256 f0 = ld(x), fh = ld(x + (n - 1) * kReal);
    st(z, mul(add(f0, fh), s));
    st(z + kLanes, mul(sub(f0, fh), s));
    for (int k = 1; 2 * k <= h; ++k) {
        const int j = h - k;
        const __m256 ar = ld(x + (2 * k - 1) * kReal), ai = ld(x + 2 * k * kReal);
        const __m256 br = ld(x + (2 * j - 1) * kReal), bi = ld(x + 2 * j * kReal);
        const __m256 er = add(ar, br), ei = sub(ai, bi);
        const __m256 dr = sub(ar, br), di = add(ai, bi);
        // O = D w^-k, w^-k = (wr, -wi)
        const __m256 wr = _mm256_broadcast_ss(plan->tw + 2 * k), wi = _mm256_broadcast_ss(plan->tw + 2 * k + 1);
        const __m256 orr = _mm256_fmadd_ps(dr, wr, mul(di, wi)), oi = _mm256_fmsub_ps(di, wr, mul(dr, wi));
        // Z'(k) = E + i O, Z'(h-k) = conj E + i conj O
        st(z + k * kComplex, mul(sub(er, oi), s));
        st(z + k * kComplex + kLanes, mul(add(ei, orr), s));
        if (j != k) {
            st(z + j * kComplex, mul(add(er, oi), s));
            st(z + j * kComplex + kLanes, mul(sub(orr, ei), s));
        }
    }
    complex_inverse(plan->complex, z, kComplex, x, kComplex, z + h * kComplex);
}

void forward_odd(const RealPlan* plan, float* x, float* work) {
    const int n = plan->n;
    float* z = work;
    const __m256 zero = _mm256_setzero_ps();
    for (int k = 0; k < n; ++k) {
        st(z + k * kComplex, ld(x + k * kReal));
        st(z + k * kComplex + kLanes, zero);
    }
    complex_forward(plan->complex, z, kComplex, z, kComplex, z + n * kComplex);
    const __m256 s = _mm256_set1_ps(plan->forward_scale);
    st(x, mul(ld(z), s));
    for (int k = 1; 2 * k < n; ++k) {
        st(x + (2 * k - 1) * kReal, mul(ld(z + k * kComplex), s));
        st(x + 2 * k * kReal, mul(ld(z + k * kComplex + kLanes), s));
    }
}

void inverse_odd(const RealPlan* plan, float* x, float* work) {
    const int n = plan->n;
    float* z = work;
    const __m256 s = _mm256_set1_ps(plan->inverse_scale);
    const __m256 zero = _mm256_setzero_ps();
    st(z, mul(ld(x), s));
    st(z + kLanes, zero);
    for (int k = 1; 2 * k < n; ++k) {
        const __m256 re = mul(ld(x + (2 * k - 1) * kReal), s), im = mul(ld(x + 2 * k * kReal), s);
        st(z + k * kComplex, re);
        st(z + k * kComplex + kLanes, im);
        st(z + (n - k) * kComplex, re);
        st(z + (n - k) * kComplex + kLanes, sub(zero, im));
    }
    complex_inverse(plan->complex, z, kComplex, z, kComplex, z + n * kComplex);
    for (int k = 0; k < n; ++k) st(x + k * kReal, ld(z + k * kComplex));
}

}  // namespace

void real_forward(const RealPlan* plan, float* packets, float* work) {
    if (plan->n % 2 == 0)
        forward_even(plan, packets, work);
    else
        forward_odd(plan, packets, work);
}

void real_inverse(const RealPlan* plan, float* packets, float* work) {
    if (plan->n % 2 == 0)
        inverse_even(plan, packets, work);
    else
        inverse_odd(plan, packets, work);
}

}  // namespace rok::kernels::fft
