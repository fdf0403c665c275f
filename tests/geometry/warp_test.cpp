// Warps against the reference: every export of every family, type and
// layout on a drawn transform; rotations at many angles, the exact quarter
// turns, shears, every method over span lengths 1 to 70, and the smooth edge.
#include <cmath>
#include <random>

#include "threads.h"
#include "warp_harness.h"

namespace {

using namespace wtest;

constexpr double kPi = 3.14159265358979323846;

enum class Family {
    Affine, AffineBack, AffineQuad, Persp, PerspBack, PerspQuad, Bilin, BilinBack, BilinQuad, Rotate, RotateCenter,
    Shear
};
constexpr Family kFamilies[] = {Family::Affine,    Family::AffineBack, Family::AffineQuad, Family::Persp,
                                Family::PerspBack, Family::PerspQuad,  Family::Bilin,      Family::BilinBack,
                                Family::BilinQuad, Family::Rotate,     Family::RotateCenter, Family::Shear};
const char* kFamilyNames[] = {"WarpAffine",      "WarpAffineBack", "WarpAffineQuad", "WarpPerspective",
                              "WarpPerspectiveBack", "WarpPerspectiveQuad", "WarpBilinear", "WarpBilinearBack",
                              "WarpBilinearQuad", "Rotate", "RotateCenter", "Shear"};

bool back_form(Family f) { return f == Family::AffineBack || f == Family::PerspBack || f == Family::BilinBack; }

// The arguments of one call of any family, and the transform they make.
struct Args {
    Family family;
    double c[3][4] = {};            // coefficients, row-major in the first columns
    double sq[4][2] = {}, dq[4][2] = {};
    double p[4] = {};               // rotate, rotate-centre or shear parameters
    wref::Transform transform() const {
        double a[2][3] = {{c[0][0], c[0][1], c[0][2]}, {c[1][0], c[1][1], c[1][2]}};
        double pm[3][3] = {{c[0][0], c[0][1], c[0][2]}, {c[1][0], c[1][1], c[1][2]}, {c[2][0], c[2][1], c[2][2]}};
        double b[2][4] = {{c[0][0], c[0][1], c[0][2], c[0][3]}, {c[1][0], c[1][1], c[1][2], c[1][3]}};
        switch (family) {
            case Family::Affine: return wref::affine(a);
            case Family::AffineBack: return wref::affine(a, true);
            case Family::Persp: return wref::perspective(pm);
            case Family::PerspBack: return wref::perspective(pm, true);
            case Family::Bilin: return wref::bilinear(b);
            case Family::BilinBack: return wref::bilinear(b, true);
            case Family::AffineQuad: return wref::fit(wref::Kind::Affine, sq, dq);
            case Family::PerspQuad: return wref::fit(wref::Kind::Perspective, sq, dq);
            case Family::BilinQuad: return wref::fit(wref::Kind::Bilinear, sq, dq);
            case Family::Rotate: return wref::rotation_transform(p[0], p[1], p[2]);
            case Family::RotateCenter: {
                wref::LD cs, sn;
                wref::rotation(p[0], &cs, &sn);
                return wref::rotation_transform(p[0], p[1] - p[1] * cs - p[2] * sn, p[2] - p[2] * cs + p[1] * sn);
            }
            default: {
                const double s[2][3] = {{1, p[0], p[2]}, {p[1], 1, p[3]}};
                return wref::affine(s);
            }
        }
    }
};

template <class T>
AllTypes<T> all_types();
template <class T>
MostTypes<T> most_types();
#define WT_TYPE(S, T)                                                \
    template <>                                                      \
    AllTypes<T> all_types<T>() {                                     \
        return WT_ALL(S);                                            \
    }                                                                \
    template <>                                                      \
    MostTypes<T> most_types<T>() {                                   \
        return WT_MOST(S);                                           \
    }
WT_TYPE(8u, Rok8u)
WT_TYPE(16u, Rok16u)
WT_TYPE(32f, Rok32f)
template <>
AllTypes<Rok64f> all_types<Rok64f>() {
    return WT_ALL(64f);
}

template <class T>
RokStatus invoke(WarpRun<T>& run, const Args& a) {
    const auto all = all_types<T>();
    // Coefficient arrays are passed at their own shapes.
    double k23[2][3], k33[3][3], k24[2][4];
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 4; ++k) {
            if (r < 2 && k < 3) k23[r][k] = a.c[r][k];
            if (k < 3) k33[r][k] = a.c[r][k];
            if (r < 2) k24[r][k] = a.c[r][k];
        }
    const C23 c23 = k23;
    switch (a.family) {
        case Family::Affine: return run.run(all.affine, c23);
        case Family::Rotate: return run.run(all.rotate, a.p[0], a.p[1], a.p[2]);
        case Family::RotateCenter: return run.run(all.rotateCenter, a.p[0], a.p[1], a.p[2]);
        case Family::Shear: return run.run(all.shear, a.p[0], a.p[1], a.p[2], a.p[3]);
        default: break;
    }
    if constexpr (!std::is_same_v<T, Rok64f>) {
        const auto most = most_types<T>();
        switch (a.family) {
            case Family::AffineBack: return run.run(most.affineBack, c23);
            case Family::AffineQuad: return run.run(most.affineQuad, a.sq, a.dq);
            case Family::Persp: return run.run(most.persp, k33);
            case Family::PerspBack: return run.run(most.perspBack, k33);
            case Family::PerspQuad: return run.run(most.perspQuad, a.sq, a.dq);
            case Family::Bilin: return run.run(most.bilin, k24);
            case Family::BilinBack: return run.run(most.bilinBack, k24);
            default: return run.run(most.bilinQuad, a.sq, a.dq);
        }
    }
    return -1;
}

