// Warps: every status in its order with nothing written, the warnings, the
// span table that cannot be allocated, and the geometry functions (quads,
// bounds, transforms, rotation shifts, the convexity test).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "roki.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kPi = 3.14159265358979323846;

// Arguments of rokiWarpAffine_8u_P3R and friends, each changed by a case.
struct Call {
    bool nullSrc = false, nullDst = false, nullCoeffs = false, nullPlane = false;
    RokiSize srcSize{20, 16};
    RokiRect srcRoi{0, 0, 20, 16}, dstRoi{0, 0, 30, 30};
    int srcStep = 20, dstStep = 30;
    double c[2][3] = {{0.9, 0.2, 3.5}, {-0.2, 0.9, 6.25}};
    int interpolation = rokInterLinear;
};

struct Images {
    std::vector<Rok8u> src = std::vector<Rok8u>(20 * 16 * 3);
    std::vector<Rok8u> dst = std::vector<Rok8u>(30 * 30 * 3, 0x5A);
};

RokStatus warp_affine(const Call& k, Images& im, bool back = false) {
    const Rok8u* sp[3] = {im.src.data(), im.src.data() + 320, im.src.data() + 640};
    Rok8u* dp[3] = {im.dst.data(), im.dst.data() + 900, im.dst.data() + 1800};
    if (k.nullPlane) sp[1] = nullptr;
    auto* f = back ? rokiWarpAffineBack_8u_P3R : rokiWarpAffine_8u_P3R;
    return f(k.nullSrc ? nullptr : sp, k.srcSize, k.srcStep, k.srcRoi, k.nullDst ? nullptr : dp, k.dstStep, k.dstRoi,
             k.nullCoeffs ? nullptr : k.c, k.interpolation);
}

TEST(WarpArgs, ChecksInOrderWriteNothing) {
    struct Row {
        const char* what;
        std::function<void(Call&)> change;
        RokStatus want;
    };
    const Row rows[] = {
        {"null source", [](Call& k) { k.nullSrc = true; k.srcSize.width = 0; }, rokStatusNullPtr},
        {"null destination", [](Call& k) { k.nullDst = true; k.interpolation = 3; }, rokStatusNullPtr},
        {"null coefficients", [](Call& k) { k.nullCoeffs = true; k.srcRoi.x = -1; }, rokStatusNullPtr},
        {"source width 0", [](Call& k) { k.srcSize.width = 0; k.interpolation = 3; }, rokStatusBadSize},
        {"source height -1", [](Call& k) { k.srcSize.height = -1; }, rokStatusBadSize},
        {"srcRoi.x -1", [](Call& k) { k.srcRoi.x = -1; }, rokStatusBadSize},
        {"srcRoi.y -1", [](Call& k) { k.srcRoi.y = -1; }, rokStatusBadSize},
        {"srcRoi width 0", [](Call& k) { k.srcRoi.width = 0; }, rokStatusBadSize},
        {"srcRoi height 0", [](Call& k) { k.srcRoi.height = 0; }, rokStatusBadSize},
        {"dstRoi.x -1", [](Call& k) { k.dstRoi.x = -1; }, rokStatusBadSize},
        {"dstRoi.y -1", [](Call& k) { k.dstRoi.y = -1; }, rokStatusBadSize},
        {"dstRoi width 0", [](Call& k) { k.dstRoi.width = 0; }, rokStatusBadSize},
        {"dstRoi height -1", [](Call& k) { k.dstRoi.height = -1; k.nullPlane = true; }, rokStatusBadSize},
        {"method 3", [](Call& k) { k.interpolation = 3; k.nullPlane = true; }, rokStatusBadInterpolation},
        {"super-sampling", [](Call& k) { k.interpolation = rokInterSuper; }, rokStatusBadInterpolation},
        {"Lanczos", [](Call& k) { k.interpolation = rokInterLanczos; }, rokStatusBadInterpolation},
        {"B-spline", [](Call& k) { k.interpolation = rokInterBSpline; }, rokStatusBadInterpolation},
        {"sub-pixel edge", [](Call& k) { k.interpolation = rokInterLinear | rokEdgeSubpixel; }, rokStatusBadInterpolation},
        {"anti-aliasing", [](Call& k) { k.interpolation = rokInterLinear | rokAntiAlias; }, rokStatusBadInterpolation},
        {"null plane", [](Call& k) { k.nullPlane = true; k.srcStep = 0; }, rokStatusNullPtr},
        {"source step 0", [](Call& k) { k.srcStep = 0; k.c[0][0] = 0; k.c[0][1] = 0; }, rokStatusBadStep},
        {"destination step -30", [](Call& k) { k.dstStep = -30; }, rokStatusBadStep},
        {"singular", [](Call& k) { k.c[0][0] = 1, k.c[0][1] = 2, k.c[1][0] = 2, k.c[1][1] = 4; k.srcRoi.x = 20; }, rokStatusBadQuad},
        {"singular to 1e-10", [](Call& k) { k.c[0][0] = 1, k.c[0][1] = 2, k.c[1][0] = 2, k.c[1][1] = 4 + 2e-10; }, rokStatusBadQuad},
        {"p near zero, q small", [](Call& k) { k.c[0][0] = 0, k.c[0][1] = 1e-6, k.c[1][0] = 1e-5, k.c[1][1] = 1; }, rokStatusBadQuad},
        {"not a number", [](Call& k) { k.c[1][2] = kNaN; k.srcRoi.x = 20; }, rokStatusBadQuad},
        {"infinite", [](Call& k) { k.c[0][1] = kInf; }, rokStatusBadQuad},
        {"start outside the image", [](Call& k) { k.srcRoi.x = 20; k.srcRoi.width = 1; }, rokStatusNoIntersection},
        {"start below the image", [](Call& k) { k.srcRoi.y = 16; }, rokStatusNoIntersection},
        {"one column after the cut", [](Call& k) { k.srcRoi.x = 19; }, rokStatusBadRect},
        {"one row", [](Call& k) { k.srcRoi.height = 1; }, rokStatusBadRect},
        {"image one pixel high", [](Call& k) { k.srcSize.height = 1; }, rokStatusBadRect},
        {"destination missed", [](Call& k) { k.c[0][2] = 100; }, rokStatusWrongIntersectQuad},
        {"quadrangle between rows", [](Call& k) {
             k.c[0][0] = 1, k.c[0][1] = 0, k.c[1][0] = 0, k.c[1][1] = 0.01, k.c[1][2] = 3.5; }, rokStatusWrongIntersectQuad},
    };
    for (const Row& r : rows) {
        Call k;
        r.change(k);
        Images im;
        const auto before = im.dst;
        EXPECT_EQ(warp_affine(k, im), r.want) << r.what;
        EXPECT_EQ(im.dst, before) << r.what;
    }
}

