// Independent scalar references for the integer rules, written from the rule
// in wide arithmetic; they never call library code.
#pragma once

#include <cstdint>
#include <limits>

namespace rokt::ref {

using Wide = __int128;

template <class T>
T saturate(Wide x) {
    const Wide lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    return T(x < lo ? lo : x > hi ? hi : x);
}

// x / 2^sf rounded to the nearest integer, ties to the even neighbour.
inline Wide divide_pow2_half_even(Wide x, int sf) {
    if (sf > 120) return 0;
    const Wide d = Wide(1) << sf;
    Wide q = x / d, r = x % d;
    if (r < 0) {  // make q the floor and r non-negative
        q -= 1;
        r += d;
    }
    const Wide twice = 2 * r;
    if (twice > d || (twice == d && (q & 1) != 0)) q += 1;
    return q;
}

// The scale-factor rule: exact result times 2^-sf, then saturation.
template <class T>
T scale(Wide x, int sf) {
    if (sf >= 0) return saturate<T>(divide_pow2_half_even(x, sf));
    const int left = sf < -60 ? 60 : -sf;  // 2^60 saturates every 32-bit type
    return saturate<T>(x * (Wide(1) << left));
}

}  // namespace rokt::ref