// A drawn call of the family whose quadrangle lands inside dstRoi: a
// rotation with a scale near 1 about the source's centre, carried to the
// destination's centre, then made perspective, bilinear, quadrangles or
// inverted as the family needs.
Args draw(Family f, const Case& c, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    const double angle = 180 * u(rng), scale = 1 + 0.15 * u(rng);
    const double cs = std::cos(angle * kPi / 180) * scale, sn = std::sin(angle * kPi / 180) * scale;
    const double scx = c.srcRoi.x + (c.srcRoi.w - 1) / 2.0, scy = c.srcRoi.y + (c.srcRoi.h - 1) / 2.0;
    const double dcx = c.dstRoi.x + (c.dstRoi.w - 1) / 2.0 + u(rng), dcy = c.dstRoi.y + (c.dstRoi.h - 1) / 2.0 + u(rng);
    // Forward affine F: d = M (s - sc) + dc.
    double m[2][3] = {{cs, sn, 0}, {-sn, cs, 0}};
    m[0][2] = dcx - m[0][0] * scx - m[0][1] * scy;
    m[1][2] = dcy - m[1][0] * scx - m[1][1] * scy;
    const double det = m[0][0] * m[1][1] - m[0][1] * m[1][0];
    double inv[2][3] = {{m[1][1] / det, -m[0][1] / det, 0}, {-m[1][0] / det, m[0][0] / det, 0}};
    inv[0][2] = -(inv[0][0] * m[0][2] + inv[0][1] * m[1][2]);
    inv[1][2] = -(inv[1][0] * m[0][2] + inv[1][1] * m[1][2]);
    Args a{f};
    const auto& base = back_form(f) ? inv : m;
    for (int r = 0; r < 2; ++r)
        for (int k = 0; k < 3; ++k) a.c[r][k] = base[r][k];
    const double ox = back_form(f) ? dcx : scx, oy = back_form(f) ? dcy : scy;
    switch (f) {
        case Family::Persp:
        case Family::PerspBack: {
            // Small perspective terms about the centre, the denominator 1 there.
            const double g = 0.004 * u(rng), h = 0.004 * u(rng);
            a.c[2][0] = g, a.c[2][1] = h, a.c[2][2] = 1 - g * ox - h * oy;
            break;
        }
        case Family::Bilin:
        case Family::BilinBack: {
            // x' gains e (x - ox)(y - oy), written out in xy, x, y, 1.
            for (int r = 0; r < 2; ++r) {
                const double e = 0.004 * u(rng), a1 = a.c[r][0], a2 = a.c[r][1], a3 = a.c[r][2];
                a.c[r][0] = e, a.c[r][1] = a1 - e * oy, a.c[r][2] = a2 - e * ox, a.c[r][3] = a3 + e * ox * oy;
            }
            break;
        }
        case Family::AffineQuad:
        case Family::PerspQuad:
        case Family::BilinQuad: {
            // A source quadrangle near the rectangle and its image moved a little.
            const double rc[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
            for (int k = 0; k < 4; ++k) {
                const double sx = c.srcRoi.x + rc[k][0] * (c.srcRoi.w - 1) + 0.8 * u(rng);
                const double sy = c.srcRoi.y + rc[k][1] * (c.srcRoi.h - 1) + 0.8 * u(rng);
                a.sq[k][0] = sx, a.sq[k][1] = sy;
                a.dq[k][0] = m[0][0] * sx + m[0][1] * sy + m[0][2] + 0.8 * u(rng);
                a.dq[k][1] = m[1][0] * sx + m[1][1] * sy + m[1][2] + 0.8 * u(rng);
            }
            break;
        }
        case Family::Rotate:
            // Unscaled: the shifts carry the centre across.
            a.p[0] = angle;
            a.p[1] = dcx - (std::cos(angle * kPi / 180) * scx + std::sin(angle * kPi / 180) * scy);
            a.p[2] = dcy - (-std::sin(angle * kPi / 180) * scx + std::cos(angle * kPi / 180) * scy);
            break;
        case Family::RotateCenter:
            a.p[0] = angle, a.p[1] = scx + 3 * u(rng), a.p[2] = scy + 3 * u(rng);
            break;
        case Family::Shear:
            a.p[0] = 0.3 * u(rng), a.p[1] = 0.3 * u(rng);
            a.p[2] = dcx - scx - a.p[0] * scy, a.p[3] = dcy - scy - a.p[1] * scx;
            break;
        default: break;
    }
    return a;
}

template <class T>
void family_cases(Family f) {
    const int methods[4] = {1, 2, 4, 6};
    std::mt19937 rng(7 + int(f) * 131 + int(sizeof(T)));
    int n = 0;
    for (Lay lay : rtest::kLayouts) {
        for (int k = 0; k < 2; ++k, ++n) {
            Case c{};
            c.srcW = 8 + int(rng() % 17), c.srcH = 7 + int(rng() % 15);
            c.srcRoi = {int(rng() % 3), int(rng() % 3), c.srcW - 1, c.srcH};  // cut on the right and bottom
            c.dstRoi = {int(rng() % 4), int(rng() % 4), c.srcW + 10, c.srcH + 12};
            c.method = methods[(n + int(f)) % (back_form(f) ? 3 : 4)];
            c.smooth = n % 5 == 4;
            const Args a = draw(f, c, rng);
            c.t = a.transform();
            WarpRun<T> run(lay, c, n % 3, 11 + n);
            const RokStatus st = invoke(run, a);
            const std::string what = std::string(kFamilyNames[int(f)]) + " " + rtest::name_of(lay);
            const long long inside = run.check(what);
            ASSERT_GT(inside, 0) << what;
            if (f == Family::AffineQuad)
                EXPECT_EQ(st, 28) << what;  // the moved vertices make no parallelogram
            else
                EXPECT_EQ(st, rokStatusOk) << what << " " << describe(c);
        }
    }
}

TEST(Warp, EveryExportMatchesTheReference) {
    for (Family f : kFamilies) {
        family_cases<Rok8u>(f);
        family_cases<Rok16u>(f);
        family_cases<Rok32f>(f);
        if (f == Family::Affine || f == Family::Rotate || f == Family::RotateCenter || f == Family::Shear)
            family_cases<Rok64f>(f);
    }
}

// Rotation at angles that cross every octant, near a quarter turn and past
// a full one, every method, about the centre of a source cut by the image.
template <class T>
void rotations(Lay lay) {
    const double angles[] = {10, 45, 90.0000001, 89.9999999, 135.7, -30, 200, 359.9, 725, -1000.25};
    int n = 0;
    for (double angle : angles)
        for (int method : {1, 2, 4, 6}) {
            Case c{};
            c.srcW = 21, c.srcH = 16;
            c.srcRoi = {2, 1, 30, 30};
            c.dstRoi = {1, 2, 30, 29};
            c.method = method;
            Args a{Family::RotateCenter};
            a.p[0] = angle, a.p[1] = 10.5, a.p[2] = 8.25;
            c.t = a.transform();
            WarpRun<T> run(lay, c, 1, 3 + n++);
            ASSERT_EQ(invoke(run, a), rokStatusOk);
            EXPECT_GT(run.check("rotation " + std::to_string(angle)), 100);
        }
}

TEST(Warp, RotationsMatchTheReference) {
    rotations<Rok8u>(Lay::C1);
    rotations<Rok8u>(Lay::C3);
    rotations<Rok8u>(Lay::AC4);
    rotations<Rok16u>(Lay::C4);
    rotations<Rok32f>(Lay::C1);
    rotations<Rok64f>(Lay::P3);
}

// At a quarter turn with whole shifts the pixels are moved: every method
// gives the source pixels exactly, alpha stays, and nothing outside the
// turned rectangle is written. 90.0000001 interpolates instead.
template <class T>
void quarter_turns() {
    for (Lay lay : rtest::kLayouts)
        for (double angle : {0.0, 90.0, 180.0, 270.0, -90.0, 450.0, -540.0})
            for (int shift : {0, 3}) {
                Case c{};
                c.srcW = 37, c.srcH = 70;
                c.srcRoi = {1, 2, 40, 67};
                c.dstRoi = {2, 1, 75, 75};
                c.method = 2 + (shift & 2);
                Args a{Family::RotateCenter};
                a.p[0] = angle, a.p[1] = 36 + shift, a.p[2] = 37;
                c.t = a.transform();
                WarpRun<T> run(lay, c, 3);
                ASSERT_EQ(invoke(run, a), rokStatusOk);
                const long long in = run.check(std::string("quarter turn ") + rtest::name_of(lay));
                EXPECT_GT(in, 30 * 30) << angle;
            }
}

TEST(Warp, QuarterTurnsMovePixels) {
    quarter_turns<Rok8u>();
    quarter_turns<Rok16u>();
    quarter_turns<Rok32f>();
    quarter_turns<Rok64f>();
}

TEST(Warp, AHairPastAQuarterTurnInterpolates) {
    // The exact move and the interpolated turn differ only by the tiny
    // fractions the interpolation sees; in 32-bit floats some value moves.
    Case c{};
    c.srcW = 40, c.srcH = 30;
    c.srcRoi = {0, 0, 40, 30};
    c.dstRoi = {0, 0, 40, 40};
    c.method = 2;
    Args exact{Family::Rotate};
    exact.p[0] = 90, exact.p[1] = 0, exact.p[2] = 39;
    Args hair = exact;
    hair.p[0] = 90.0000001;
    c.t = exact.transform();
    WarpRun<Rok32f> a(Lay::C1, c);
    ASSERT_EQ(invoke(a, exact), rokStatusOk);
    a.check("90");
    c.t = hair.transform();
    WarpRun<Rok32f> b(Lay::C1, c);
    ASSERT_EQ(invoke(b, hair), rokStatusOk);
    b.check("90.0000001");
    int differ = 0;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 40; ++x) differ += a.dst().at(x, y) != b.dst().at(x, y);
    EXPECT_GT(differ, 0);
}