TEST(WarpArgs, AcceptedMethodsPerForm) {
    // The forward form takes Catmull-Rom, the back form does not; both take
    // the smooth edge on any of their methods.
    for (int code : {rokInterNearest, rokInterLinear, rokInterCubic, rokInterCatmullRom})
        for (bool smooth : {false, true})
            for (bool back : {false, true}) {
                Call k;
                k.interpolation = code | (smooth ? rokEdgeSmooth : 0);
                if (back) {
                    // The inverse of the forward coefficients above.
                    const double det = 0.9 * 0.9 + 0.2 * 0.2;
                    const double a = 0.9 / det, b = -0.2 / det;
                    const double m[2][3] = {{a, b, -(a * 3.5 + b * 6.25)}, {-b, a, -(-b * 3.5 + a * 6.25)}};
                    std::memcpy(k.c, m, sizeof m);
                }
                Images im;
                const RokStatus want = back && code == rokInterCatmullRom ? rokStatusBadInterpolation : rokStatusOk;
                EXPECT_EQ(warp_affine(k, im, back), want) << code << " " << smooth << " " << back;
            }
}

// Calls of the other forms, each with one change.
TEST(WarpArgs, FamilyChecks) {
    std::vector<Rok8u> src(20 * 16, 7), dst(30 * 30, 9);
    const auto before = dst;
    const RokiSize ss{20, 16};
    const RokiRect sr{0, 0, 20, 16}, dr{0, 0, 30, 30};
    auto rotate = [&](double angle, double xs, double ys, int step = 20) {
        return rokiRotate_8u_C1R(src.data(), ss, step, sr, dst.data(), 30, dr, angle, xs, ys, rokInterLinear);
    };
    EXPECT_EQ(rotate(kNaN, 0, 0), rokStatusOutOfRange);
    EXPECT_EQ(rotate(30, kInf, 0), rokStatusOutOfRange);
    EXPECT_EQ(rotate(30, 0, -kInf), rokStatusOutOfRange);
    EXPECT_EQ(rotate(kNaN, 0, 0, 0), rokStatusBadStep);  // the step first
    EXPECT_EQ(rokiRotateCenter_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, 30, kNaN, 3, rokInterLinear),
              rokStatusOutOfRange);
    EXPECT_EQ(rokiRotate_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, 30, 0, 0, rokInterLanczos),
              rokStatusBadInterpolation);
    // A perspective map whose vanishing line crosses the rectangle.
    const double vanishing[3][3] = {{1, 0, 0}, {0, 1, 0}, {0.1, 0, -1}};
    EXPECT_EQ(rokiWarpPerspective_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, vanishing, rokInterLinear),
              rokStatusBadQuad);
    const double singular[3][3] = {{1, 2, 3}, {2, 4, 6}, {0, 0, 1}};
    EXPECT_EQ(rokiWarpPerspectiveBack_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, singular, rokInterLinear),
              rokStatusBadQuad);
    // Bilinear: a map that folds the rectangle (its quadrangle crosses).
    const double fold[2][4] = {{0, 1, 0, 0}, {-0.1, 0, 1, 0}};
    EXPECT_EQ(rokiWarpBilinear_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, fold, rokInterLinear),
              rokStatusBadQuad);
    // Quadrangles: non-convex, degenerate (three on a line), null.
    const double square[4][2] = {{0, 0}, {19, 0}, {19, 15}, {0, 15}};
    const double dart[4][2] = {{0, 0}, {19, 0}, {5, 5}, {0, 15}};
    const double line[4][2] = {{0, 0}, {10, 0}, {20, 0}, {0, 15}};
    EXPECT_EQ(rokiWarpAffineQuad_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, square, dart, rokInterLinear),
              rokStatusBadQuad);
    EXPECT_EQ(rokiWarpPerspectiveQuad_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, line, square, rokInterLinear),
              rokStatusBadQuad);
    EXPECT_EQ(rokiWarpBilinearQuad_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, nullptr, square, rokInterLinear),
              rokStatusNullPtr);
    EXPECT_EQ(dst, before);
    // A parallelogram fits the affine map: no warning.
    const double moved[4][2] = {{2, 3}, {21, 4}, {20, 19}, {1, 18}};
    EXPECT_EQ(rokiWarpAffineQuad_8u_C1R(src.data(), ss, 20, sr, dst.data(), 30, dr, square, moved, rokInterLinear),
              rokStatusOk);
    EXPECT_NE(dst, before);
}

