#include "kernels/transform/dct_engine.h"

#include <immintrin.h>

#include <cmath>

namespace rok::kernels::dct {

struct DctPlan {
    int n;
    const fft::RealPlan* fft;
    // cos and sin of pi k / 2n, and a(k), for k = 0 .. n-1.
    const float* cs;
    const float* sn;
    const float* amp;
};

namespace {
constexpr int kNoScaling = 8;
constexpr std::size_t kPacket = fft::kRealPacketFloats;

std::size_t round64(std::size_t b) { return (b + 63) & ~std::size_t(63); }

inline __m256 at(const float* p, int k) { return _mm256_load_ps(p + kPacket * k); }
inline void put(float* p, int k, __m256 v) { _mm256_store_ps(p + kPacket * k, v); }
}  // namespace

const DctPlan* build_dct(fft::Arena& arena, int n, fft::PlanNeeds& needs, void* init) {
    DctPlan* plan = arena.take<DctPlan>(1);
    float* cs = arena.take<float>(n);
    float* sn = arena.take<float>(n);
    float* amp = arena.take<float>(n);
    const fft::RealPlan* real = fft::build_real(arena, n, kNoScaling, needs, init);
    if (!plan) return nullptr;
    const double pi = 3.14159265358979323846;
    for (int k = 0; k < n; ++k) {
        cs[k] = float(std::cos(pi * k / (2.0 * n)));
        sn[k] = float(std::sin(pi * k / (2.0 * n)));
        amp[k] = float(std::sqrt((k == 0 ? 1.0 : 2.0) / n));
    }
    plan->n = n;
    plan->fft = real;
    plan->cs = cs;
    plan->sn = sn;
    plan->amp = amp;
    return plan;
}

std::size_t dct_work_bytes(int n, const fft::PlanNeeds& needs) {
    return round64(std::size_t(n) * kPacket * sizeof(float)) + needs.work_bytes;
}

void dct_forward(const DctPlan* plan, float* x, float* work) {
    const int n = plan->n;
    float* v = work;
    float* fftWork = work + round64(std::size_t(n) * kPacket * sizeof(float)) / sizeof(float);
    for (int m = 0; 2 * m < n; ++m) put(v, m, at(x, 2 * m));
    for (int m = 0; 2 * m + 1 < n; ++m) put(v, n - 1 - m, at(x, 2 * m + 1));
    fft::real_forward(plan->fft, v, fftWork);
    // Packed: V(0) at 0; V(k) = (2k-1, 2k) for 0 < k < n/2; even n: Re V(n/2)
    // at n-1. V(n-k) = conj V(k).
    put(x, 0, _mm256_mul_ps(at(v, 0), _mm256_set1_ps(plan->amp[0])));
    for (int k = 1; 2 * k < n; ++k) {
        const __m256 re = at(v, 2 * k - 1), im = at(v, 2 * k);
        const int j = n - k;
        const __m256 xk = _mm256_add_ps(_mm256_mul_ps(re, _mm256_set1_ps(plan->cs[k])),
                                        _mm256_mul_ps(im, _mm256_set1_ps(plan->sn[k])));
        const __m256 xj = _mm256_sub_ps(_mm256_mul_ps(re, _mm256_set1_ps(plan->cs[j])),
                                        _mm256_mul_ps(im, _mm256_set1_ps(plan->sn[j])));
        put(x, k, _mm256_mul_ps(xk, _mm256_set1_ps(plan->amp[k])));
        put(x, j, _mm256_mul_ps(xj, _mm256_set1_ps(plan->amp[j])));
    }
    if (n % 2 == 0 && n > 1) {
        const int k = n / 2;
        put(x, k, _mm256_mul_ps(at(v, n - 1), _mm256_set1_ps(plan->cs[k] * plan->amp[k])));
    }
}

void dct_inverse(const DctPlan* plan, float* x, float* work) {
    const int n = plan->n;
    float* v = work;
    float* fftWork = work + round64(std::size_t(n) * kPacket * sizeof(float)) / sizeof(float);
    // Unscaled coefficients with the inverse FFT's 1/n folded in.
    auto raw = [&](int k) { return _mm256_mul_ps(at(x, k), _mm256_set1_ps(1.0f / (plan->amp[k] * float(n)))); };
    put(v, 0, raw(0));
    for (int k = 1; 2 * k < n; ++k) {
        const __m256 a = raw(k), b = raw(n - k);
        const __m256 c = _mm256_set1_ps(plan->cs[k]), s = _mm256_set1_ps(plan->sn[k]);
        put(v, 2 * k - 1, _mm256_add_ps(_mm256_mul_ps(c, a), _mm256_mul_ps(s, b)));
        put(v, 2 * k, _mm256_sub_ps(_mm256_mul_ps(s, a), _mm256_mul_ps(c, b)));
    }
    if (n % 2 == 0 && n > 1) {
        // V(n/2) = exp(i pi/4) (1 - i) X(n/2) = 2 cos(pi/4) X(n/2), a real number.
        const int k = n / 2;
        const __m256 a = raw(k);
        put(v, n - 1, _mm256_mul_ps(_mm256_add_ps(a, a), _mm256_set1_ps(plan->cs[k])));
    }
    fft::real_inverse(plan->fft, v, fftWork);
    for (int m = 0; 2 * m < n; ++m) put(x, 2 * m, at(v, m));
    for (int m = 0; 2 * m + 1 < n; ++m) put(x, 2 * m + 1, at(v, n - 1 - m));
}

}  // namespace rok::kernels::dct
