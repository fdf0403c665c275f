// The fixed-mask medians (Horiz, Vert, Cross), the colour median, the
// weighted-centre median and the median of three planes against references
// written from their rules, with their checks.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "median_harness.h"

namespace {

using medt::Border;
using medt::Case;
using medt::GuardedImage;
using medt::Source;

template <class T>
using CodeFn = RokStatus (*)(const T*, int, T*, int, RokiSize, int);

template <class T>
struct CodeMember {
    std::string name;
    int channels, processed;
    CodeFn<T> fn;
};

enum class Shape { Horiz, Vert, Cross };

// The taps (dx, dy) of a fixed shape for a mask code.
std::vector<std::pair<int, int>> taps(Shape s, int code) {
    const int arm = (code == 51 || code == 15 || code == 55) ? 2 : 1;
    std::vector<std::pair<int, int>> t{{0, 0}};
    for (int i = 1; i <= arm; ++i) {
        if (s != Shape::Vert) t.insert(t.end(), {{-i, 0}, {i, 0}});
        if (s != Shape::Horiz) t.insert(t.end(), {{0, -i}, {0, i}});
    }
    return t;
}

template <class T>
void sweep_shape(Shape shape, const std::vector<CodeMember<T>>& members, std::initializer_list<int> codes) {
    std::uint32_t seed = 1;
    for (const auto& m : members)
        for (int code : codes) {
            const auto t = taps(shape, code);
            const int arm = (code == 51 || code == 15 || code == 55) ? 2 : 1;
            const int ax = shape == Shape::Vert ? 0 : arm, ay = shape == Shape::Horiz ? 0 : arm;
            std::vector<int> widths{2, 17, 33, 300};
            if (m.channels == 1)
                for (int w = 1; w <= 70; ++w) widths.push_back(w);
            for (int w : widths) {
                SCOPED_TRACE(testing::Message() << m.name << " code " << code);
                const Case k{m.channels, m.processed, {w, 1 + int(seed % 3)}, Border{ax, ay, ax, ay}, seed,
                             seed % 3 == 0 ? 3 : 0, seed % 2 ? medt::Guard::After : medt::Guard::Before};
                medt::expect_filter<T>(
                    k, [&](const T* s, int ss, T* d, int ds, RokiSize r) { return m.fn(s, ss, d, ds, r, code); },
                    [&](const Source<T>& at, int x, int y, int c) {
                        std::vector<T> v;
                        for (auto [dx, dy] : t) v.push_back(at(x + dx, y + dy, c));
                        return medt::median_of(v);
                    });
                ++seed;
            }
        }
}

#define M(f, nc, pc) {#f, nc, pc, f}

TEST(FilterMedianFixed, HorizMatchesReference) {
    sweep_shape<Rok8u>(Shape::Horiz, {M(rokiFilterMedianHoriz_8u_C1R, 1, 1), M(rokiFilterMedianHoriz_8u_C3R, 3, 3),
                                      M(rokiFilterMedianHoriz_8u_C4R, 4, 4), M(rokiFilterMedianHoriz_8u_AC4R, 4, 3)},
                       {31, 51});
    sweep_shape<Rok16u>(Shape::Horiz, {M(rokiFilterMedianHoriz_16u_C1R, 1, 1), M(rokiFilterMedianHoriz_16u_C3R, 3, 3),
                                       M(rokiFilterMedianHoriz_16u_C4R, 4, 4), M(rokiFilterMedianHoriz_16u_AC4R, 4, 3)},
                        {31, 51});
    sweep_shape<Rok16s>(Shape::Horiz, {M(rokiFilterMedianHoriz_16s_C1R, 1, 1), M(rokiFilterMedianHoriz_16s_C3R, 3, 3),
                                       M(rokiFilterMedianHoriz_16s_C4R, 4, 4), M(rokiFilterMedianHoriz_16s_AC4R, 4, 3)},
                        {31, 51});
}

TEST(FilterMedianFixed, VertMatchesReference) {
    sweep_shape<Rok8u>(Shape::Vert, {M(rokiFilterMedianVert_8u_C1R, 1, 1), M(rokiFilterMedianVert_8u_C3R, 3, 3),
                                     M(rokiFilterMedianVert_8u_C4R, 4, 4), M(rokiFilterMedianVert_8u_AC4R, 4, 3)},
                       {13, 15});
    sweep_shape<Rok16u>(Shape::Vert, {M(rokiFilterMedianVert_16u_C1R, 1, 1), M(rokiFilterMedianVert_16u_C3R, 3, 3),
                                      M(rokiFilterMedianVert_16u_C4R, 4, 4), M(rokiFilterMedianVert_16u_AC4R, 4, 3)},
                        {13, 15});
    sweep_shape<Rok16s>(Shape::Vert, {M(rokiFilterMedianVert_16s_C1R, 1, 1), M(rokiFilterMedianVert_16s_C3R, 3, 3),
                                      M(rokiFilterMedianVert_16s_C4R, 4, 4), M(rokiFilterMedianVert_16s_AC4R, 4, 3)},
                        {13, 15});
}

TEST(FilterMedianFixed, CrossMatchesReference) {
    sweep_shape<Rok8u>(Shape::Cross, {M(rokiFilterMedianCross_8u_C1R, 1, 1), M(rokiFilterMedianCross_8u_C3R, 3, 3),
                                      M(rokiFilterMedianCross_8u_AC4R, 4, 3)},
                       {33, 55});
    sweep_shape<Rok16u>(Shape::Cross, {M(rokiFilterMedianCross_16u_C1R, 1, 1), M(rokiFilterMedianCross_16u_C3R, 3, 3),
                                       M(rokiFilterMedianCross_16u_AC4R, 4, 3)},
                        {33, 55});
    sweep_shape<Rok16s>(Shape::Cross, {M(rokiFilterMedianCross_16s_C1R, 1, 1), M(rokiFilterMedianCross_16s_C3R, 3, 3),
                                       M(rokiFilterMedianCross_16s_AC4R, 4, 3)},
                        {33, 55});
}

// ---- colour ------------------------------------------------------------------

// The rule written out: the neighbourhood pixel whose summed L1 distance to
// every pixel of the neighbourhood is least, the first in row-major order on
// a tie; float sums in double, row-major, NaN sums losing to any number.
template <class T>
void sweep_color(const std::vector<CodeMember<T>>& members, int spread) {
    std::uint32_t seed = 7;
    for (const auto& m : members)
        for (int code : {33, 55}) {
            const int r = code == 33 ? 1 : 2;
            for (int w : {1, 2, 5, 9, 16, 33, 300}) {
                SCOPED_TRACE(testing::Message() << m.name << " code " << code);
                const Case k{m.channels, m.processed, {w, 3}, Border{r, r, r, r}, seed++, spread,
                             w % 2 ? medt::Guard::After : medt::Guard::Before};
                medt::expect_filter<T>(
                    k, [&](const T* s, int ss, T* d, int ds, RokiSize roi) { return m.fn(s, ss, d, ds, roi, code); },
                    [&](const Source<T>& at, int x, int y, int c) {
                        int best = -1;
                        double bestSum = 0;
                        for (int i = 0; i < (2 * r + 1) * (2 * r + 1); ++i) {
                            const int xi = x - r + i % (2 * r + 1), yi = y - r + i / (2 * r + 1);
                            double sum = 0;
                            for (int j = 0; j < (2 * r + 1) * (2 * r + 1); ++j) {
                                const int xj = x - r + j % (2 * r + 1), yj = y - r + j / (2 * r + 1);
                                if (i == j) continue;
                                double d = 0;
                                for (int ch = 0; ch < 3; ++ch)
                                    d += std::fabs(double(at(xi, yi, ch)) - double(at(xj, yj, ch)));
                                sum += d;
                            }
                            if (std::isnan(sum)) continue;
                            if (best < 0 || sum < bestSum) best = i, bestSum = sum;
                        }
                        if (best < 0) best = 0;
                        return at(x - r + best % (2 * r + 1), y - r + best / (2 * r + 1), c);
                    });
            }
        }
}

TEST(FilterMedianColor, PicksTheNeighbourWithTheLeastSummedDistance) {
    for (int spread : {0, 2}) {
        sweep_color<Rok8u>({M(rokiFilterMedianColor_8u_C3R, 3, 3), M(rokiFilterMedianColor_8u_AC4R, 4, 3)}, spread);
        sweep_color<Rok16s>({M(rokiFilterMedianColor_16s_C3R, 3, 3), M(rokiFilterMedianColor_16s_AC4R, 4, 3)}, spread);
        sweep_color<Rok32f>({M(rokiFilterMedianColor_32f_C3R, 3, 3), M(rokiFilterMedianColor_32f_AC4R, 4, 3)}, spread);
    }
}

TEST(FilterMedianColor, EveryNaNSumKeepsTheTopLeftPixel) {
    GuardedImage<Rok32f> src(3, 3, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            for (int c = 0; c < 3; ++c) src.at(x, y, c) = float(x + 3 * y + c);
    src.at(1, 2, 1) = std::numeric_limits<float>::quiet_NaN();
    Rok32f out[3];
    ASSERT_EQ(rokiFilterMedianColor_32f_C3R(&src.at(1, 1), src.step(), out, 12, {1, 1}, 33), rokStatusOk);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 1.0f);
}

// ---- weighted centre -----------------------------------------------------------

TEST(FilterMedianWeightedCenter, MedianOfNeighboursAndCentreCopies) {
    std::uint32_t seed = 3;
    for (int weight = 1; weight <= 12; ++weight)
        for (int w = 1; w <= 70; w += weight) {
            SCOPED_TRACE(testing::Message() << "weight " << weight);
            const Case k{1, 1, {w, 2}, Border{1, 1, 1, 1}, seed++, seed % 2 ? 4 : 0};
            const int used = weight % 2 ? weight : weight - 1;
            medt::expect_filter<Rok8u>(
                k,
                [&](const Rok8u* s, int ss, Rok8u* d, int ds, RokiSize r) {
                    return rokiFilterMedianWeightedCenter3x3_8u_C1R(s, ss, d, ds, r, weight);
                },
                [&](const Source<Rok8u>& at, int x, int y, int) {
                    std::vector<Rok8u> v;
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx)
                            if (dx || dy) v.push_back(at(x + dx, y + dy, 0));
                    for (int i = 0; i < used; ++i) v.push_back(at(x, y, 0));
                    return medt::median_of(v);
                },
                weight % 2 ? rokStatusOk : rokStatusEvenMedianWeight);
        }
}