TEST(WarpArgs, NoRoomForTheSpansIsNothingToDo) {
    // 3e8 rows need a span table beyond 2^31 bytes: warning 30, and the
    // (tiny) destination is never touched.
    std::vector<Rok8u> src(4, 1), dst(16, 9);
    const double tall[2][3] = {{1, 0, 0}, {0, 3e8, 0}};
    EXPECT_EQ(rokiWarpAffine_8u_C1R(src.data(), {2, 2}, 2, {0, 0, 2, 2}, dst.data(), 4, {0, 0, 2, 2147483000}, tall,
                                    rokInterLinear),
              rokStatusWrongIntersectQuad);
    EXPECT_EQ(dst, std::vector<Rok8u>(16, 9));
}

// ---- geometry functions ----

TEST(WarpGeometry, RotateShiftExactAtQuarterTurns) {
    const double xc = 3.5, yc = -2.25;
    struct Row {
        double angle, xs, ys;
    };
    const Row rows[] = {{0, 0, 0},           {360, 0, 0},         {-720, 0, 0},        {90, xc - yc, xc + yc},
                        {450, xc - yc, xc + yc}, {-270, xc - yc, xc + yc}, {180, 2 * xc, 2 * yc}, {-180, 2 * xc, 2 * yc},
                        {270, xc + yc, yc - xc}, {-90, xc + yc, yc - xc}, {630, xc + yc, yc - xc}};
    for (const Row& r : rows) {
        double xs = 99, ys = 99;
        ASSERT_EQ(rokiGetRotateShift(xc, yc, r.angle, &xs, &ys), rokStatusOk);
        EXPECT_EQ(xs, r.xs) << r.angle;
        EXPECT_EQ(ys, r.ys) << r.angle;
        ASSERT_EQ(rokiAddRotateShift(xc, yc, r.angle, &xs, &ys), rokStatusOk);
        EXPECT_EQ(xs, 2 * r.xs) << r.angle;
        EXPECT_EQ(ys, 2 * r.ys) << r.angle;
    }
    double xs, ys;
    ASSERT_EQ(rokiGetRotateShift(xc, yc, 30, &xs, &ys), rokStatusOk);
    const double c = std::cos(30 * kPi / 180), s = std::sin(30 * kPi / 180);
    EXPECT_NEAR(xs, xc - xc * c - yc * s, 1e-12);
    EXPECT_NEAR(ys, yc - yc * c + xc * s, 1e-12);
    EXPECT_EQ(rokiGetRotateShift(xc, yc, 30, nullptr, &ys), rokStatusNullPtr);
    EXPECT_EQ(rokiAddRotateShift(xc, yc, 30, &xs, nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiGetRotateShift(kNaN, yc, 30, &xs, &ys), rokStatusOutOfRange);
    EXPECT_EQ(rokiAddRotateShift(xc, yc, kInf, &xs, &ys), rokStatusOutOfRange);
}

TEST(WarpGeometry, QuadsAndBounds) {
    const RokiRect r{2, 3, 5, 4};  // corners (2, 3) .. (6, 6)
    double q[4][2], b[2][2];
    ASSERT_EQ(rokiGetRotateQuad(r, q, 90, 1, 10), rokStatusOk);
    // x' = y + 1, y' = -x + 10, exactly.
    const double want[4][2] = {{4, 8}, {4, 4}, {7, 4}, {7, 8}};
    for (int k = 0; k < 4; ++k) EXPECT_TRUE(q[k][0] == want[k][0] && q[k][1] == want[k][1]) << k;
    ASSERT_EQ(rokiGetRotateBound(r, b, 90, 1, 10), rokStatusOk);
    EXPECT_TRUE(b[0][0] == 4 && b[0][1] == 4 && b[1][0] == 7 && b[1][1] == 8);
    EXPECT_EQ(rokiGetRotateQuad(r, q, kNaN, 0, 0), rokStatusOutOfRange);
    ASSERT_EQ(rokiGetShearQuad(r, q, 0.5, 0, 0, 0), rokStatusOk);
    EXPECT_TRUE(q[2][0] == 6 + 3 && q[2][1] == 6 && q[3][0] == 2 + 3) << q[2][0];
    ASSERT_EQ(rokiGetShearBound(r, b, 0, -1, 0, 0), rokStatusOk);
    EXPECT_TRUE(b[0][1] == 3 - 6 && b[1][1] == 6 - 2);
    // Singular coefficients: the degenerate quadrangle is written with -56.
    const double flat[2][3] = {{1, 1, 0}, {2, 2, 0}};
    q[0][0] = 77;
    EXPECT_EQ(rokiGetAffineQuad(r, q, flat), rokStatusBadQuad);
    EXPECT_EQ(q[0][0], 5);
    b[0][0] = 77;
    EXPECT_EQ(rokiGetAffineBound(r, b, flat), rokStatusBadQuad);
    EXPECT_TRUE(b[0][0] == 5 && b[1][0] == 12);
    // A corner at infinity under a perspective map.
    const double vanish[3][3] = {{1, 0, 0}, {0, 1, 0}, {1, 0, -2}};
    EXPECT_EQ(rokiGetPerspectiveQuad(r, q, vanish), rokStatusBadQuad);
    // Sizes and pointers.
    EXPECT_EQ(rokiGetAffineQuad({-1, 0, 3, 3}, q, flat), rokStatusBadSize);
    EXPECT_EQ(rokiGetBilinearBound({0, 0, 3, 0}, b, (const double(*)[4]) nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiGetShearBound({0, 0, 0, 3}, b, 0, 0, 0, 0), rokStatusBadSize);
}

TEST(WarpGeometry, ConvexityOfTheQuadrangle) {
    // rokiGetAffineTransform judges its quadrangle by the four cross
    // products: any 0 is degenerate, mixed signs are not convex (-58).
    const RokiRect r{0, 0, 11, 6};
    struct Row {
        const char* what;
        double q[4][2];
        RokStatus want;
    };
    const Row rows[] = {
        {"clockwise", {{0, 0}, {10, 0}, {10, 5}, {0, 5}}, rokStatusOk},
        {"anticlockwise", {{0, 0}, {0, 5}, {10, 5}, {10, 0}}, rokStatusOk},
        {"zero-area corner", {{0, 0}, {10, 0}, {20, 0}, {0, 5}}, rokStatusBadCoeffs},
        {"repeated vertex", {{0, 0}, {10, 0}, {10, 0}, {0, 5}}, rokStatusBadCoeffs},
        {"bow tie", {{0, 0}, {10, 5}, {10, 0}, {0, 5}}, rokStatusBadCoeffs},
        {"dart", {{0, 0}, {10, 0}, {3, 2}, {0, 10}}, rokStatusBadCoeffs},
        {"not a number", {{0, 0}, {10, 0}, {10, kNaN}, {0, 5}}, rokStatusBadCoeffs},
        {"kite (not a parallelogram)", {{0, 0}, {10, 1}, {12, 6}, {1, 5}}, rokStatusQuadNotParallelogram},
    };
    for (const Row& row : rows) {
        double c[2][3] = {};
        EXPECT_EQ(rokiGetAffineTransform(r, row.q, c), row.want) << row.what;
    }
    // -58 before -57, -57 for a rectangle one pixel wide or high.
    double c[2][3];
    EXPECT_EQ(rokiGetAffineTransform({0, 0, 1, 6}, rows[2].q, c), rokStatusBadCoeffs);
    EXPECT_EQ(rokiGetAffineTransform({0, 0, 1, 6}, rows[0].q, c), rokStatusBadRect);
    EXPECT_EQ(rokiGetPerspectiveTransform({0, 0, 4, 1}, rows[0].q, (double(*)[3])c), rokStatusBadRect);
}

// Each transform takes the rectangle's corners onto the quadrangle; the Get
// Quad of the transform gives the quadrangle back.
TEST(WarpGeometry, TransformsFromQuadrangles) {
    const RokiRect r{3, 2, 17, 9};
    const double quad[4][2] = {{1.5, 2}, {30, 5.25}, {27, 22}, {4, 17}};
    const double rect[4][2] = {{3, 2}, {19, 2}, {19, 10}, {3, 10}};
    double p[3][3], b[2][4], a[2][3], q[4][2];
    ASSERT_EQ(rokiGetPerspectiveTransform(r, quad, p), rokStatusOk);
    EXPECT_EQ(p[2][2], 1.0);
    ASSERT_EQ(rokiGetBilinearTransform(r, quad, b), rokStatusOk);
    for (int k = 0; k < 4; ++k) {
        const double x = rect[k][0], y = rect[k][1];
        const double d = p[2][0] * x + p[2][1] * y + p[2][2];
        EXPECT_NEAR((p[0][0] * x + p[0][1] * y + p[0][2]) / d, quad[k][0], 1e-9) << k;
        EXPECT_NEAR((p[1][0] * x + p[1][1] * y + p[1][2]) / d, quad[k][1], 1e-9) << k;
        EXPECT_NEAR(b[0][0] * x * y + b[0][1] * x + b[0][2] * y + b[0][3], quad[k][0], 1e-9) << k;
        EXPECT_NEAR(b[1][0] * x * y + b[1][1] * x + b[1][2] * y + b[1][3], quad[k][1], 1e-9) << k;
    }
    ASSERT_EQ(rokiGetPerspectiveQuad(r, q, p), rokStatusOk);
    EXPECT_NEAR(q[2][0], 27, 1e-9);
    ASSERT_EQ(rokiGetBilinearQuad(r, q, b), rokStatusOk);
    EXPECT_NEAR(q[3][1], 17, 1e-9);
    // The affine fit: vertices 0, 1, 3 exactly, warning 28 for vertex 2.
    EXPECT_EQ(rokiGetAffineTransform(r, quad, a), rokStatusQuadNotParallelogram);
    for (int k : {0, 1, 3}) {
        EXPECT_NEAR(a[0][0] * rect[k][0] + a[0][1] * rect[k][1] + a[0][2], quad[k][0], 1e-9) << k;
        EXPECT_NEAR(a[1][0] * rect[k][0] + a[1][1] * rect[k][1] + a[1][2], quad[k][1], 1e-9) << k;
    }
    // A parallelogram within a relative 1e-10: no warning.
    const double para[4][2] = {{1, 1}, {11, 3}, {12, 9 + 5e-10}, {2, 7}};
    EXPECT_EQ(rokiGetAffineTransform(r, para, a), rokStatusOk);
    const double off[4][2] = {{1, 1}, {11, 3}, {12, 9 + 1e-8}, {2, 7}};
    EXPECT_EQ(rokiGetAffineTransform(r, off, a), rokStatusQuadNotParallelogram);
}

}  // namespace
