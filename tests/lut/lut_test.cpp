// Piecewise look-up tables of every type and layout against the per-value
// references, on guarded images with odd steps; the worked cases; the order
// of the checks with nothing written on error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "guarded.h"
#include "members.h"
#include "random.h"

namespace {

using namespace rokt::lut;
using rokt::GuardedImage;

// Levels and values of one channel.
template <class V>
struct Curve {
    std::vector<V> levels, values;
    int n() const { return int(levels.size()); }
};

template <class T>
Curve<Level<T>> random_curve(std::mt19937& rng, int n, bool sorted) {
    Curve<Level<T>> c;
    if constexpr (std::is_same_v<T, Rok32f>) {
        std::uniform_real_distribution<float> d(-1100.0f, 1100.0f);
        for (int i = 0; i < n; ++i) {
            c.levels.push_back(d(rng));
            c.values.push_back(d(rng));
        }
    } else {
        // A little beyond the sample range on both sides, so clamping is hit.
        const std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
        const std::int64_t span = hi - lo;
        std::uniform_int_distribution<std::int64_t> lev(lo - span / 16, hi + span / 16), val(lo - span / 8, hi + span / 8);
        for (int i = 0; i < n; ++i) {
            c.levels.push_back(Rok32s(lev(rng)));
            c.values.push_back(Rok32s(val(rng)));
        }
    }
    if (sorted) std::sort(c.levels.begin(), c.levels.end());
    return c;
}

template <class T>
T mapped(Shape shape, const Curve<Level<T>>& c, T x) {
    if constexpr (std::is_same_v<T, Rok32f>)
        return float_map(shape, c.levels.data(), c.values.data(), c.n(), x);
    else
        return integer_map<T>(shape, c.levels.data(), c.values.data(), c.n(), x);
}

// Runs one member on a w x h image and compares every byte of the
// destination buffer, padding included, with the reference.
template <class T>
void check_member(const Member<T>& m, const std::vector<Curve<Level<T>>>& curves, int w, int h, int pad,
                  rokt::Guard guard, std::uint32_t seed) {
    GuardedImage<T> src(w, h, m.nc, pad, guard), dst(w, h, m.nc, (pad + 1) % 3, guard);
    rokt::fill_random(src, seed);
    if constexpr (std::is_same_v<T, Rok32f>) src.at(0, 0, 0) = std::nanf("");  // copied, whatever the curve
    rokt::fill_random(dst, seed + 1);
    GuardedImage<T>& input = m.inPlace ? dst : src;
    if (m.inPlace)
        for (int y = 0; y < h; ++y) std::memcpy(dst.row(y), src.row(y), std::size_t(w) * m.nc * sizeof(T));
    auto expected = dst.bytes();
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < m.outs; ++c) {
                const T v = mapped<T>(m.shape, curves[std::size_t(c)], input.at(x, y, c));
                std::memcpy(expected.data() + std::size_t(dst.step()) * y + (std::size_t(x) * m.nc + c) * sizeof(T), &v,
                            sizeof(T));
            }
    const Level<T>* values[4];
    const Level<T>* levels[4];
    int n[4];
    for (int c = 0; c < m.outs; ++c) {
        values[c] = curves[std::size_t(c)].values.data();
        levels[c] = curves[std::size_t(c)].levels.data();
        n[c] = curves[std::size_t(c)].n();
    }
    const auto srcBefore = src.bytes();
    ASSERT_EQ(m.fn(src.data(), src.step(), dst.data(), dst.step(), {w, h}, values, levels, n), rokStatusOk) << m.name;
    const auto after = dst.bytes();
    if (after != expected) {
        std::size_t i = 0;
        while (after[i] == expected[i]) ++i;
        FAIL() << m.name << " " << w << "x" << h << " pad " << pad << ": first wrong byte " << i << " (row "
               << i / std::size_t(dst.step()) << ")";
    }
    if (!m.inPlace) {
        EXPECT_EQ(src.bytes(), srcBefore) << m.name;
    }
}

template <class T>
class Piecewise : public ::testing::Test {};
using Types = ::testing::Types<Rok8u, Rok16u, Rok16s, Rok32f>;
TYPED_TEST_SUITE(Piecewise, Types);