// Span lengths 1 to 70 (every vector tail) for each method, on a near-
// identity map whose spans are the destination's width.
template <class T>
void span_lengths(Lay lay) {
    for (int w = 1; w <= 70; ++w)
        for (int method : {1, 2, 4, 6}) {
            Case c{};
            c.srcW = w + 4, c.srcH = 9;
            c.srcRoi = {0, 0, w + 4, 9};
            c.dstRoi = {1, 1, w, 6};
            c.method = method;
            c.smooth = w % 7 == 0;
            Args a{Family::Affine};
            const double m[2][3] = {{0.97, 0.03, 0.55}, {-0.02, 1.01, 0.4}};
            for (int r = 0; r < 2; ++r)
                for (int k = 0; k < 3; ++k) a.c[r][k] = m[r][k];
            c.t = a.transform();
            WarpRun<T> run(lay, c, w % 3, w);
            ASSERT_EQ(invoke(run, a), rokStatusOk);
            EXPECT_EQ(run.check("width " + std::to_string(w)), 6LL * w);
        }
}

TEST(Warp, EverySpanLengthAndMethod) {
    span_lengths<Rok8u>(Lay::C1);
    span_lengths<Rok8u>(Lay::C3);
    span_lengths<Rok8u>(Lay::C4);
    span_lengths<Rok32f>(Lay::C1);
    span_lengths<Rok16u>(Lay::C1);
}