// ---- median of three planes -----------------------------------------------------

TEST(MedianOfPlanes, MiddleOfThreeSamples) {
    for (int w = 1; w <= 70; ++w) {
        GuardedImage<Rok8u> a(w, 3, 1, 3), b(w, 3, 1, 3, medt::Guard::Before), c(w, 3, 1, 3);
        medt::fill(a, w, 0);
        medt::fill(b, w + 1, 0);
        medt::fill(c, w + 2, w % 2 ? 0 : 3);
        GuardedImage<Rok8u> dst(w, 3, 1, 2);
        dst.fill_bytes(0x5A);
        GuardedImage<Rok8u> want(w, 3, 1, 2);
        want.fill_bytes(0x5A);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < w; ++x)
                want.at(x, y) = medt::median_of(std::vector<Rok8u>{a.at(x, y), b.at(x, y), c.at(x, y)});
        const Rok8u* planes[3] = {a.data(), b.data(), c.data()};
        ASSERT_EQ(rokiMedian_8u_P3C1R(planes, a.step(), dst.data(), dst.step(), {w, 3}), rokStatusOk);
        EXPECT_EQ(dst.bytes(), want.bytes()) << w;
    }
}

// ---- checks ------------------------------------------------------------------

TEST(FilterMedianFixed, ChecksInOrderWriteNothing) {
    GuardedImage<Rok8u> src(14, 8, 4);
    GuardedImage<Rok8u> dst(10, 4, 4);
    dst.fill_bytes(0x3C);
    const auto before = dst.bytes();
    const Rok8u* s = &src.at(2, 2);
    Rok8u* d = dst.data();
    const int ss = src.step(), ds = dst.step();
    const RokiSize roi{2, 2};
    const Rok8u* planes[3] = {s, s, s};
    const Rok8u* missing[3] = {s, nullptr, s};
    const RokStatus got[][2] = {
        {rokStatusNullPtr, rokiFilterMedianHoriz_8u_C1R(nullptr, 0, d, ds, {0, 0}, 0)},
        {rokStatusBadSize, rokiFilterMedianHoriz_8u_C1R(s, 0, d, ds, {0, 1}, 0)},
        {rokStatusBadStep, rokiFilterMedianVert_8u_C3R(s, ss, d, 0, roi, 0)},
        {rokStatusBadMaskSize, rokiFilterMedianHoriz_8u_C4R(s, ss, d, ds, roi, 13)},
        {rokStatusBadMaskSize, rokiFilterMedianVert_8u_C1R(s, ss, d, ds, roi, 31)},
        {rokStatusBadMaskSize, rokiFilterMedianCross_8u_C1R(s, ss, d, ds, roi, 35)},
        {rokStatusNullPtr, rokiFilterMedianCross_16s_AC4R(nullptr, ss, nullptr, ds, roi, 33)},
        {rokStatusBadMaskSize, rokiFilterMedianColor_8u_AC4R(s, ss, d, ds, roi, 31)},
        {rokStatusBadStep, rokiFilterMedianColor_8u_C3R(s, -ss, d, ds, roi, 99)},
        {rokStatusNullPtr, rokiFilterMedianWeightedCenter3x3_8u_C1R(s, 0, nullptr, 0, {0, 0}, 0)},
        {rokStatusBadSize, rokiFilterMedianWeightedCenter3x3_8u_C1R(s, 0, d, 0, {-1, 0}, 0)},
        {rokStatusBadStep, rokiFilterMedianWeightedCenter3x3_8u_C1R(s, ss, d, 0, roi, 0)},
        {rokStatusBadWeight, rokiFilterMedianWeightedCenter3x3_8u_C1R(s, ss, d, ds, roi, 0)},
        {rokStatusBadWeight, rokiFilterMedianWeightedCenter3x3_8u_C1R(s, ss, d, ds, roi, -2)},
        {rokStatusNullPtr, rokiMedian_8u_P3C1R(nullptr, ss, d, ds, roi)},
        {rokStatusNullPtr, rokiMedian_8u_P3C1R(missing, ss, d, ds, roi)},
        {rokStatusNullPtr, rokiMedian_8u_P3C1R(planes, 0, nullptr, 0, {0, 0})},
        {rokStatusBadSize, rokiMedian_8u_P3C1R(planes, 0, d, 0, {0, 2})},
        {rokStatusBadStep, rokiMedian_8u_P3C1R(planes, 0, d, ds, roi)},
    };
    for (std::size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i][1], got[i][0]) << "check " << i;
    EXPECT_EQ(dst.bytes(), before);
}

}  // namespace
