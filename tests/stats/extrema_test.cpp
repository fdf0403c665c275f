// Minimum, maximum, their positions, and the per-sample extremes of two
// images, against direct scans.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "guarded.h"
#include "members.h"
#include "random.h"
#include "roki.h"

namespace {

using rokt::GuardedImage;

template <class T>
struct Members {
    std::string name;
    int nc, outs;
    RokStatus (*min)(const T*, int, RokiSize, T*);
    RokStatus (*max)(const T*, int, RokiSize, T*);
    RokStatus (*min_max)(const T*, int, RokiSize, T*, T*);
    RokStatus (*min_indx)(const T*, int, RokiSize, T*, int*, int*);
    RokStatus (*max_indx)(const T*, int, RokiSize, T*, int*, int*);
    RokStatus (*min_every)(const T*, int, T*, int, RokiSize);
    RokStatus (*max_every)(const T*, int, T*, int, RokiSize);
};

#define ROK_MEMBERS(t, T, l, nc, outs)                                                                        \
    Members<T> {                                                                                              \
        #t "_" #l, nc, outs, rokiMin_##t##_##l##R, rokiMax_##t##_##l##R, rokiMinMax_##t##_##l##R,             \
            rokiMinIndx_##t##_##l##R, rokiMaxIndx_##t##_##l##R, rokiMinEvery_##t##_##l##IR,                   \
            rokiMaxEvery_##t##_##l##IR                                                                        \
    }
ROK_MEMBER_TABLES

template <class T>
class Extrema : public ::testing::Test {};
using Types = ::testing::Types<Rok8u, Rok16s, Rok16u, Rok32f>;
TYPED_TEST_SUITE(Extrema, Types);

// First occurrence in raster order of channel c's extreme.
template <class T, bool Max>
void scan(const GuardedImage<T>& img, int c, T& value, int& x0, int& y0) {
    value = img.at(0, 0, c);
    x0 = y0 = 0;
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            if (Max ? img.at(x, y, c) > value : img.at(x, y, c) < value) {
                value = img.at(x, y, c);
                x0 = x;
                y0 = y;
            }
}

// Widths 1..70 over a small value range (many ties) on both guard sides.
TYPED_TEST(Extrema, MatchScans) {
    using T = TypeParam;
    for (const auto& f : members<T>()) {
        for (int w = 1; w <= 70; ++w) {
            const int h = 1 + w % 4;
            GuardedImage<T> img(w, h, f.nc, w % 3, w % 2 ? rokt::Guard::After : rokt::Guard::Before);
            rokt::fill_random(img, std::uint32_t(w), 10, 40);
            const std::string what = f.name + " w=" + std::to_string(w);
            T mn[5], mx[5], v[5], a[5], b[5];
            int xs[5], ys[5];
            const RokiSize roi{w, h};
            ASSERT_EQ(f.min(img.data(), img.step(), roi, mn), rokStatusOk);
            ASSERT_EQ(f.max(img.data(), img.step(), roi, mx), rokStatusOk);
            ASSERT_EQ(f.min_max(img.data(), img.step(), roi, a, b), rokStatusOk);
            for (int c = 0; c < f.outs; ++c) {
                T want;
                int x, y;
                scan<T, false>(img, c, want, x, y);
                EXPECT_EQ(mn[c], want) << what;
                EXPECT_EQ(a[c], want) << what;
                scan<T, true>(img, c, want, x, y);
                EXPECT_EQ(mx[c], want) << what;
                EXPECT_EQ(b[c], want) << what;
            }
            for (bool use_max : {false, true}) {
                ASSERT_EQ((use_max ? f.max_indx : f.min_indx)(img.data(), img.step(), roi, v, xs, ys), rokStatusOk);
                for (int c = 0; c < f.outs; ++c) {
                    T want;
                    int x, y;
                    if (use_max)
                        scan<T, true>(img, c, want, x, y);
                    else
                        scan<T, false>(img, c, want, x, y);
                    EXPECT_EQ(v[c], want) << what << " max=" << use_max;
                    EXPECT_EQ(xs[c], x) << what << " max=" << use_max << " c=" << c;
                    EXPECT_EQ(ys[c], y) << what << " max=" << use_max << " c=" << c;
                }
            }
        }
    }
}

// The per-sample extremes, in place; AC4 keeps the destination's alpha.
TYPED_TEST(Extrema, EveryMatchesSamples) {
    using T = TypeParam;
    for (const auto& f : members<T>()) {
        for (int w : {1, 7, 8, 15, 16, 17, 31, 33, 64, 65, 70, 300}) {
            GuardedImage<T> src(w, 3, f.nc, 1), dst(w, 3, f.nc, 2, rokt::Guard::Before);
            for (bool use_max : {false, true}) {
                rokt::fill_random(src, std::uint32_t(w));
                rokt::fill_random(dst, std::uint32_t(w + 1));
                const auto before = dst.bytes();
                const GuardedImage<T>& s = src;
                ASSERT_EQ((use_max ? f.max_every : f.min_every)(src.data(), src.step(), dst.data(), dst.step(), {w, 3}),
                          rokStatusOk);
                const T* old = reinterpret_cast<const T*>(before.data());
                for (int y = 0; y < 3; ++y)
                    for (int i = 0; i < w * f.nc; ++i) {
                        const T o = old[std::size_t(y) * std::size_t(dst.step()) / sizeof(T) + std::size_t(i)];
                        const T n = s.row(y)[i];
                        const T want = i % f.nc >= f.outs ? o : use_max ? (n > o ? n : o) : (n < o ? n : o);
                        ASSERT_EQ(dst.row(y)[i], want) << f.name << " w=" << w << " i=" << i;
                    }
            }
        }
    }
}

// Extreme values of the type: all -32768, all 255 and the like.
TYPED_TEST(Extrema, TypeLimits) {
    using T = TypeParam;
    const T lo = std::numeric_limits<T>::lowest(), hi = std::numeric_limits<T>::max();
    for (const auto& f : members<T>()) {
        GuardedImage<T> img(45, 3, f.nc);
        for (T fill : {lo, hi}) {
            for (int y = 0; y < 3; ++y)
                for (int i = 0; i < 45 * f.nc; ++i) img.row(y)[i] = fill;
            T a[4], b[4];
            ASSERT_EQ(f.min_max(img.data(), img.step(), {45, 3}, a, b), rokStatusOk);
            int xs[4], ys[4];
            T v[4];
            ASSERT_EQ(f.max_indx(img.data(), img.step(), {45, 3}, v, xs, ys), rokStatusOk);
            for (int c = 0; c < f.outs; ++c) {
                EXPECT_EQ(a[c], fill);
                EXPECT_EQ(b[c], fill);
                EXPECT_EQ(v[c], fill);
                EXPECT_EQ(xs[c], 0);
                EXPECT_EQ(ys[c], 0);
            }
        }
    }
}

// The minimum occurs at (5, 2) and (1, 3): the first in raster order wins.
TEST(ExtremaIndex, FirstOccurrenceInRasterOrder) {
    GuardedImage<Rok8u> img(8, 5, 1);
    rokt::fill_random(img, 1, 50, 60);
    img.at(5, 2) = 3;
    img.at(1, 3) = 3;
    Rok8u v;
    int x, y;
    ASSERT_EQ(rokiMinIndx_8u_C1R(img.data(), img.step(), {8, 5}, &v, &x, &y), rokStatusOk);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(x, 5);
    EXPECT_EQ(y, 2);
}

// The search stops at the first row holding 0 (255 for the maximum): the
// ROI claims more rows than the buffer has, and the rows past the guard
// page are never read.
TEST(ExtremaIndex, StopsAtTheTypesExtreme) {
    GuardedImage<Rok8u> img(64, 3, 1);
    rokt::fill_random(img, 2, 1, 254);
    img.at(9, 2) = 0;
    img.at(40, 2) = 255;
    Rok8u v;
    int x, y;
    ASSERT_EQ(rokiMinIndx_8u_C1R(img.data(), img.step(), {64, 1000}, &v, &x, &y), rokStatusOk);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(x, 9);
    EXPECT_EQ(y, 2);
    ASSERT_EQ(rokiMaxIndx_8u_C1R(img.data(), img.step(), {64, 1000}, &v, &x, &y), rokStatusOk);
    EXPECT_EQ(v, 255);
    EXPECT_EQ(x, 40);
    EXPECT_EQ(y, 2);
}

// NaN samples never become the extreme and do not crash the searches.
TEST(Extrema32f, NaNsAreSkipped) {
    GuardedImage<Rok32f> img(33, 2, 1);
    rokt::fill_random(img, 5);
    for (int x = 0; x < 33; x += 3) img.at(x, 0) = std::numeric_limits<float>::quiet_NaN();
    float want_min = INFINITY, want_max = -INFINITY;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 33; ++x)
            if (!std::isnan(img.at(x, y))) {
                want_min = std::fmin(want_min, img.at(x, y));
                want_max = std::fmax(want_max, img.at(x, y));
            }
    Rok32f mn, mx;
    ASSERT_EQ(rokiMinMax_32f_C1R(img.data(), img.step(), {33, 2}, &mn, &mx), rokStatusOk);
    EXPECT_EQ(mn, want_min);
    EXPECT_EQ(mx, want_max);
    int x, y;
    ASSERT_EQ(rokiMinIndx_32f_C1R(img.data(), img.step(), {33, 2}, &mn, &x, &y), rokStatusOk);
    EXPECT_EQ(mn, want_min);
    EXPECT_EQ(img.at(x, y), want_min);
}

}  // namespace
