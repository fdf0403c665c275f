// Exact integer rules shared by the row kernels: saturation and the
// scale-factor rule (multiply by 2^-sf, half to even for sf > 0, saturating
// left shift for sf < 0). Plain inline code: the readable statement of what
// every vector kernel must match.
#pragma once

#include <cstdint>
#include <limits>

namespace rok::kernels {

template <class T>
constexpr T saturate(std::int64_t x) {
    constexpr std::int64_t lo = std::numeric_limits<T>::min();
    constexpr std::int64_t hi = std::numeric_limits<T>::max();
    return T(x < lo ? lo : (x > hi ? hi : x));
}

// x * 2^-sf with round half to even, sf > 0, arithmetic shift.
constexpr std::int64_t shift_round_even(std::int64_t x, int sf) {
    if (sf >= 63) return 0;  // |x| < 2^62 for every exact result we scale
    return (x + (std::int64_t(1) << (sf - 1)) - 1 + ((x >> sf) & 1)) >> sf;
}

// The full scale-factor rule for an exact result x, then saturation to T.
template <class T>
constexpr T scale_saturate(std::int64_t x, int sf) {
    if (sf == 0) return saturate<T>(x);
    if (sf > 0) return saturate<T>(shift_round_even(x, sf));
    if (x == 0) return T(0);
    // Any shift of 32 or more saturates every non-zero 32-bit-range value.
    const int left = sf < -32 ? 32 : -sf;
    const std::int64_t limit = std::int64_t(1) << (62 - left);
    if (x >= limit) return std::numeric_limits<T>::max();
    if (x <= -limit) return std::numeric_limits<T>::min();
    return saturate<T>(x * (std::int64_t(1) << left));
}

}  // namespace rok::kernels
