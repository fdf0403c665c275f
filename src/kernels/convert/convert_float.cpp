// Float to integer conversions with a rounding mode, plain and scaled.
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "kernels/convert/convert.h"
#include "kernels/convert/convert_engine.h"
#include "kernels/convert/convert_pack.h"

namespace rok::kernels {

namespace {

// Rounds v and saturates it to D; F is the width the rule is computed in
// (float suffices for every destination of up to 16 bits, double holds every
// 32-bit bound exactly). NaN converts as -infinity would, to D's minimum.
template <class D, bool CurrentMode, class F>
inline D round_to(F v) {
    constexpr F lo = F(std::numeric_limits<D>::min());
    constexpr F hi = F(std::numeric_limits<D>::max());
    if (v != v) return std::numeric_limits<D>::min();
    if constexpr (CurrentMode) {
        // Modes 0 and 1: the processor's rounding control, which the caller
        // set to truncation or nearest-even, rounds; then saturation.
        v = std::nearbyint(v);
        v = v < lo ? lo : v;
        v = v > hi ? hi : v;
        return D(v);
    } else {
        // Saturate first, then round half away from zero exactly: the
        // fraction v - trunc(v) is exact in F, so ties are seen as ties.
        v = v < lo ? lo : v;
        v = v > hi ? hi : v;
        F t = std::trunc(v);
        const F frac = v - t;
        t += frac >= F(0.5) ? F(1) : (frac <= F(-0.5) ? F(-1) : F(0));
        return D(t);
    }
}

}  // namespace

// The scalar rule for the head and tail, 32 samples per step between them.
template <class D, bool CurrentMode>
void convert_float_rows(const float* src, D* dst, int n) {
    auto rule = [src](int i) { return round_to<D, CurrentMode>(src[i]); };
    const int head = pack::head_to_boundary(dst, n);
    engine::plain(dst, 0, head, rule);
    const __m256 lo = _mm256_set1_ps(float(std::numeric_limits<D>::min()));
    const __m256 hi = _mm256_set1_ps(float(std::numeric_limits<D>::max()));
    int i = head;
    for (; i + 32 <= n; i += 32) {
        const float* s = src + i;
        pack::store32(dst + i, pack::round_clamped<CurrentMode>(_mm256_loadu_ps(s), lo, hi),
                      pack::round_clamped<CurrentMode>(_mm256_loadu_ps(s + 8), lo, hi),
                      pack::round_clamped<CurrentMode>(_mm256_loadu_ps(s + 16), lo, hi),
                      pack::round_clamped<CurrentMode>(_mm256_loadu_ps(s + 24), lo, hi));
    }
    engine::plain(dst, i, n, rule);
}

template <class D>
void convert_float(const float* src, D* dst, int n, int mode) {
    if (mode == 0 || mode == 1)
        convert_float_rows<D, true>(src, dst, n);
    else
        convert_float_rows<D, false>(src, dst, n);
}

template <class D>
void convert_float_sfs(const float* src, D* dst, int n, int mode, int scaleFactor) {
    // Beyond +-200 every finite float rounds to 0 or saturates, as it would
    // with the exact factor; the clamp keeps the factor finite.
    const int s = scaleFactor < -200 ? -200 : (scaleFactor > 200 ? 200 : scaleFactor);
    const double factor = std::ldexp(1.0, -s);
    if (mode == 0 || mode == 1)
        engine::run(dst, n, false, [=](int i) { return round_to<D, true>(double(src[i]) * factor); });
    else
        engine::run(dst, n, false, [=](int i) { return round_to<D, false>(double(src[i]) * factor); });
}

template void convert_float<std::uint8_t>(const float*, std::uint8_t*, int, int);
template void convert_float<std::int8_t>(const float*, std::int8_t*, int, int);
template void convert_float<std::uint16_t>(const float*, std::uint16_t*, int, int);
template void convert_float<std::int16_t>(const float*, std::int16_t*, int, int);

template void convert_float_sfs<std::uint8_t>(const float*, std::uint8_t*, int, int, int);
template void convert_float_sfs<std::int8_t>(const float*, std::int8_t*, int, int, int);
template void convert_float_sfs<std::uint16_t>(const float*, std::uint16_t*, int, int, int);
template void convert_float_sfs<std::int16_t>(const float*, std::int16_t*, int, int, int);
template void convert_float_sfs<std::int32_t>(const float*, std::int32_t*, int, int, int);
template void convert_float_sfs<std::uint32_t>(const float*, std::uint32_t*, int, int, int);

}  // namespace rok::kernels
