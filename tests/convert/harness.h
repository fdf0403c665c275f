// Runs one conversion export over many ROI shapes on guarded images and
// compares every byte of the destination with what an independent scalar
// reference says: converted samples where the form writes, the old bytes
// everywhere else (padding, AC4 alpha).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "guarded.h"
#include "roki.h"

namespace convt {

struct Shape {
    int width, height, srcPad, dstPad;
    rokt::Guard guard;
};

// Widths 1..70 with odd and even pads (misaligned rows, vector tails), both
// guard sides, and contiguous images that run as one long row.
inline const std::vector<Shape>& shapes() {
    static const std::vector<Shape> all = [] {
        std::vector<Shape> v;
        for (int w = 1; w <= 70; ++w)
            v.push_back({w, 1 + w % 3, w % 3 == 0 ? 0 : 1 + w % 5, w % 4, w % 2 ? rokt::Guard::After : rokt::Guard::Before});
        v.push_back({7, 9, 0, 0, rokt::Guard::After});    // contiguous
        v.push_back({64, 5, 0, 0, rokt::Guard::Before});  // contiguous
        v.push_back({133, 3, 0, 0, rokt::Guard::After});  // contiguous
        v.push_back({301, 2, 3, 7, rokt::Guard::After});
        return v;
    }();
    return all;
}

template <class S, class D>
using Call = std::function<RokStatus(const S*, int, D*, int, RokiSize)>;

template <class S>
using Fill = std::function<void(rokt::GuardedImage<S>&, std::uint32_t seed)>;

// channels: samples per pixel; ac4: the fourth sample is never written.
template <class S, class D, class Ref>
void check_form(const char* what, int channels, bool ac4, const Call<S, D>& call, Ref ref, const Fill<S>& fill,
                const std::vector<Shape>* only = nullptr) {
    std::uint32_t seed = 1;
    for (const Shape& g : only ? *only : shapes()) {
        rokt::GuardedImage<S> src(g.width, g.height, channels, g.srcPad, g.guard);
        rokt::GuardedImage<D> dst(g.width, g.height, channels, g.dstPad, g.guard);
        fill(src, seed++);
        dst.fill_bytes(0xA5);
        std::vector<std::uint8_t> expect = dst.bytes();
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < (ac4 ? 3 : channels); ++c) {
                    const D v = ref(src.at(x, y, c));
                    const std::size_t at = std::size_t(y) * dst.step() + (std::size_t(x) * channels + c) * sizeof(D);
                    std::memcpy(expect.data() + at, &v, sizeof(D));
                }
        ASSERT_EQ(call(src.data(), src.step(), dst.data(), dst.step(), RokiSize{g.width, g.height}), rokStatusOk)
            << what << " " << g.width << "x" << g.height;
        const std::vector<std::uint8_t> got = dst.bytes();
        if (got != expect) {
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_EQ(int(got[i]), int(expect[i]))
                    << what << " " << g.width << "x" << g.height << " byte " << i << " (step " << dst.step() << ")";
        }
    }
}

// Values drawn from a pool of edge cases mixed with uniform values.
template <class S>
Fill<S> pool_fill(std::vector<S> pool, double lo, double hi) {
    return [pool, lo, hi](rokt::GuardedImage<S>& img, std::uint32_t seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> any(lo, hi);
        std::uniform_int_distribution<std::size_t> pick(0, pool.size() - 1);
        for (int y = 0; y < img.height(); ++y)
            for (int i = 0; i < img.width() * img.channels(); ++i)
                img.row(y)[i] = rng() % 2 ? pool[pick(rng)] : S(any(rng));
    };
}

}  // namespace convt
