#include "stats/moments.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "frame/image.h"
#include "frame/record.h"
#include "kernels/stats/moments.h"

namespace rok::stats {

namespace {

using i128 = __int128;

// The smallest |M00| that normalising divides by is above this.
constexpr double kTinyMoment = 2.220446049250313e-16;

template <class S>
constexpr std::int32_t kTag = std::is_same_v<S, RokiMomentState_64f> ? rokIdMoment64f : rokIdMoment64s;

template <class S>
RokStatus init_alloc(S** state, int hint) {
    if (!state) return rokStatusNullPtr;
    S* s = alloc_record<S>(kTag<S>);
    if (!s) return rokStatusNoMemory;
    s->hint = hint;
    s->channels = -1;
    *state = s;
    return rokStatusOk;
}

template <class S, class T, Layout L>
RokStatus compute(const T* src, int step, RokiSize roi, S* state) {
    if (any_null(src, state)) return rokStatusNullPtr;
    if (state->id != kTag<S>) return rokStatusBadContext;
    if (step < 1) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (std::int64_t(step) < std::int64_t(roi.width) * channels(L) * std::int64_t(sizeof(T)))
        return rokStatusStepTooShort;
    constexpr int outs = processed_channels(L);
    std::memset(state->m, 0, sizeof state->m);
    state->channels = outs;
    for (int c = 0; c < outs; ++c) {
        if constexpr (std::is_same_v<T, Rok32f>) {
            kernels::raw_moments(src + c, step, roi.width, roi.height, channels(L), state->m[c]);
        } else {
            i128 exact[16] = {};
            kernels::raw_moments(src + c, step, roi.width, roi.height, channels(L), exact);
            for (int i = 0; i < 16; ++i) {
                // The integer kind keeps the total modulo 2^64, as 64-bit
                // accumulation would; the double kind rounds it once.
                if constexpr (std::is_same_v<S, RokiMomentState_64s>) state->m[c][i] = std::int64_t(exact[i]);
                else state->m[c][i] = double(exact[i]);
            }
        }
    }
    return rokStatusOk;
}

// Checks shared by the getters. `skip`: an order pair that selects no entry
// ((mOrd * 4) | nOrd above 12 taken unsigned, which negative orders do):
// success, nothing written.
template <class S>
RokStatus check_get(const S* s, const void* out, int mOrd, int nOrd, int channel, bool& skip) {
    if (any_null(s, out)) return rokStatusNullPtr;
    if (s->id != kTag<S>) return rokStatusBadContext;
    if (std::int64_t(mOrd) + nOrd > 3) return rokStatusBadSize;
    if (channel < 0 || channel >= s->channels) return rokStatusBadChannel;
    skip = ((unsigned(mOrd) << 2) | unsigned(nOrd)) > 12u;
    return rokStatusOk;
}

template <class S>
RokStatus check_hu(const S* s, const void* out, int channel) {
    if (any_null(s, out)) return rokStatusNullPtr;
    if (s->id != kTag<S>) return rokStatusBadContext;
    if (channel < 0 || channel >= s->channels) return rokStatusBadChannel;
    return rokStatusOk;
}

struct Moments {
    double m[16];  // entry 4n + m: M(m, n)
    double at(int mo, int no) const { return m[4 * no + mo]; }
};

template <class S>
Moments moments_of(const S* s, int channel) {
    Moments r;
    for (int i = 0; i < 16; ++i) r.m[i] = double(s->m[channel][i]);
    return r;
}

bool too_small(const Moments& M) { return !(std::fabs(M.at(0, 0)) > kTinyMoment); }

double power(double x, int k) {
    double p = 1.0;
    for (int i = 0; i < k; ++i) p = i == 0 ? x : p * x;
    return p;
}

constexpr double kBinomial[4][4] = {{1, 0, 0, 0}, {1, 1, 0, 0}, {1, 2, 1, 0}, {1, 3, 3, 1}};

// Sum of (x + ox)^m (y + oy)^n I, expanded: for j = n .. 0 the inner sums
// M(m, j) + C(m, m-1) ox M(m-1, j) + ... + ox^m M(0, j), each coefficient
// formed before it multiplies the moment, then those inner sums combined
// the same way over oy.
double spatial(const Moments& M, int m, int n, double ox, double oy) {
    double total = 0.0;
    for (int j = n; j >= 0; --j) {
        double inner = M.at(m, j);
        for (int i = m - 1; i >= 0; --i) inner = inner + (kBinomial[m][i] * power(ox, m - i)) * M.at(i, j);
        total = j == n ? inner : total + (kBinomial[n][j] * power(oy, n - j)) * inner;
    }
    return total;
}

// Central moments from the raw ones, with x' = M10 / M00 and y' = M01 / M00.
double central(const Moments& M, int m, int n) {
    const double xb = M.at(1, 0) / M.at(0, 0), yb = M.at(0, 1) / M.at(0, 0);
    switch (4 * n + m) {
        case 0: return M.at(0, 0);
        case 2: return M.at(2, 0) - xb * M.at(1, 0);
        case 5: return M.at(1, 1) - xb * M.at(0, 1);
        case 8: return M.at(0, 2) - yb * M.at(0, 1);
        case 3: return M.at(3, 0) - 3 * xb * M.at(2, 0) + 2 * xb * xb * M.at(1, 0);
        case 6: return M.at(2, 1) - 2 * xb * M.at(1, 1) - yb * M.at(2, 0) + 2 * xb * xb * M.at(0, 1);
        case 9: return M.at(1, 2) - 2 * yb * M.at(1, 1) - xb * M.at(0, 2) + 2 * yb * yb * M.at(1, 0);
        case 12: return M.at(0, 3) - 3 * yb * M.at(0, 2) + 2 * yb * yb * M.at(0, 1);
        default: return 0.0;  // mu10 and mu01
    }
}

double normalizer(const Moments& M, int m, int n) { return std::pow(M.at(0, 0), -0.5 * (m + n + 2)); }

void hu(const Moments& M, double* h) {
    const double m00 = M.at(0, 0);
    const double s2 = m00 * m00, s3 = std::sqrt(m00) * m00 * m00;
    const double n20 = central(M, 2, 0) / s2, n11 = central(M, 1, 1) / s2, n02 = central(M, 0, 2) / s2;
    const double n30 = central(M, 3, 0) / s3, n21 = central(M, 2, 1) / s3, n12 = central(M, 1, 2) / s3,
                 n03 = central(M, 0, 3) / s3;
    const double t0 = n30 + n12, t1 = n21 + n03;
    const double q0 = n30 - 3 * n12, q1 = 3 * n21 - n03;
    const double d = n20 - n02;
    h[0] = n20 + n02;
    h[1] = d * d + 4 * n11 * n11;
    h[2] = q0 * q0 + q1 * q1;
    h[3] = t0 * t0 + t1 * t1;
    // The first bracket squares (n12 + n03), not (n30 + n12), on purpose.
    const double u = n12 + n03;
    h[4] = q0 * t0 * (u * u - 3 * t1 * t1) + q1 * t1 * (3 * t0 * t0 - t1 * t1);
    h[5] = d * (t0 * t0 - t1 * t1) + 4 * n11 * t0 * t1;
    h[6] = q1 * t0 * (t0 * t0 - 3 * t1 * t1) - q0 * t1 * (3 * t0 * t0 - t1 * t1);
}

// value * 2^-sf rounded to the nearest integer (ties to even), saturated.
Rok64s scaled(double value, int sf) {
    const double r = std::nearbyint(std::ldexp(value, -sf));
    if (std::isnan(r)) return 0;
    if (r >= 9223372036854775808.0) return std::numeric_limits<Rok64s>::max();
    if (r < -9223372036854775808.0) return std::numeric_limits<Rok64s>::min();
    return Rok64s(r);
}

// The same for an exact integer: half to even for sf > 0, a saturating
// shift left for sf < 0.
Rok64s scaled(i128 v, int sf) {
    constexpr i128 lo = std::numeric_limits<Rok64s>::min(), hi = std::numeric_limits<Rok64s>::max();
    if (sf > 0) {
        if (sf > 126) return 0;  // |v| < 2^127: below one half
        const i128 q = v >> sf, rem = v - (q << sf), half = i128(1) << (sf - 1);
        v = rem > half || (rem == half && (q & 1)) ? q + 1 : q;
    } else if (sf < 0 && v != 0) {
        const int k = -sf;
        if (k >= 64 || (v > 0 ? v > (hi >> k) : v < (lo >> k))) return v > 0 ? Rok64s(hi) : Rok64s(lo);
        v *= i128(1) << k;
    }
    return Rok64s(v < lo ? lo : v > hi ? hi : v);
}

// The spatial moment with offset in exact integers; false on overflow.
bool exact_spatial(const RokiMomentState_64s* s, int channel, int m, int n, i128 ox, i128 oy, i128& out) {
    auto at = [&](int i, int j) { return i128(s->m[channel][4 * j + i]); };
    auto mul = [](i128 a, i128 b, i128& r) { return !__builtin_mul_overflow(a, b, &r); };
    auto add = [](i128 a, i128 b, i128& r) { return !__builtin_add_overflow(a, b, &r); };
    auto pw = [&](i128 x, int k, i128& r) {
        r = 1;
        for (int i = 0; i < k; ++i)
            if (!mul(r, x, r)) return false;
        return true;
    };
    i128 total = 0;
    for (int j = n; j >= 0; --j) {
        i128 inner = 0;
        for (int i = m; i >= 0; --i) {
            i128 c, t;
            if (!pw(ox, m - i, c) || !mul(c, i128(kBinomial[m][i]), c) || !mul(c, at(i, j), t) || !add(inner, t, inner))
                return false;
        }
        i128 c, t;
        if (!pw(oy, n - j, c) || !mul(c, i128(kBinomial[n][j]), c) || !mul(c, inner, t) || !add(total, t, total))
            return false;
    }
    out = total;
    return true;
}

}  // namespace

RokStatus moment_init_alloc_64f(RokiMomentState_64f** state, int hint) { return init_alloc(state, hint); }
RokStatus moment_init_alloc_64s(RokiMomentState_64s** state, int hint) { return init_alloc(state, hint); }
RokStatus moment_free_64f(RokiMomentState_64f* state) { return free_record(state, rokIdMoment64f); }
RokStatus moment_free_64s(RokiMomentState_64s* state) { return free_record(state, rokIdMoment64s); }

RokStatus moment_state_size_64s(int, int* size) {
    if (!size) return rokStatusNullPtr;
    *size = kMomentStateBytes;
    return rokStatusOk;
}

RokStatus moment_init_64s(RokiMomentState_64s* state, int hint) {
    if (!state) return rokStatusNullPtr;
    state->id = rokIdMoment64s;
    state->hint = hint;
    state->channels = -1;
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus moments_64f(const T* src, int step, RokiSize roi, RokiMomentState_64f* state) {
    return compute<RokiMomentState_64f, T, L>(src, step, roi, state);
}
template <class T, Layout L>
RokStatus moments_64s(const T* src, int step, RokiSize roi, RokiMomentState_64s* state) {
    return compute<RokiMomentState_64s, T, L>(src, step, roi, state);
}

#define ROK_MOMENTS(kind, T)                                                                                  \
    template RokStatus moments_##kind<T, Layout::C1>(const T*, int, RokiSize, RokiMomentState_##kind*);      \
    template RokStatus moments_##kind<T, Layout::C3>(const T*, int, RokiSize, RokiMomentState_##kind*);      \
    template RokStatus moments_##kind<T, Layout::AC4>(const T*, int, RokiSize, RokiMomentState_##kind*);
ROK_MOMENTS(64f, Rok8u)
ROK_MOMENTS(64f, Rok16u)
ROK_MOMENTS(64f, Rok32f)
ROK_MOMENTS(64s, Rok8u)
ROK_MOMENTS(64s, Rok16u)
#undef ROK_MOMENTS

RokStatus spatial_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, RokiPoint offset, Rok64f* value) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    *value = spatial(moments_of(s, channel), mOrd, nOrd, offset.x, offset.y);
    return rokStatusOk;
}

