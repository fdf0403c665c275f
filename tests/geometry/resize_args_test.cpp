// Check order, warnings, the small-image rule, the edge modes on a flat
// image, rokiGetResizeRect and the buffer-size formulas.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <vector>

#include "resize_harness.h"

namespace {

using rtest::Lay;
using rtest::ResizeRun;

// A valid 8u call that the table's rows break one argument at a time.
struct Args {
    bool nullSrc = false, nullDst = false, nullBuffer = false;
    RokiSize srcSize{8, 8};
    RokiRect srcRoi{0, 0, 8, 8}, dstRoi{0, 0, 12, 12};
    double xf = 1.5, yf = 1.5, xs = 0, ys = 0;
    int interpolation = rokInterLinear;
    int srcStep = 0, dstStep = 0;  // 0: the images' own
};

RokStatus call(const Args& a, bool* untouched) {
    rref::Call c{};
    c.srcW = 8, c.srcH = 8, c.src = {0, 0, 8, 8}, c.dst = {0, 0, 12, 12}, c.method = 2;
    ResizeRun<Rok8u> run(Lay::C3, c);
    std::vector<Rok8u> buffer(1 << 16);
    auto& s = run.src();
    auto& d = const_cast<rokt::GuardedImage<Rok8u>&>(run.dst());
    const RokStatus st = rokiResizeSqrPixel_8u_C3R(
        a.nullSrc ? nullptr : s.data(), a.srcSize, a.srcStep ? a.srcStep : s.step(), a.srcRoi,
        a.nullDst ? nullptr : d.data(), a.dstStep ? a.dstStep : d.step(), a.dstRoi, a.xf, a.yf, a.xs, a.ys,
        a.interpolation, a.nullBuffer ? nullptr : buffer.data());
    *untouched = run.untouched();
    return st;
}

TEST(ResizeSqrPixel, ChecksInOrderAndWritesNothingOnError) {
    const double nan = std::nan(""), inf = HUGE_VAL;
    struct Row {
        const char* what;
        std::function<void(Args&)> edit;
        RokStatus expected;
    };
    const Row rows[] = {
        {"valid", [](Args&) {}, rokStatusOk},
        {"null source", [](Args& a) { a.nullSrc = true; }, rokStatusNullPtr},
        {"null destination", [](Args& a) { a.nullDst = true; }, rokStatusNullPtr},
        {"null buffer", [](Args& a) { a.nullBuffer = true; }, rokStatusNullPtr},
        {"null before size", [](Args& a) { a.nullBuffer = true, a.srcSize.width = 0; }, rokStatusNullPtr},
        {"source width 0", [](Args& a) { a.srcSize.width = 0; }, rokStatusBadSize},
        {"source height 0", [](Args& a) { a.srcSize.height = 0; }, rokStatusBadSize},
        {"srcRoi x -1", [](Args& a) { a.srcRoi.x = -1; }, rokStatusBadSize},
        {"srcRoi y -1", [](Args& a) { a.srcRoi.y = -1; }, rokStatusBadSize},
        {"srcRoi width 0", [](Args& a) { a.srcRoi.width = 0; }, rokStatusBadSize},
        {"srcRoi height -3", [](Args& a) { a.srcRoi.height = -3; }, rokStatusBadSize},
        {"dstRoi x -1", [](Args& a) { a.dstRoi.x = -1; }, rokStatusBadSize},
        {"dstRoi y -1", [](Args& a) { a.dstRoi.y = -1; }, rokStatusBadSize},
        {"dstRoi width 0", [](Args& a) { a.dstRoi.width = 0; }, rokStatusBadSize},
        {"dstRoi height 0", [](Args& a) { a.dstRoi.height = 0; }, rokStatusBadSize},
        {"size before factor", [](Args& a) { a.dstRoi.width = 0, a.xf = 0; }, rokStatusBadSize},
        {"x factor 0", [](Args& a) { a.xf = 0; }, rokStatusBadResizeFactor},
        {"y factor -1", [](Args& a) { a.yf = -1; }, rokStatusBadResizeFactor},
        {"factor NaN", [nan](Args& a) { a.xf = nan; }, rokStatusBadResizeFactor},
        {"factor infinite", [inf](Args& a) { a.yf = inf; }, rokStatusBadResizeFactor},
        {"factor without a reciprocal", [](Args& a) { a.xf = 4e-309; }, rokStatusBadResizeFactor},
        {"tiny factor on a pixel centre", [](Args& a) { a.xf = 1e-300, a.xs = 2.5; }, rokStatusOk},
        {"factor before method", [](Args& a) { a.xf = 0, a.interpolation = 3; }, rokStatusBadResizeFactor},
        {"method 0", [](Args& a) { a.interpolation = 0; }, rokStatusBadInterpolation},
        {"method 3", [](Args& a) { a.interpolation = 3; }, rokStatusBadInterpolation},
        {"method 9", [](Args& a) { a.interpolation = 9; }, rokStatusBadInterpolation},
        {"method 32", [](Args& a) { a.interpolation = 32; }, rokStatusBadInterpolation},
        {"method bit 28", [](Args& a) { a.interpolation = 0x10000002; }, rokStatusBadInterpolation},
        {"smooth and sub-pixel", [](Args& a) { a.interpolation = 2 | rokEdgeSmooth | rokEdgeSubpixel; },
         rokStatusBadInterpolation},
        {"smooth and anti-alias", [](Args& a) { a.interpolation = 2 | rokEdgeSmooth | rokAntiAlias; },
         rokStatusBadInterpolation},
        {"sub-pixel and anti-alias", [](Args& a) { a.interpolation = 2 | rokEdgeSubpixel | rokAntiAlias; },
         rokStatusBadInterpolation},
        {"three flags", [](Args& a) { a.interpolation = 2 | rokEdgeSmooth | rokEdgeSubpixel | rokAntiAlias; },
         rokStatusBadInterpolation},
        {"one flag each", [](Args& a) { a.interpolation = 4 | rokAntiAlias; }, rokStatusOk},
        {"method before super factor", [](Args& a) { a.interpolation = 9, a.xf = 2; }, rokStatusBadInterpolation},
        {"super x factor 1.01", [](Args& a) { a.interpolation = 8, a.xf = 1.01, a.yf = 0.5; },
         rokStatusBadResizeFactor},
        {"super y factor 1.5", [](Args& a) { a.interpolation = 8, a.xf = 0.5; }, rokStatusBadResizeFactor},
        {"super factor 1", [](Args& a) { a.interpolation = 8, a.xf = a.yf = 1; }, rokStatusOk},
        {"rectangle starts right of the image", [](Args& a) { a.srcRoi.x = 8; }, rokStatusNoIntersection},
        {"rectangle starts below the image", [](Args& a) { a.srcRoi.y = 9; }, rokStatusNoIntersection},
        {"outside before step", [](Args& a) { a.srcRoi.x = 8, a.srcStep = -1; }, rokStatusNoIntersection},
        {"rectangle reaching past the image", [](Args& a) { a.srcRoi = {2, 2, 100, 100}; }, rokStatusOk},
        {"lands left of dstRoi", [](Args& a) { a.xs = -12.6; }, 1},
        {"lands below dstRoi", [](Args& a) { a.ys = 18.5; }, 1},
        {"no pixel before step", [](Args& a) { a.xs = -20, a.dstStep = -4; }, 1},
        {"shift NaN", [nan](Args& a) { a.xs = nan; }, 1},
        {"under half a pixel", [](Args& a) { a.srcRoi = {0, 0, 1, 1}, a.xf = a.yf = 0.45, a.xs = 0.03; }, 1},
        {"source step -1", [](Args& a) { a.srcStep = -1; }, rokStatusBadStep},
        {"destination step -4", [](Args& a) { a.dstStep = -4; }, rokStatusBadStep},
    };
    for (const Row& r : rows) {
        Args a;
        r.edit(a);
        bool untouched = false;
        EXPECT_EQ(call(a, &untouched), r.expected) << r.what;
        if (r.expected != rokStatusOk) {
            EXPECT_TRUE(untouched) << r.what;
        }
    }
}

TEST(ResizeSqrPixel, PlanePointersAreChecked) {
    rref::Call c{};
    c.srcW = c.srcH = 4, c.src = {0, 0, 4, 4}, c.dst = {0, 0, 4, 4}, c.method = 1, c.xf = c.yf = 1;
    ResizeRun<Rok16u> run(Lay::P3, c);
    std::vector<Rok8u> buffer(4096);
    Rok16u plane[16] = {};
    const Rok16u* src[3] = {plane, nullptr, plane};
    Rok16u* dst[3] = {plane, plane, plane};
    const RokiSize size{4, 4};
    const RokiRect roi{0, 0, 4, 4};
    EXPECT_EQ(rokiResizeSqrPixel_16u_P3R(src, size, 8, roi, dst, 8, roi, 1, 1, 0, 0, 1, buffer.data()),
              rokStatusNullPtr);
    src[1] = plane, dst[2] = nullptr;
    EXPECT_EQ(rokiResizeSqrPixel_16u_P3R(src, size, 8, roi, dst, 8, roi, 1, 1, 0, 0, 1, buffer.data()),
              rokStatusNullPtr);
    EXPECT_EQ(rokiResizeSqrPixel_16u_P3R(nullptr, size, 8, roi, dst, 8, roi, 1, 1, 0, 0, 1, buffer.data()),
              rokStatusNullPtr);
    dst[2] = plane;
    EXPECT_EQ(rokiResizeSqrPixel_16u_P3R(src, size, 8, roi, dst, 8, roi, 1, 1, 0, 0, 1, buffer.data()),
              rokStatusOk);
}

// Sources below 6 (4) pixels on a side fall back from Lanczos (and the
// cubics) by their whole size, on both sides of each bound.
TEST(ResizeSqrPixel, SmallImageRuleLooksAtTheWholeSource) {
    struct Row {
        int w, h;
        RokiRect roi;
        int method, same, other;  // equal output to method `same`, different from `other` (0: none)
    };
    const Row rows[] = {
        {5, 5, {0, 0, 5, 5}, 16, 4, 2},   {6, 6, {0, 0, 6, 6}, 16, 0, 4},  {6, 6, {0, 0, 6, 6}, 16, 0, 2},
        {6, 5, {0, 0, 6, 5}, 16, 4, 2},   {5, 9, {0, 0, 5, 9}, 16, 4, 2},  {3, 10, {0, 0, 3, 10}, 4, 2, 1},
        {3, 10, {0, 0, 3, 10}, 6, 2, 1},  {3, 10, {0, 0, 3, 10}, 16, 2, 1}, {10, 3, {0, 0, 10, 3}, 5, 2, 1},
        {4, 10, {0, 0, 4, 10}, 4, 0, 2},  {4, 5, {0, 0, 4, 5}, 16, 4, 2},  {4, 5, {0, 0, 4, 5}, 7, 0, 4},
        {20, 20, {4, 4, 3, 3}, 16, 0, 4}, {20, 3, {4, 0, 9, 3}, 4, 2, 0},
    };
    auto output = [](const Row& r, int method) {
        rref::Call c{};
        c.srcW = r.w, c.srcH = r.h, c.src = {r.roi.x, r.roi.y, r.roi.width, r.roi.height};
        c.dst = {0, 0, 13, 11}, c.xf = 1.7, c.yf = 1.3, c.xs = -2.2, c.ys = -1.1, c.method = method;
        ResizeRun<Rok32f> run(Lay::C1, c, 0, 9);
        EXPECT_EQ(run.run(), rokStatusOk);
        return run.dst().bytes();
    };
    for (const Row& r : rows) {
        const auto got = output(r, r.method);
        if (r.same) {
            EXPECT_TRUE(got == output(r, r.same)) << r.w << "x" << r.h << " method " << r.method;
        }
        if (r.other) {
            EXPECT_FALSE(got == output(r, r.other)) << r.w << "x" << r.h << " method " << r.method;
        }
    }
}

// A flat image moved by a quarter pixel right and half a pixel down: the
// partly covered edge pixels are blended with what the destination held
// (smooth), weighted alone (sub-pixel), or taken by their centres (plain).
TEST(ResizeSqrPixel, EdgeModesOnAFlatImage) {
    struct Row {
        int flag;
        Rok8u left, corner, far;
    };
    // Column 0 is covered 3/4, row 0 and row 6 1/2, column 6 1/4:
    // 200 * 3/4 + 100 / 4 = 175; 200 * 3/8 + 100 * 5/8 = 137.5, to even 138;
    // 200 / 8 + 100 * 7/8 = 112.5, to even 112.
    const Row rows[] = {{rokEdgeSmooth, 175, 138, 112}, {rokEdgeSubpixel, 150, 75, 25}, {0, 200, 200, 100}};
    for (const Row& r : rows) {
        Rok8u src[6 * 6], dst[10 * 10];
        std::fill(src, src + 36, Rok8u(200));
        std::fill(dst, dst + 100, Rok8u(100));
        std::vector<Rok8u> buffer(1 << 14);
        ASSERT_EQ(rokiResizeSqrPixel_8u_C1R(src, {6, 6}, 6, {0, 0, 6, 6}, dst, 10, {0, 0, 10, 10}, 1, 1, 0.25, 0.5,
                                            rokInterLinear | r.flag, buffer.data()),
                  rokStatusOk);
        EXPECT_EQ(dst[10 * 3 + 0], r.left) << r.flag;
        EXPECT_EQ(dst[0], r.corner) << r.flag;
        EXPECT_EQ(dst[10 * 6 + 6], r.far) << r.flag;
        EXPECT_EQ(dst[10 * 3 + 3], 200) << r.flag;
        EXPECT_EQ(dst[10 * 7 + 7], 100) << r.flag;
    }
}

TEST(GetResizeRect, RoundsByTheEdgeFlagsAndChecksItsArguments) {
    const double nan = std::nan("");
    struct Row {
        RokiRect src;
        double xf, yf, xs, ys;
        int interpolation;
        RokStatus status;
        RokiRect want;
    };
    const Row rows[] = {
        {{0, 0, 10, 10}, 2, 2, 0, 0, 2, rokStatusOk, {0, 0, 20, 20}},
        {{0, 0, 3, 3}, 1, 1, 0.5, 0.5, 2, rokStatusOk, {0, 0, 4, 4}},  // centres on the bounds: taken
        {{0, 0, 3, 3}, 1, 1, 0.5, 0.5, 2 | rokEdgeSmooth, rokStatusOk, {0, 0, 4, 4}},
        {{0, 0, 3, 3}, 1, 1, 0.3, 0.3, 2, rokStatusOk, {0, 0, 3, 3}},
        {{0, 0, 3, 3}, 1, 1, 0.3, 0.3, 2 | rokEdgeSubpixel, rokStatusOk, {0, 0, 4, 4}},  // touched
        {{2, 1, 3, 3}, 1.5, 0.5, 0.25, 0, 4, rokStatusOk, {3, 0, 5, 2}},
        {{0, 0, 4, 4}, 1, 1, 3.0000000000001, 0, 4 | rokEdgeSmooth, rokStatusOk, {3, 0, 4, 4}},
        {{0, 0, 4, 4}, 1, 1, -5, -5, 2, 1, {}},
        {{0, 0, 4, 4}, 1, 1, -5, -1, 2, rokStatusOk, {-4, 0, 4, 3}},  // left is not raised
        {{0, 0, 4, 4}, 1, 1, -5, -1, 2 | rokEdgeSmooth, 1, {}},       // left raised to 0, right to 0
        {{0, 0, 4, 4}, 1, 1, 0, -9, 2, 1, {}},
        {{0, 0, 4, 4}, 1, 1, nan, 0, 2, 1, {}},
        {{0, 0, 4, 4}, 1, 1, 0, 0, 16 | rokAntiAlias, rokStatusOk, {0, 0, 4, 4}},
        {{-1, 0, 4, 4}, 1, 1, 0, 0, 2, rokStatusBadSize, {}},
        {{0, -1, 4, 4}, 1, 1, 0, 0, 2, rokStatusBadSize, {}},
        {{0, 0, 0, 4}, 1, 1, 0, 0, 2, rokStatusBadSize, {}},
        {{0, 0, 4, 0}, 1, 1, 0, 0, 2, rokStatusBadSize, {}},
        {{0, 0, 0, 4}, 0, 1, 0, 0, 3, rokStatusBadSize, {}},
        {{0, 0, 4, 4}, 0, 1, 0, 0, 3, rokStatusBadResizeFactor, {}},
        {{0, 0, 4, 4}, 1, -2, 0, 0, 2, rokStatusBadResizeFactor, {}},
        {{0, 0, 4, 4}, 1, 1, 0, 0, 3, rokStatusBadInterpolation, {}},
        {{0, 0, 4, 4}, 1, 1, 0, 0, 2 | rokEdgeSmooth | rokAntiAlias, rokStatusBadInterpolation, {}},
        {{0, 0, 4, 4}, 4, 1, 0, 0, 8, rokStatusOk, {0, 0, 16, 4}},  // no reduction check here
        {{0, 0, 1 << 30, 4}, 4, 1, 0, 0, 2, rokStatusBadSize, {}},
    };
    for (const Row& r : rows) {
        const RokiRect before{7, 7, 7, 7};
        RokiRect got = before;
        EXPECT_EQ(rokiGetResizeRect(r.src, &got, r.xf, r.yf, r.xs, r.ys, r.interpolation), r.status)
            << r.src.x << " " << r.xs << " " << r.interpolation;
        const RokiRect want = r.status == rokStatusOk ? r.want : before;
        EXPECT_TRUE(got.x == want.x && got.y == want.y && got.width == want.width && got.height == want.height)
            << r.src.x << " " << r.xs << " " << r.interpolation << ": " << got.x << "," << got.y << " " << got.width
            << "x" << got.height;
    }
    EXPECT_EQ(rokiGetResizeRect({-1, 0, 4, 4}, nullptr, 1, 1, 0, 0, 2), rokStatusNullPtr);
}

TEST(ResizeGetBufSize, FollowsTheStatedSizes) {
    struct Row {
        RokiRect src, dst;
        Rok32u n;
        int interpolation;
        bool wide;
        RokStatus status;
        int size;
    };
    const RokiRect s{1, 2, 37, 20}, d{3, 4, 100, 50};
    const Row rows[] = {
        // base = (ceil(100/16) + ceil(50/16)) * 64 = 704
        {s, d, 3, 1, false, rokStatusOk, 704 + 32},
        {s, d, 3, 2, false, rokStatusOk, 704 + (128 + 64) * 4 + 1280 * 3 + 32},
        {s, d, 1, 2, false, rokStatusOk, 704 + (128 + 64) * 4 + 1280 + 32},
        {s, d, 3, 4, false, rokStatusOk, 704 + 16 * 128 + (128 + 64) * 4 + 1280 + 10 * 256 * 3 + 32},
        {s, d, 4, 7 | rokEdgeSmooth, false, rokStatusOk, 704 + 16 * 128 + (128 + 64) * 4 + 1280 + 10 * 256 * 4 + 32},
        {s, d, 3, 16, false, rokStatusOk, 704 + (128 + 64) * 4 + 768 * 4 + 15 * 128 + 768 * 4 * 3 + 32},
        {s, d, 3, 8, false, rokStatusOk, 3 * 128 * 3 + 32},
        {s, d, 1, 8 | rokAntiAlias, false, rokStatusOk, 3 * 128 + 32},
        {s, d, 3, 1, true, rokStatusOk, 704 + 32},
        {s, d, 3, 2, true, rokStatusOk, 704 + 2 * ((128 + 64) * 4 + 1280 * 3) + 32},
        {s, d, 3, 8, true, rokStatusOk, 2 * 3 * 128 * 3 + 32},
        // Anti-aliasing, R = 1: T = max(200, 4 * 37); R = 3: T = max(600, 8 * 37).
        {s, d, 3, 2 | rokAntiAlias, false, rokStatusOk, 3 * 7 * 64 + 13 * 64 + 4 * 112 * 4 * 3 + 32},
        {s, d, 1, 16 | rokAntiAlias, false, rokStatusOk, 3 * 7 * 64 + 38 * 64 + 8 * 112 * 4 + 32},
        {s, d, 1, 16 | rokAntiAlias, true, rokStatusOk, 3 * 7 * 64 + 2 * (38 * 64 + 8 * 112 * 4) + 32},
        {{0, 0, 1000, 1}, {0, 0, 10, 1}, 1, 4 | rokAntiAlias, false, rokStatusOk,
         3 * 64 + 375 * 64 + 6 * 16 * 4 + 32},  // T = 6 * 1000
        // The largest nearest-neighbour size that fits, and the next one.
        {s, {0, 0, 536870880, 1}, 1, 1, false, rokStatusOk, 33554431 * 64 + 32},
        {s, {0, 0, 536870896, 1}, 1, 1, false, rokStatusBadSize, 0},
        {s, d, 2, 1, false, rokStatusBadChannelCount, -1},
        {s, d, 0xFFFFFFFFu, 1, false, rokStatusBadChannelCount, -1},
        {s, d, 2, 3, false, rokStatusBadChannelCount, -1},
        {s, d, 3, 3, false, rokStatusBadInterpolation, -1},
        {{-1, 0, 4, 4}, d, 2, 3, false, rokStatusBadSize, -1},
        {{0, -1, 4, 4}, d, 3, 1, false, rokStatusBadSize, -1},
        {{0, 0, 0, 4}, d, 3, 1, false, rokStatusBadSize, -1},
        {{0, 0, 4, 0}, d, 3, 1, false, rokStatusBadSize, -1},
        {s, {-1, 0, 4, 4}, 3, 1, false, rokStatusBadSize, -1},
        {s, {0, -1, 4, 4}, 3, 1, false, rokStatusBadSize, -1},
        {s, {0, 0, 0, 4}, 3, 1, false, rokStatusBadSize, -1},
        {s, {0, 0, 4, 0}, 3, 1, false, rokStatusBadSize, -1},
    };
    rokt::WithThreads one(1);
    for (const Row& r : rows) {
        int size = -1;
        const RokStatus st = r.wide ? rokiResizeGetBufSize_64f(r.src, r.dst, r.n, r.interpolation, &size)
                                    : rokiResizeGetBufSize(r.src, r.dst, r.n, r.interpolation, &size);
        EXPECT_EQ(st, r.status) << r.interpolation << " n " << r.n;
        EXPECT_EQ(size, r.size) << r.interpolation << " n " << r.n << " wide " << r.wide;
    }
    EXPECT_EQ(rokiResizeGetBufSize({-1, 0, 0, 0}, d, 2, 3, nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiResizeGetBufSize_64f(s, d, 3, 2, nullptr), rokStatusNullPtr);
}

// The size grows with the thread count while the product fits in 31 bits.
TEST(ResizeGetBufSize, MultipliesByTheThreadsThatFit) {
    const RokiRect s{0, 0, 16, 16};
    int size = 0;
    {
        rokt::WithThreads three(3);
        ASSERT_EQ(rokiResizeGetBufSize(s, {0, 0, 100, 50}, 1, 1, &size), rokStatusOk);
        EXPECT_EQ(size, 3 * 736);
        // (ceil(W / 16) + 1) * 64 + 32 = 1e9 + 96: two slices fit, not three.
        ASSERT_EQ(rokiResizeGetBufSize(s, {0, 0, 250000016, 1}, 1, 1, &size), rokStatusOk);
        EXPECT_EQ(size, 2 * (15625002 * 64 + 32));
    }
}

}  // namespace
