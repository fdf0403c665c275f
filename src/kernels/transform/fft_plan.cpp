// Plan building: factor selection, twiddle tables (computed in double
// precision and rounded once), and the Bluestein chirp and filter.
#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "kernels/transform/fft_plan.h"

namespace rok::kernels::fft {

namespace {

using cd = std::complex<double>;

// Splits n into radices 4, 8, 2, 3, 5, 7 (in that order): powers of two in
// radix-4 passes, an odd power of two ending with one radix-8 pass (at most
// one radix-2 pass, for 2 itself); false when n has another prime factor.
bool smooth_factors(std::int64_t n, int* radices, int* count) {
    *count = 0;
    int twos = 0;
    while (n % 2 == 0) {
        n /= 2;
        ++twos;
    }
    const bool eight = twos % 2 == 1 && twos >= 3;
    for (int i = 0; i < (eight ? twos - 3 : twos) / 2; ++i) radices[(*count)++] = 4;
    if (eight) radices[(*count)++] = 8;
    if (twos == 1) radices[(*count)++] = 2;
    for (int p : {3, 5, 7})
        while (n % p == 0) {
            n /= p;
            radices[(*count)++] = p;
        }
    return n == 1;
}

// Smallest length >= n with no prime factor above 7.
std::int64_t next_smooth(std::int64_t n) {
    for (;; ++n) {
        std::int64_t m = n;
        for (int p : {2, 3, 5, 7})
            while (m % p == 0) m /= p;
        if (m == 1) return n;
    }
}

// e^(-2 pi i j / n) for 0 <= j < n, with the angle reduced exactly first.
cd root(std::int64_t j, std::int64_t n) {
    const double a = 2.0 * std::numbers::pi * double(j % n) / double(n);
    return {std::cos(a), -std::sin(a)};
}

void store_pair(float* at, cd v) {
    at[0] = float(v.real());
    at[1] = float(v.imag());
}

// Plain recursive mixed-radix DFT in double precision, used once per
// Bluestein plan for its filter: out[k] = sum_t in[t * stride] w^(t k) with
// w = roots[total / n], roots[j] = e^(-2 pi i j / total).
void dft_double(const cd* in, std::ptrdiff_t stride, cd* out, std::int64_t n, const cd* roots, std::int64_t total) {
    if (n == 1) {
        out[0] = in[0];
        return;
    }
    int p = 2;
    while (n % p) ++p;
    const std::int64_t m = n / p, unit = total / n;
    for (int r = 0; r < p; ++r) dft_double(in + r * stride, stride * p, out + r * m, m, roots, total);
    cd t[7];
    for (std::int64_t k1 = 0; k1 < m; ++k1) {
        for (int r = 0; r < p; ++r) t[r] = out[r * m + k1] * roots[(r * k1 % n) * unit];
        for (int k2 = 0; k2 < p; ++k2) {
            cd sum = 0;
            for (int r = 0; r < p; ++r) sum += t[r] * roots[(std::int64_t(r) * k2 * m % n) * unit];
            out[k1 + m * k2] = sum;
        }
    }
}

// Plans are written field by field (every field a transform reads): a
// whole-struct copy may carry the padding bytes of a temporary, and a record
// built twice in the same zeroed memory must come out the same bytes.
void set_header(ComplexPlan* plan, std::int64_t n, float fwd, float inv, int stages) {
    plan->n = int(n);
    plan->forward_scale = fwd;
    plan->inverse_scale = inv;
    plan->stages = stages;
    plan->stage = nullptr;
    plan->sub = nullptr;
    plan->chirp = nullptr;
    plan->filter = nullptr;
}

}  // namespace

bool flag_scales(int flag, std::int64_t n, float* forward, float* inverse) {
    const float nf = float(n);
    switch (flag) {
        case rokFftDivFwd:
            *forward = 1.0f / nf;
            *inverse = 1.0f;
            return true;
        case rokFftDivInv:
            *forward = 1.0f;
            *inverse = 1.0f / nf;
            return true;
        case rokFftDivSqrt: {
            const float r = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(nf)));
            *forward = *inverse = -0.5f * r * ((nf * r) * r - 3.0f);
            return true;
        }
        case rokFftNoDiv:
            *forward = *inverse = 1.0f;
            return true;
        default:
            return false;
    }
}