RokStatus central_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, Rok64f* value) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    *value = central(M, mOrd, nOrd);
    return rokStatusOk;
}

RokStatus normalized_spatial_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, RokiPoint offset,
                                 Rok64f* value) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    *value = spatial(M, mOrd, nOrd, offset.x, offset.y) * normalizer(M, mOrd, nOrd);
    return rokStatusOk;
}

RokStatus normalized_central_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, Rok64f* value) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    *value = central(M, mOrd, nOrd) * normalizer(M, mOrd, nOrd);
    return rokStatusOk;
}

RokStatus hu_64f(const RokiMomentState_64f* s, int channel, Rok64f* h) {
    if (RokStatus st = check_hu(s, h, channel); st != rokStatusOk) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    hu(M, h);
    return rokStatusOk;
}

RokStatus spatial_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, RokiPoint offset, Rok64s* value,
                      int scaleFactor) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    i128 exact;
    if (exact_spatial(s, channel, mOrd, nOrd, offset.x, offset.y, exact)) *value = scaled(exact, scaleFactor);
    else *value = scaled(spatial(moments_of(s, channel), mOrd, nOrd, offset.x, offset.y), scaleFactor);
    return rokStatusOk;
}

RokStatus central_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, Rok64s* value, int scaleFactor) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    *value = scaled(central(M, mOrd, nOrd), scaleFactor);
    return rokStatusOk;
}

RokStatus normalized_spatial_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, RokiPoint offset,
                                 Rok64s* value, int scaleFactor) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    *value = scaled(spatial(M, mOrd, nOrd, offset.x, offset.y) * normalizer(M, mOrd, nOrd), scaleFactor);
    return rokStatusOk;
}

RokStatus normalized_central_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, Rok64s* value,
                                 int scaleFactor) {
    bool skip = false;
    if (RokStatus st = check_get(s, value, mOrd, nOrd, channel, skip); st != rokStatusOk || skip) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    *value = scaled(central(M, mOrd, nOrd) * normalizer(M, mOrd, nOrd), scaleFactor);
    return rokStatusOk;
}

RokStatus hu_64s(const RokiMomentState_64s* s, int channel, Rok64s* h, int scaleFactor) {
    if (RokStatus st = check_hu(s, h, channel); st != rokStatusOk) return st;
    const Moments M = moments_of(s, channel);
    if (too_small(M)) return rokStatusMomentTooSmall;
    double d[7];
    hu(M, d);
    for (int i = 0; i < 7; ++i) h[i] = scaled(d[i], scaleFactor);
    return rokStatusOk;
}

}  // namespace rok::stats