// Random curves: increasing and unordered levels, values beyond the sample
// range, 2 to 9 levels, a different curve per channel, then one curve shared
// by every channel (the 8-bit shuffle path).
TYPED_TEST(Piecewise, MatchesReference) {
    using T = TypeParam;
    constexpr bool bytes = std::is_same_v<T, Rok8u>;
    std::mt19937 rng(17);
    for (const auto& m : members<T>()) {
        for (int trial = 0; trial < 4; ++trial) {
            std::vector<Curve<Level<T>>> curves;
            for (int c = 0; c < 4; ++c)
                curves.push_back(random_curve<T>(rng, 2 + int(rng() % 8), trial % 2 == 0));
            if (trial == 3) curves.assign(4, curves[0]);
            const std::vector<int> widths =
                bytes && trial >= 2 ? std::vector<int>{1, 2, 3, 7, 8, 15, 16, 17, 31, 32, 33, 47, 63, 64, 65, 70, 129}
                                    : std::vector<int>{1, 5, 33};
            for (int w : widths) {
                check_member(m, curves, w, 3, w % 3, w % 2 ? rokt::Guard::After : rokt::Guard::Before,
                             std::uint32_t(w + 100 * trial));
                if (::testing::Test::HasFatalFailure()) return;
            }
        }
    }
}

// A contiguous image (step equal to the row) runs as one long row.
TEST(Piecewise, PackedRowsMatchReference) {
    std::mt19937 rng(5);
    for (const auto& m : members<Rok8u>()) {
        if (m.nc == 4 && m.outs == 3) continue;
        std::vector<Curve<Rok32s>> curves(4, random_curve<Rok8u>(rng, 6, false));
        check_member(m, curves, 37, 5, 0, rokt::Guard::After, 9);
    }
}

// The worked cases, one channel each, on a ramp over the whole 8-bit range.
TEST(Piecewise, WorkedCases8u) {
    struct Case {
        const char* what;
        RokStatus (*fn)(const Rok8u*, int, Rok8u*, int, RokiSize, const Rok32s*, const Rok32s*, int);
        std::vector<Rok32s> levels, values;
        std::function<int(int)> want;
    };
    const Case cases[] = {
        {"10..19 to 100", rokiLUT_8u_C1R, {10, 20}, {100, 0}, [](int v) { return v >= 10 && v < 20 ? 100 : v; }},
        {"later intervals overwrite", rokiLUT_8u_C1R, {0, 100, 50, 150}, {1, 2, 3, 4},
         [](int v) { return v < 50 ? 1 : v < 150 ? 3 : v; }},
        {"identity from the last level", rokiLUT_8u_C1R, {10, 30, 20}, {7, 9, 0},
         [](int v) { return v >= 10 && v < 20 ? 7 : v; }},
        {"values clamp", rokiLUT_8u_C1R, {0, 128, 256}, {-5, 300, 0}, [](int v) { return v < 128 ? 0 : 255; }},
        {"levels beyond the range", rokiLUT_8u_C1R, {-100, 300}, {7, 9}, [](int) { return 7; }},
        {"linear identity", rokiLUT_Linear_8u_C1R, {0, 255}, {0, 255}, [](int v) { return v; }},
        // s = 1/2: x/2 + 0.5 truncated, so ties (odd x) round up.
        {"linear ties round up", rokiLUT_Linear_8u_C1R, {0, 256}, {0, 128}, [](int v) { return (v + 1) / 2; }},
        {"linear falling", rokiLUT_Linear_8u_C1R, {0, 256}, {255, -1}, [](int v) { return 255 - v; }},
        {"cubic of 3 levels is linear", rokiLUT_Cubic_8u_C1R, {0, 100, 256}, {0, 200, 256},
         [](int v) {
             return v < 100 ? 2 * v : std::min(255, int((200 + 0.5 - 100 * (56.0 / 156)) + (56.0 / 156) * v));
         }},
        // Points on y = x^2 / 256: the cubic is that parabola.
        {"cubic through a parabola", rokiLUT_Cubic_8u_C1R, {0, 64, 128, 192, 256}, {0, 16, 64, 144, 256},
         [](int v) { return (v * v + 128) / 256; }},
    };
    GuardedImage<Rok8u> src(256, 1, 1), dst(256, 1, 1);
    for (int v = 0; v < 256; ++v) src.at(v, 0) = Rok8u(v);
    for (const auto& c : cases) {
        ASSERT_EQ(c.fn(src.data(), 256, dst.data(), 256, {256, 1}, c.values.data(), c.levels.data(),
                       int(c.levels.size())),
                  rokStatusOk)
            << c.what;
        for (int v = 0; v < 256; ++v) ASSERT_EQ(dst.at(v, 0), c.want(v)) << c.what << " at " << v;
    }
}

