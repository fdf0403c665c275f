// Threshold row kernels, and the level search of Otsu's method.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

enum class ThresholdKind {
    Lt,         // d = s < t ? t : s
    Gt,         // d = s > t ? t : s
    LtVal,      // d = s < t ? v : s
    GtVal,      // d = s > t ? v : s
    LtValGtVal  // d = s < t ? v : (s > t2 ? v2 : s)
};

// Per-channel parameters: sample i of a row uses t[i % channels] and so on
// (channels 1, 3 or 4; rows start at channel 0). Unused ones may be null.
template <class T>
struct ThresholdParams {
    const T* t;
    const T* v;
    const T* t2;
    const T* v2;
    int channels;
    // Whole vectors go past the cache (non-temporal stores, fenced before
    // the row returns): for results too large to stay cached.
    bool stream = false;
};

// n samples of s to d by the rule of `kind`. Floats compare as IEEE does (a
// NaN sample or threshold never passes a test). 8u, 16u, 16s, 32f; s may
// equal d (in place).
template <class T>
void threshold_row(const T* s, T* d, int n, ThresholdKind kind, const ThresholdParams<T>& p);

// Otsu's level: the t that maximises the between-class variance of the
// classes {levels <= t} and {levels > t}, both non-empty, computed in
// extended precision; the lowest such t where several are equal; the one
// level present when there is only one.
Rok8u otsu_level(const std::uint64_t hist[256]);

}  // namespace rok::kernels