TEST(Warp, ShearsAndSmoothEdges) {
    int n = 0;
    for (double xs : {-0.7, 0.0, 0.25})
        for (double ys : {-0.3, 0.5})
            for (bool smooth : {false, true}) {
                Case c{};
                c.srcW = 24, c.srcH = 20;
                c.srcRoi = {0, 0, 24, 20};
                c.dstRoi = {0, 0, 50, 50};
                c.method = 1 + (n % 2);
                c.smooth = smooth;
                Args a{Family::Shear};
                a.p[0] = xs, a.p[1] = ys, a.p[2] = 15.5, a.p[3] = 12.25;
                c.t = a.transform();
                WarpRun<Rok8u> run(Lay::C3, c, 1, ++n);
                ASSERT_EQ(invoke(run, a), rokStatusOk);
                EXPECT_GT(run.check("shear"), 200);
            }
}

// Rows that climb or fall up to 0.27 rows and step up to 1.9 columns a
// pixel (16-column windows per block), and up to 0.66 rows and 4.6 columns
// (windows per half block), in each of the four directions, on sources wide
// enough for runs of windows (8-bit one channel, nearest and bilinear), with
// tails.
TEST(Warp, RowsAtEverySlopeAndDirection) {
    const double slopes[][2] = {{1.0, 0.17},  {0.98, -0.17}, {-0.98, 0.17}, {-1.0, -0.2},  {1.85, 0.05},
                                {-1.8, -0.26}, {0.4, 0.1},    {1.2, 0.27},   {-0.3, -0.02}, {0.01, 0.0},
                                {0.87, 0.5},  {-0.5, 0.66},  {2.5, -0.6},   {-4.4, -0.3},  {0.2, -0.4}};
    int n = 0;
    for (const auto& s : slopes)
        for (int method : {1, 2}) {
            Case c{};
            c.srcW = 160, c.srcH = 40;
            c.srcRoi = {1, 2, 158, 37};
            c.dstRoi = {3, 1, 97 + n % 5, 45};
            c.method = method;
            c.smooth = n % 3 == 2;
            Args a{Family::AffineBack};
            const double m[2][2] = {{s[0], -s[1]}, {s[1], s[0]}};
            for (int r = 0; r < 2; ++r) {
                a.c[r][0] = m[r][0], a.c[r][1] = m[r][1];
                a.c[r][2] = (r == 0 ? 80.3 : 20.6) - m[r][0] * 52 - m[r][1] * 23;
            }
            c.t = a.transform();
            WarpRun<Rok8u> run(Lay::C1, c, n % 3, 40 + n);
            ASSERT_EQ(invoke(run, a), rokStatusOk);
            EXPECT_GT(run.check("slopes " + std::to_string(s[0]) + ", " + std::to_string(s[1])), 200);
            ++n;
        }
}