// 16-bit tables: entry v + 32768 for signed samples, both ends of the range
// reachable, and truncation toward zero for negative linear values.
TEST(Piecewise, SixteenBitRanges) {
    const Rok16s s[5] = {-32768, -32767, 0, 32766, 32767};
    Rok16s d[5];
    const Rok32s levels[4] = {-32768, -32767, 32767, 32768}, values[4] = {-100, 5, 77, 0};
    ASSERT_EQ(rokiLUT_16s_C1R(s, 10, d, 10, {5, 1}, values, levels, 4), rokStatusOk);
    const Rok16s want[5] = {-100, 5, 5, 5, 77};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(d[i], want[i]) << i;

    // s = -0.3: entry x is trunc(-9.5 - 0.3 x): x = 1 gives -9 (not -10).
    const Rok32s lev[2] = {0, 10}, val[2] = {-10, -13};
    const Rok16s x[4] = {0, 1, 5, 10};
    Rok16s y[4];
    ASSERT_EQ(rokiLUT_Linear_16s_C1R(x, 8, y, 8, {4, 1}, val, lev, 2), rokStatusOk);
    EXPECT_EQ(y[0], -9);
    EXPECT_EQ(y[1], -9);
    EXPECT_EQ(y[2], -11);
    EXPECT_EQ(y[3], 10);

    const Rok16u u[3] = {0, 40000, 65535};
    Rok16u v[3];
    const Rok32s ul[3] = {0, 40000, 65536}, uv[3] = {-1, 70000, 0};
    ASSERT_EQ(rokiLUT_16u_C1R(u, 6, v, 6, {3, 1}, uv, ul, 3), rokStatusOk);
    EXPECT_EQ(v[0], 0);
    EXPECT_EQ(v[1], 65535);
    EXPECT_EQ(v[2], 65535);
}

// Float: the first interval that holds the value wins; NaN and values in no
// interval are copied; linear and cubic are evaluated per sample.
TEST(Piecewise, FloatIntervals) {
    const Rok32f s[6] = {0.5f, 1.5f, 2.5f, -1.0f, std::nanf(""), 3.0f};
    Rok32f d[6];
    const Rok32f levels[4] = {0.0f, 2.0f, 1.0f, 3.0f}, values[4] = {10.0f, 20.0f, 30.0f, 40.0f};
    ASSERT_EQ(rokiLUT_32f_C1R(s, 24, d, 24, {6, 1}, values, levels, 4), rokStatusOk);
    EXPECT_EQ(d[0], 10.0f);
    EXPECT_EQ(d[1], 10.0f) << "[0, 2) comes before [1, 3)";
    EXPECT_EQ(d[2], 30.0f);
    EXPECT_EQ(d[3], -1.0f);
    EXPECT_TRUE(std::isnan(d[4]));
    EXPECT_EQ(d[5], 3.0f) << "the last level is outside every interval";

    const Rok32f ls[2] = {0.0f, 4.0f}, vs[2] = {1.0f, 3.0f};
    const Rok32f x[3] = {0.0f, 1.0f, 3.5f};
    Rok32f y[3];
    ASSERT_EQ(rokiLUT_Linear_32f_C1R(x, 12, y, 12, {3, 1}, vs, ls, 2), rokStatusOk);
    EXPECT_EQ(y[0], 1.0f);
    EXPECT_EQ(y[1], 1.5f);
    EXPECT_EQ(y[2], 2.75f);

    // Cubic through points of y = x^3: exact at every sample.
    const Rok32f lc[5] = {0, 1, 2, 3, 4}, vc[5] = {0, 1, 8, 27, 64};
    const Rok32f xc[4] = {0.5f, 1.5f, 2.5f, 3.5f};
    Rok32f yc[4];
    ASSERT_EQ(rokiLUT_Cubic_32f_C1R(xc, 16, yc, 16, {4, 1}, vc, lc, 5), rokStatusOk);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(yc[i], xc[i] * xc[i] * xc[i]) << i;
    // Two equal levels among the four: that interval is linear.
    const Rok32f ld[4] = {0, 1, 1, 2}, vd[4] = {0, 4, 9, 6};
    const Rok32f xd[2] = {0.25f, 1.5f};
    Rok32f yd[2];
    ASSERT_EQ(rokiLUT_Cubic_32f_C1R(xd, 8, yd, 8, {2, 1}, vd, ld, 4), rokStatusOk);
    EXPECT_EQ(yd[0], 1.0f);
    EXPECT_EQ(yd[1], 7.5f);
}

