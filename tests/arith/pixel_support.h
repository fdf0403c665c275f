// Shared pieces of the pixel-wise family tests (logic, shifts, compare,
// threshold, unary math, alpha): edge-heavy random fills, a check that the
// processed samples hold what a reference says and every other byte (AC4
// alpha, row padding) is as it was, and the ROI shapes that reach vector
// tails and odd steps.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "guarded.h"
#include "roki.h"

namespace rokt::pixel {

// Random samples with the range ends and the values around 0 over-represented.
template <class T>
T edgy(std::mt19937& rng) {
    if constexpr (std::is_floating_point_v<T>) {
        const T edges[] = {T(0), T(-0.0), T(1), T(-1), T(0.5), std::numeric_limits<T>::infinity(),
                           -std::numeric_limits<T>::infinity(), std::numeric_limits<T>::quiet_NaN()};
        if (rng() % 4 == 0) return edges[rng() % 8];
        return T(std::uniform_real_distribution<double>(-300.0, 300.0)(rng));
    } else {
        constexpr T lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
        const T edges[] = {lo, T(lo + 1), T(0), T(1), T(2), T(hi - 1), hi, T(std::is_signed_v<T> ? -1 : 3)};
        if (rng() % 3 == 0) return edges[rng() % 8];
        using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
        return T(std::uniform_int_distribution<Wide>(lo, hi)(rng));
    }
}

template <class T>
void fill_edgy(GuardedImage<T>& img, std::mt19937& rng) {
    for (int y = 0; y < img.height(); ++y)
        for (int i = 0; i < img.width() * img.channels(); ++i) img.row(y)[i] = edgy<T>(rng);
}

// Bit-exact sample comparison (a float NaN equals a NaN of the same bits).
template <class T>
bool same_bits(T a, T b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// The ROI shapes every family runs: each width 1..70 on two rows, and a few
// taller images whose rows end on odd samples.
struct Roi {
    int width, height;
};
inline std::vector<Roi> tail_rois() {
    std::vector<Roi> r;
    for (int w = 1; w <= 70; ++w) r.push_back({w, 2});
    for (int w : {97, 131, 300, 1031}) r.push_back({w, 3});
    return r;
}

// Checks a destination after a call: processed samples (channels 0..2 of AC4
// images, every channel otherwise) equal want(x, y, c) bit for bit; every
// other byte of the buffer, row padding and AC4 alpha, equals `before`.
template <class T, class Want>
::testing::AssertionResult check_image(const GuardedImage<T>& d, const std::vector<std::uint8_t>& before, bool ac4,
                                       Want&& want) {
    const auto after = d.bytes();
    std::vector<bool> processed(after.size(), false);
    for (int y = 0; y < d.height(); ++y)
        for (int x = 0; x < d.width(); ++x)
            for (int c = 0; c < d.channels(); ++c) {
                if (ac4 && c == 3) continue;
                const T got = d.at(x, y, c), expected = want(x, y, c);
                if (!same_bits(got, expected))
                    return ::testing::AssertionFailure() << "at x=" << x << " y=" << y << " c=" << c << ": got "
                                                         << +got << ", want " << +expected;
                const std::size_t off = std::size_t(y) * d.step() + (std::size_t(x) * d.channels() + c) * sizeof(T);
                for (std::size_t b = 0; b < sizeof(T); ++b) processed[off + b] = true;
            }
    for (std::size_t i = 0; i < after.size(); ++i)
        if (!processed[i] && after[i] != before[i])
            return ::testing::AssertionFailure() << "byte " << i << " outside the processed samples was written";
    return ::testing::AssertionSuccess();
}

}  // namespace rokt::pixel