// Spans of several hundred pixels, which the rows hand to the kernels
// whole, for each kind of kernel: vector blocks, scalar rows, planes.
template <class T>
void wide_spans(Lay lay) {
    for (int method : {1, 2, 4}) {
        Case c{};
        c.srcW = 700, c.srcH = 12;
        c.srcRoi = {0, 0, 700, 12};
        c.dstRoi = {2, 1, 697, 9};
        c.method = method;
        c.smooth = method == 2;
        Args a{Family::Affine};
        const double m[2][3] = {{0.999, 0.02, 0.4}, {0.003, 0.97, 0.3}};
        for (int r = 0; r < 2; ++r)
            for (int k = 0; k < 3; ++k) a.c[r][k] = m[r][k];
        c.t = a.transform();
        WarpRun<T> run(lay, c, method % 3, 70 + method);
        ASSERT_EQ(invoke(run, a), rokStatusOk);
        EXPECT_GT(run.check(std::string("wide ") + rtest::name_of(lay)), 600 * 8);
    }
}

TEST(Warp, WideSpansMatchTheReference) {
    wide_spans<Rok8u>(Lay::C1);
    wide_spans<Rok8u>(Lay::C3);
    wide_spans<Rok16u>(Lay::C1);
    wide_spans<Rok32f>(Lay::C1);
    wide_spans<Rok64f>(Lay::P3);
}

TEST(Warp, ResultsDoNotDependOnTheThreadCount) {
    for (int method : {1, 2, 4})
        for (bool smooth : {false, true}) {
            Case c{};
            c.srcW = 200, c.srcH = 150;
            c.srcRoi = {0, 0, 200, 150};
            c.dstRoi = {0, 0, 220, 220};
            c.method = method;
            c.smooth = smooth;
            Args a{Family::RotateCenter};
            a.p[0] = 33, a.p[1] = 100, a.p[2] = 75;
            c.t = a.transform();
            WarpRun<Rok8u> one(Lay::C3, c);
            {
                rokt::WithThreads t(1);
                ASSERT_EQ(invoke(one, a), rokStatusOk);
            }
            for (int threads : {2, 7}) {
                WarpRun<Rok8u> many(Lay::C3, c);
                rokt::WithThreads t(threads);
                ASSERT_EQ(invoke(many, a), rokStatusOk);
                EXPECT_EQ(one.dst().bytes(), many.dst().bytes()) << threads << " threads, method " << method;
            }
        }
}

}  // namespace