// Statuses in order, and the destination untouched on every error.
TEST(Piecewise, OrderOfChecks) {
    Rok8u src[64] = {}, dst[64];
    std::memset(dst, 0xA5, sizeof dst);
    Rok32f fsrc[16] = {}, fdst[16];
    std::memset(fdst, 0xA5, sizeof fdst);
    const Rok32s lv[2] = {0, 10}, vl[2] = {1, 2};
    const Rok32f flv[2] = {0, 1}, fvl[2] = {1, 2};
    const Rok32s* pl[3] = {lv, lv, lv};
    const Rok32s* pv[3] = {vl, vl, vl};
    const Rok32s* pnull[3] = {vl, nullptr, vl};
    const int n3[3] = {2, 2, 2}, n3bad[3] = {2, 2, 1};
    const RokiSize ok{4, 4}, bad{4, 0};
    struct Row {
        const char* what;
        RokStatus got, want;
    };
    const Row rows[] = {
        {"null source", rokiLUT_8u_C1R(nullptr, 0, dst, 0, bad, vl, lv, 1), rokStatusNullPtr},
        {"null values", rokiLUT_Linear_8u_C1R(src, 4, dst, 4, ok, nullptr, lv, 2), rokStatusNullPtr},
        {"null levels", rokiLUT_Cubic_8u_C1IR(dst, 4, ok, vl, nullptr, 2), rokStatusNullPtr},
        {"null channel levels", rokiLUT_8u_C3R(src, 12, dst, 12, ok, pv, pnull, n3), rokStatusNullPtr},
        {"null counts", rokiLUT_8u_C3R(src, 12, dst, 12, ok, pv, pl, nullptr), rokStatusNullPtr},
        {"size before step", rokiLUT_8u_C1R(src, 0, dst, 0, bad, vl, lv, 1), rokStatusBadSize},
        {"source step", rokiLUT_8u_C1R(src, 0, dst, 4, ok, vl, lv, 1), rokStatusBadStep},
        {"negative step", rokiLUT_Linear_8u_C1R(src, 4, dst, -4, ok, vl, lv, 1), rokStatusBadStep},
        {"step before levels", rokiLUT_8u_C1IR(dst, 0, ok, vl, lv, 1), rokStatusBadStep},
        {"one level", rokiLUT_8u_C1R(src, 4, dst, 4, ok, vl, lv, 1), rokStatusBadLutLevels},
        {"one level in channel 2", rokiLUT_Cubic_8u_C3R(src, 12, dst, 12, ok, pv, pl, n3bad), rokStatusBadLutLevels},
        {"float one level", rokiLUT_32f_C1R(fsrc, 16, fdst, 16, ok, fvl, flv, 1), rokStatusBadLutLevels},
        {"float null", rokiLUT_Cubic_32f_C1IR(nullptr, 16, ok, fvl, flv, 2), rokStatusNullPtr},
    };
    for (const auto& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
    for (Rok8u b : dst) ASSERT_EQ(b, 0xA5);
    for (const Rok32f& f : fdst) {
        std::uint32_t bits;
        std::memcpy(&bits, &f, 4);
        ASSERT_EQ(bits, 0xA5A5A5A5u);
    }
}

}  // namespace