const ComplexPlan* build_complex(Arena& arena, std::int64_t n, int flag, PlanNeeds& needs, void* init) {
    ComplexPlan* plan = arena.take<ComplexPlan>(1);
    float fwd = 1.0f, inv = 1.0f;
    flag_scales(flag, n, &fwd, &inv);
    int radices[kMaxStages];
    int count = 0;
    if (smooth_factors(n, radices, &count)) {
        Stage* stage = arena.take<Stage>(std::size_t(count));
        if (plan) {
            set_header(plan, n, fwd, inv, count);
            plan->stage = stage;
        }
        std::int64_t L = 1;
        for (int s = 0; s < count; ++s) {
            const int p = radices[s];
            const std::int64_t mp = n / (L * p);
            float* tw = mp > 1 ? arena.take<float>(std::size_t(2 * (mp - 1) * (p - 1))) : nullptr;
            if (plan) {
                for (std::int64_t n1 = 1; n1 < mp; ++n1)
                    for (int k = 1; k < p; ++k) store_pair(tw + 2 * ((n1 - 1) * (p - 1) + k - 1), root(n1 * k, p * mp));
                Stage& st = stage[s];
                st.radix = p;
                st.L = int(L);
                st.Mp = int(mp);
                st.tw = tw;
            }
            L *= p;
        }
        needs.work_bytes = std::size_t(2 * n) * kComplexPacketFloats * sizeof(float);
        needs.init_bytes = 0;
        return plan;
    }
    const std::int64_t m = next_smooth(2 * n - 1);
    PlanNeeds subNeeds;
    const ComplexPlan* sub = build_complex(arena, m, rokFftNoDiv, subNeeds, nullptr);
    float* chirp = arena.take<float>(std::size_t(2 * n));
    float* filter = arena.take<float>(std::size_t(2 * m));
    needs.work_bytes = std::size_t(2 * m) * kComplexPacketFloats * sizeof(float) + subNeeds.work_bytes;
    needs.init_bytes = std::size_t(3 * m) * sizeof(cd);
    if (!plan) return nullptr;
    set_header(plan, n, fwd, inv, 0);
    plan->sub = sub;
    plan->chirp = chirp;
    plan->filter = filter;
    // exp(-i pi k^2 / n) = root(k^2 mod 2n, 2n).
    cd* b = static_cast<cd*>(init);
    cd* spectrum = b + m;
    cd* roots = spectrum + m;
    std::fill(b, b + m, cd(0));
    for (std::int64_t k = 0; k < n; ++k) {
        const cd w = root(k * k % (2 * n), 2 * n);
        store_pair(chirp + 2 * k, w);
        b[k] = std::conj(w);
        if (k) b[m - k] = std::conj(w);
    }
    for (std::int64_t j = 0; j < m; ++j) roots[j] = root(j, m);
    dft_double(b, 1, spectrum, m, roots, m);
    for (std::int64_t k = 0; k < m; ++k) store_pair(filter + 2 * k, spectrum[k] / double(m));
    return plan;
}

const RealPlan* build_real(Arena& arena, std::int64_t n, int flag, PlanNeeds& needs, void* init) {
    RealPlan* plan = arena.take<RealPlan>(1);
    float fwd = 1.0f, inv = 1.0f;
    flag_scales(flag, n, &fwd, &inv);
    const bool even = n % 2 == 0;
    const std::int64_t inner = even ? n / 2 : n;
    PlanNeeds complexNeeds;
    const ComplexPlan* complex = build_complex(arena, inner, rokFftNoDiv, complexNeeds, init);
    float* tw = even ? arena.take<float>(std::size_t(2 * (n / 4 + 1))) : nullptr;
    // One block of `inner` complex packets for the spectrum, then the
    // complex plan's own work.
    needs.work_bytes = std::size_t(inner) * kComplexPacketFloats * sizeof(float) + complexNeeds.work_bytes;
    needs.init_bytes = complexNeeds.init_bytes;
    if (!plan) return nullptr;
    plan->n = int(n);
    plan->forward_scale = fwd;
    plan->inverse_scale = inv;
    plan->complex = complex;
    plan->tw = tw;
    if (even)
        for (std::int64_t k = 0; k <= n / 4; ++k) store_pair(tw + 2 * k, root(k, n));
    return plan;
}

std::int64_t length(const ComplexPlan* plan) { return plan->n; }
std::int64_t length(const RealPlan* plan) { return plan->n; }

}  // namespace rok::kernels::fft
