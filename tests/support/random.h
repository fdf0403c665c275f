// Fixed-seed random fill, so every failure reproduces.
#pragma once

#include <cstdint>
#include <limits>
#include <random>
#include <type_traits>

#include "guarded.h"

namespace rokt {

template <class T>
T random_value(std::mt19937& rng) {
    if constexpr (std::is_floating_point_v<T>) {
        return T(std::uniform_real_distribution<double>(-1000.0, 1000.0)(rng));
    } else {
        using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
        return T(std::uniform_int_distribution<Wide>(std::numeric_limits<T>::min(), std::numeric_limits<T>::max())(rng));
    }
}

// Fills every sample of the ROI (not the padding) with values over the type's
// whole range (floats: -1000 .. 1000).
template <class T>
void fill_random(GuardedImage<T>& img, std::uint32_t seed) {
    std::mt19937 rng(seed);
    for (int y = 0; y < img.height(); ++y)
        for (int i = 0; i < img.width() * img.channels(); ++i) img.row(y)[i] = random_value<T>(rng);
}

// Integer values from lo to hi inclusive, for inputs that must hit edges often.
template <class T>
void fill_random(GuardedImage<T>& img, std::uint32_t seed, std::int64_t lo, std::int64_t hi) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<std::int64_t> d(lo, hi);
    for (int y = 0; y < img.height(); ++y)
        for (int i = 0; i < img.width() * img.channels(); ++i) img.row(y)[i] = T(d(rng));
}

}  // namespace rokt
