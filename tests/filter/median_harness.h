// Shared by the median tests: the ranking rule written out (integers by
// value, floats in IEEE totalOrder), fills that provoke ties and special
// float values, and a runner that compares every destination byte (padding
// and alpha included) with a brute-force reference.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "roki.h"

namespace medt {

using rokt::Guard;
using rokt::GuardedImage;

// Whether a ranks below b: integers by value; floats by IEEE totalOrder,
// negative numbers (signed zero and NaNs included) before positive ones,
// the larger magnitude first among negatives and last among positives.
template <class T>
bool rank_less(T a, T b) {
    if constexpr (std::is_floating_point_v<T>) {
        using U = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
        U ua, ub;
        std::memcpy(&ua, &a, sizeof a);
        std::memcpy(&ub, &b, sizeof b);
        const U sign = U(1) << (8 * sizeof(T) - 1);
        const bool na = ua & sign, nb = ub & sign;
        if (na != nb) return na;
        return na ? (ua & ~sign) > (ub & ~sign) : (ua & ~sign) < (ub & ~sign);
    } else {
        return a < b;
    }
}

// The value of rank n / 2 + 1 (1-based) of the n values.
template <class T>
T median_of(std::vector<T> v) {
    std::sort(v.begin(), v.end(), rank_less<T>);
    return v[v.size() / 2];
}

// Sample values: `spread` > 0 draws integers 0 .. spread-1 (many ties);
// 0 draws over the type's range, and float images also get NaNs of both
// signs, infinities and signed zeros in about one sample in eight.
template <class T>
void fill(GuardedImage<T>& img, std::uint32_t seed, int spread) {
    if (spread > 0) {
        rokt::fill_random(img, seed, 0, spread - 1);
        return;
    }
    rokt::fill_random(img, seed);
    if constexpr (std::is_floating_point_v<T>) {
        const T specials[] = {std::numeric_limits<T>::quiet_NaN(), -std::numeric_limits<T>::quiet_NaN(),
                              std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity(), T(0), -T(0)};
        std::mt19937 rng(seed + 99);
        for (int y = 0; y < img.height(); ++y)
            for (int i = 0; i < img.width() * img.channels(); ++i)
                if (rng() % 8 == 0) img.row(y)[i] = specials[rng() % 6];
    }
}

// Pixels the filter reads beyond each side of the ROI.
struct Border {
    int left, top, right, bottom;
};

// A source sample at ROI-relative coordinates (x from -left, y from -top).
template <class T>
struct Source {
    const GuardedImage<T>& img;
    Border b;
    T operator()(int x, int y, int c) const { return img.at(x + b.left, y + b.top, c); }
};

struct Case {
    int channels, processed;  // stored and computed channels per pixel
    RokiSize roi;
    Border border;
    std::uint32_t seed;
    int spread = 0;
    Guard guard = Guard::After;
    int pad = 1;  // samples of row padding; odd pads give odd steps
};

// Calls call(srcRoi, srcStep, dst, dstStep, roi) on a source that holds
// exactly the pixels the filter may read (with Guard::After its last byte is
// the last byte of the bottom-right neighbourhood, with Guard::Before its
// first byte that of the top-left one) and checks the status and every
// destination byte: channels below `processed` hold want(source, x, y, c),
// every other byte keeps its value.
template <class T, class Call, class Want>
void expect_filter(const Case& k, Call&& call, Want&& want, RokStatus status = rokStatusOk) {
    SCOPED_TRACE(testing::Message() << "roi " << k.roi.width << "x" << k.roi.height << " border " << k.border.left
                                    << "," << k.border.top << "," << k.border.right << "," << k.border.bottom
                                    << " channels " << k.channels << " seed " << k.seed);
    const Border& b = k.border;
    GuardedImage<T> src(k.roi.width + b.left + b.right, k.roi.height + b.top + b.bottom, k.channels, k.pad, k.guard);
    fill(src, k.seed, k.spread);
    GuardedImage<T> dst(k.roi.width, k.roi.height, k.channels, k.pad);
    dst.fill_bytes(0xA7);
    GuardedImage<T> expected(k.roi.width, k.roi.height, k.channels, k.pad);
    expected.fill_bytes(0xA7);
    const Source<T> at{src, b};
    for (int y = 0; y < k.roi.height; ++y)
        for (int x = 0; x < k.roi.width; ++x)
            for (int c = 0; c < k.processed; ++c) expected.at(x, y, c) = want(at, x, y, c);
    ASSERT_EQ(call(&src.at(b.left, b.top), src.step(), dst.data(), dst.step(), k.roi), status);
    if (dst.bytes() != expected.bytes()) {
        for (int y = 0; y < k.roi.height; ++y)
            for (int i = 0; i < k.roi.width * k.channels; ++i)
                if (std::memcmp(&dst.row(y)[i], &expected.row(y)[i], sizeof(T)) != 0)
                    FAIL() << "sample " << i << " of row " << y << ": got " << +dst.row(y)[i] << " want "
                           << +expected.row(y)[i];
        FAIL() << "padding written";
    }
}

// The median of channel c over the mw x mh block whose top-left pixel is
// (x - ax, y - ay).
template <class T>
T block_median(const Source<T>& at, int x, int y, int c, int mw, int mh, int ax, int ay) {
    std::vector<T> v;
    for (int j = 0; j < mh; ++j)
        for (int i = 0; i < mw; ++i) v.push_back(at(x - ax + i, y - ay + j, c));
    return median_of(v);
}

}  // namespace medt
