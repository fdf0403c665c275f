// Image moments: raw moments of every member against direct sums (exact for
// integer images), the getters against their definitions, the worked cases,
// and the order of the checks with nothing written on error.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "alloc_failure.h"
#include "guarded.h"
#include "random.h"
#include "roki.h"

namespace {

using rokt::GuardedImage;
using i128 = __int128;

// A state of either kind, released at the end of the scope.
struct State64f {
    RokiMomentState_64f* p = nullptr;
    State64f() { EXPECT_EQ(rokiMomentInitAlloc_64f(&p, rokHintDefault), rokStatusOk); }
    ~State64f() { rokiMomentFree_64f(p); }
};
struct State64s {
    RokiMomentState_64s* p = nullptr;
    State64s() { EXPECT_EQ(rokiMomentInitAlloc_64s(&p, rokHintAccurate), rokStatusOk); }
    ~State64s() { rokiMomentFree_64s(p); }
};

template <class T, class S>
struct Member {
    std::string name;
    int nc, outs;
    RokStatus (*fn)(const T*, int, RokiSize, S*);
};

template <class T>
std::vector<Member<T, RokiMomentState_64f>> members64f();
template <>
std::vector<Member<Rok8u, RokiMomentState_64f>> members64f() {
    return {{"Moments64f_8u_C1R", 1, 1, rokiMoments64f_8u_C1R},
            {"Moments64f_8u_C3R", 3, 3, rokiMoments64f_8u_C3R},
            {"Moments64f_8u_AC4R", 4, 3, rokiMoments64f_8u_AC4R}};
}
template <>
std::vector<Member<Rok16u, RokiMomentState_64f>> members64f() {
    return {{"Moments64f_16u_C1R", 1, 1, rokiMoments64f_16u_C1R},
            {"Moments64f_16u_C3R", 3, 3, rokiMoments64f_16u_C3R},
            {"Moments64f_16u_AC4R", 4, 3, rokiMoments64f_16u_AC4R}};
}
template <>
std::vector<Member<Rok32f, RokiMomentState_64f>> members64f() {
    return {{"Moments64f_32f_C1R", 1, 1, rokiMoments64f_32f_C1R},
            {"Moments64f_32f_C3R", 3, 3, rokiMoments64f_32f_C3R},
            {"Moments64f_32f_AC4R", 4, 3, rokiMoments64f_32f_AC4R}};
}
template <class T>
std::vector<Member<T, RokiMomentState_64s>> members64s();
template <>
std::vector<Member<Rok8u, RokiMomentState_64s>> members64s() {
    return {{"Moments64s_8u_C1R", 1, 1, rokiMoments64s_8u_C1R},
            {"Moments64s_8u_C3R", 3, 3, rokiMoments64s_8u_C3R},
            {"Moments64s_8u_AC4R", 4, 3, rokiMoments64s_8u_AC4R}};
}
template <>
std::vector<Member<Rok16u, RokiMomentState_64s>> members64s() {
    return {{"Moments64s_16u_C1R", 1, 1, rokiMoments64s_16u_C1R},
            {"Moments64s_16u_C3R", 3, 3, rokiMoments64s_16u_C3R},
            {"Moments64s_16u_AC4R", 4, 3, rokiMoments64s_16u_AC4R}};
}

// Exact raw moments of an integer channel, entry 4n + m.
template <class T>
std::vector<i128> exact_moments(const GuardedImage<T>& img, int c) {
    std::vector<i128> M(16, 0);
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x) {
            const i128 v = img.at(x, y, c);
            for (int n = 0; n < 4; ++n)
                for (int m = 0; m + n < 4; ++m) {
                    i128 t = v;
                    for (int i = 0; i < m; ++i) t *= x;
                    for (int i = 0; i < n; ++i) t *= y;
                    M[std::size_t(4 * n + m)] += t;
                }
        }
    return M;
}

// The same in long double for any image, about an origin (ox, oy).
template <class T>
long double direct_moment(const GuardedImage<T>& img, int c, int m, int n, long double ox = 0, long double oy = 0) {
    long double s = 0;
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            s += std::pow(x + ox, m) * std::pow(y + oy, n) * (long double)img.at(x, y, c);
    return s;
}

template <class T>
void fill(GuardedImage<T>& img, std::uint32_t seed, bool bright) {
    if (!bright) {
        rokt::fill_random(img, seed);
        if constexpr (std::is_same_v<T, Rok32f>)
            for (int y = 0; y < img.height(); ++y)
                for (int i = 0; i < img.width() * img.channels(); ++i) img.row(y)[i] = std::fabs(img.row(y)[i]);
        return;
    }
    for (int y = 0; y < img.height(); ++y)
        for (int i = 0; i < img.width() * img.channels(); ++i) img.row(y)[i] = std::numeric_limits<T>::max();
}

// Widths across the blocks (32 bytes, 8 words, 8 floats) and the chunks
// (2560 bytes, 256 words; 1024 samples gathered for several channels).
template <class T>
std::vector<int> widths() {
    if constexpr (std::is_same_v<T, Rok8u>) return {1, 31, 32, 33, 100, 1023, 1025, 2559, 2561, 6400};
    else if constexpr (std::is_same_v<T, Rok16u>) return {1, 7, 8, 9, 255, 256, 257, 1030};
    else return {1, 7, 8, 9, 100, 1025};
}

template <class T>
class RawMoments : public ::testing::Test {};
using IntegerTypes = ::testing::Types<Rok8u, Rok16u>;
TYPED_TEST_SUITE(RawMoments, IntegerTypes);

// Every raw moment through GetSpatialMoment at offset (0, 0): the 64f kind
// holds the exact total rounded once, the 64s kind the exact total. Bright
// images fill every 32-bit lane of the running sums as far as they go.
TYPED_TEST(RawMoments, IntegerExact) {
    using T = TypeParam;
    State64f f;
    State64s s;
    const auto m64f = members64f<T>();
    const auto m64s = members64s<T>();
    for (std::size_t k = 0; k < m64f.size(); ++k)
        for (int w : widths<T>())
            for (bool bright : {false, true}) {
                const int nc = m64f[k].nc, h = w > 1000 ? 2 : 3;
                GuardedImage<T> img(w, h, nc, w % 3, w % 2 ? rokt::Guard::After : rokt::Guard::Before);
                fill(img, std::uint32_t(w), bright);
                ASSERT_EQ(m64f[k].fn(img.data(), img.step(), {w, h}, f.p), rokStatusOk) << m64f[k].name;
                ASSERT_EQ(m64s[k].fn(img.data(), img.step(), {w, h}, s.p), rokStatusOk) << m64s[k].name;
                for (int c = 0; c < m64f[k].outs; ++c) {
                    const std::vector<i128> want = exact_moments(img, c);
                    for (int n = 0; n < 4; ++n)
                        for (int m = 0; m + n < 4; ++m) {
                            Rok64f vf = -1;
                            Rok64s vs = -1;
                            ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, m, n, c, {0, 0}, &vf), rokStatusOk);
                            ASSERT_EQ(rokiGetSpatialMoment_64s(s.p, m, n, c, {0, 0}, &vs, 0), rokStatusOk);
                            const i128 e = want[std::size_t(4 * n + m)];
                            EXPECT_EQ(vf, double(e)) << m64f[k].name << " w=" << w << " M" << m << n << " c" << c;
                            EXPECT_EQ(vs, std::int64_t(e)) << m64s[k].name << " w=" << w << " M" << m << n << " c" << c;
                        }
                }
            }
}

// Float images against long-double sums (the partial sums round differently).
TEST(RawMoments, FloatNearDirectSums) {
    State64f f;
    for (const auto& mem : members64f<Rok32f>())
        for (int w : widths<Rok32f>()) {
            GuardedImage<Rok32f> img(w, 3, mem.nc, 1);
            fill(img, std::uint32_t(w), false);
            ASSERT_EQ(mem.fn(img.data(), img.step(), {w, 3}, f.p), rokStatusOk);
            for (int c = 0; c < mem.outs; ++c)
                for (int n = 0; n < 4; ++n)
                    for (int m = 0; m + n < 4; ++m) {
                        Rok64f v;
                        ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, m, n, c, {0, 0}, &v), rokStatusOk);
                        const long double want = direct_moment(img, c, m, n);
                        EXPECT_NEAR(v, double(want), 1e-12 * double(std::fabs(want)) + 1e-300)
                            << mem.name << " w=" << w << " M" << m << n;
                    }
        }
}

// A 64s state is 400 bytes of caller memory after Init.
TEST(RawMoments, CallerMemoryState) {
    int size = 0;
    ASSERT_EQ(rokiMomentGetStateSize_64s(rokHintDefault, &size), rokStatusOk);
    EXPECT_EQ(size, 400);
    alignas(8) unsigned char mem[400];
    auto* st = reinterpret_cast<RokiMomentState_64s*>(mem);
    ASSERT_EQ(rokiMomentInit_64s(st, rokHintFast), rokStatusOk);
    Rok64s v = 0;
    EXPECT_EQ(rokiGetSpatialMoment_64s(st, 0, 0, 0, {0, 0}, &v, 0), rokStatusBadChannel) << "no moments yet";
    const Rok8u px[2] = {3, 4};
    ASSERT_EQ(rokiMoments64s_8u_C1R(px, 2, {2, 1}, st), rokStatusOk);
    ASSERT_EQ(rokiGetSpatialMoment_64s(st, 1, 0, 0, {0, 0}, &v, 0), rokStatusOk);
    EXPECT_EQ(v, 4);
}

// Central moments straight from their definition, sum (x - x')^m (y - y')^n I.
template <class T>
long double direct_central(const GuardedImage<T>& img, int c, int m, int n) {
    const long double m00 = direct_moment(img, c, 0, 0);
    return direct_moment(img, c, m, n, -direct_moment(img, c, 1, 0) / m00, -direct_moment(img, c, 0, 1) / m00);
}

void expect_close(double got, long double want, double rel, const char* what, const std::string& at) {
    EXPECT_NEAR(got, double(want), rel * std::fabs(double(want)) + 1e-18) << what << " " << at;
}

// Spatial moments with offsets, central and normalised moments and the Hu
// invariants of a random 8-bit image, against long-double references.
TEST(MomentGetters, MatchDefinitions) {
    GuardedImage<Rok8u> img(37, 23, 1);
    rokt::fill_random(img, 5);
    State64f f;
    State64s s;
    ASSERT_EQ(rokiMoments64f_8u_C1R(img.data(), img.step(), {37, 23}, f.p), rokStatusOk);
    ASSERT_EQ(rokiMoments64s_8u_C1R(img.data(), img.step(), {37, 23}, s.p), rokStatusOk);
    const long double m00 = direct_moment(img, 0, 0, 0);
    const RokiPoint offsets[] = {{0, 0}, {5, -7}, {-100, 250}};
    for (int n = 0; n < 4; ++n)
        for (int m = 0; m + n < 4; ++m) {
            const std::string at = std::to_string(10 * m + n);
            for (const RokiPoint o : offsets) {
                Rok64f v, nv;
                Rok64s vs;
                ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, m, n, 0, o, &v), rokStatusOk);
                ASSERT_EQ(rokiGetNormalizedSpatialMoment_64f(f.p, m, n, 0, o, &nv), rokStatusOk);
                ASSERT_EQ(rokiGetSpatialMoment_64s(s.p, m, n, 0, o, &vs, 0), rokStatusOk);
                const long double want = direct_moment(img, 0, m, n, o.x, o.y);
                expect_close(v, want, 1e-13, "spatial", at);
                expect_close(nv, want / std::pow(m00, (m + n) / 2.0L + 1), 1e-13, "normalized spatial", at);
                EXPECT_EQ(vs, std::int64_t(std::llround(want))) << "exact 64s spatial " << at;
            }
            Rok64f cm, ncm;
            Rok64s cms;
            ASSERT_EQ(rokiGetCentralMoment_64f(f.p, m, n, 0, &cm), rokStatusOk);
            ASSERT_EQ(rokiGetNormalizedCentralMoment_64f(f.p, m, n, 0, &ncm), rokStatusOk);
            ASSERT_EQ(rokiGetCentralMoment_64s(s.p, m, n, 0, &cms, 0), rokStatusOk);
            const long double want = direct_central(img, 0, m, n);
            // First-order central moments are 0 by construction.
            if (m + n == 1) {
                EXPECT_EQ(cm, 0.0) << at;
            } else {
                expect_close(cm, want, 1e-9, "central", at);
            }
            expect_close(ncm, m + n == 1 ? 0.0L : want / std::pow(m00, (m + n) / 2.0L + 1), 1e-9, "normalized", at);
            EXPECT_NEAR(double(cms), double(want), 0.5 + 1e-9 * std::fabs(double(want))) << "64s central " << at;
        }
    // Hu from the normalised central moments, h5 with its first bracket
    // squaring (eta12 + eta03).
    auto eta = [&](int p, int q) { return direct_central(img, 0, p, q) / std::pow(m00, (p + q) / 2.0L + 1); };
    const long double n20 = eta(2, 0), n02 = eta(0, 2), n11 = eta(1, 1), n30 = eta(3, 0), n21 = eta(2, 1),
                      n12 = eta(1, 2), n03 = eta(0, 3);
    const long double t0 = n30 + n12, t1 = n21 + n03, q0 = n30 - 3 * n12, q1 = 3 * n21 - n03;
    const long double want[7] = {
        n20 + n02,
        (n20 - n02) * (n20 - n02) + 4 * n11 * n11,
        q0 * q0 + q1 * q1,
        t0 * t0 + t1 * t1,
        q0 * t0 * ((n12 + n03) * (n12 + n03) - 3 * t1 * t1) + q1 * t1 * (3 * t0 * t0 - t1 * t1),
        (n20 - n02) * (t0 * t0 - t1 * t1) + 4 * n11 * t0 * t1,
        q1 * t0 * (t0 * t0 - 3 * t1 * t1) - q0 * t1 * (3 * t0 * t0 - t1 * t1),
    };
    Rok64f h[7];
    Rok64s hs[7];
    ASSERT_EQ(rokiGetHuMoments_64f(f.p, 0, h), rokStatusOk);
    ASSERT_EQ(rokiGetHuMoments_64s(s.p, 0, hs, -40), rokStatusOk);
    for (int i = 0; i < 7; ++i) {
        expect_close(h[i], want[i], 1e-7, "Hu", std::to_string(i + 1));
        EXPECT_NEAR(double(hs[i]), std::ldexp(double(want[i]), 40), 0.5 + 1e-7 * std::ldexp(std::fabs(double(want[i])), 40))
            << "64s h" << i + 1;
    }
    const long double usual = q0 * t0 * (t0 * t0 - 3 * t1 * t1) + q1 * t1 * (3 * t0 * t0 - t1 * t1);
    EXPECT_GT(std::fabs(double(want[4] - usual)), 1e-6 * std::fabs(double(usual))) << "the image tells the brackets apart";
}

// The 64s scale factor: half to even above 0, saturation below.
TEST(MomentGetters, ScaleFactor64s) {
    const Rok8u px[4] = {5, 0, 0, 6};  // M00 = 11, M10 = 18 (x = 3), M20 = 54, M30 = 162
    State64s s;
    ASSERT_EQ(rokiMoments64s_8u_C1R(px, 4, {4, 1}, s.p), rokStatusOk);
    struct Row {
        int m, sf;
        Rok64s want;
    };
    const Row rows[] = {{0, 0, 11}, {0, 1, 6}, {0, 2, 3}, {1, 2, 4}, {1, 3, 2}, {1, 2, 4},
                        {0, -3, 88}, {3, -58, INT64_MAX}, {2, 100, 0}, {1, 1, 9}};
    for (const auto& r : rows) {
        Rok64s v = -1;
        ASSERT_EQ(rokiGetSpatialMoment_64s(s.p, r.m, 0, 0, {0, 0}, &v, r.sf), rokStatusOk);
        EXPECT_EQ(v, r.want) << "M" << r.m << "0 sf " << r.sf;
    }
    // 11 / 2 = 5.5 -> 6, 11 / 4 = 2.75 -> 3, 18 / 8 = 2.25 -> 2; a tie 18 / 4 = 4.5 -> 4.
    Rok64s v;
    ASSERT_EQ(rokiGetSpatialMoment_64s(s.p, 1, 0, 0, {-2, 0}, &v, 0), rokStatusOk);
    EXPECT_EQ(v, 18 - 2 * 11);
    ASSERT_EQ(rokiGetCentralMoment_64s(s.p, 2, 0, 0, &v, -4), rokStatusOk);
    EXPECT_EQ(v, std::llround((54 - 18.0 / 11 * 18) * 16));
}

TEST(MomentGetters, WorkedCases) {
    State64f f;
    // One pixel of value 1 at the ROI's origin.
    const Rok8u one[4] = {1, 0, 0, 0};
    ASSERT_EQ(rokiMoments64f_8u_C1R(one, 2, {2, 2}, f.p), rokStatusOk);
    Rok64f v = -1;
    ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, 0, 0, 0, {0, 0}, &v), rokStatusOk);
    EXPECT_EQ(v, 1.0);
    for (int n = 0; n < 4; ++n)
        for (int m = 0; m + n < 4; ++m)
            if (m + n > 0) {
                ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, m, n, 0, {0, 0}, &v), rokStatusOk);
                EXPECT_EQ(v, 0.0) << m << n;
            }
    ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, 1, 0, 0, {5, 7}, &v), rokStatusOk);
    EXPECT_EQ(v, 5.0);
    ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, 2, 1, 0, {5, 7}, &v), rokStatusOk);
    EXPECT_EQ(v, 175.0);

    // All zero: spatial moments 0, everything normalised -20.
    const Rok8u zero[4] = {};
    ASSERT_EQ(rokiMoments64f_8u_C1R(zero, 2, {2, 2}, f.p), rokStatusOk);
    Rok64f h[7];
    EXPECT_EQ(rokiGetSpatialMoment_64f(f.p, 1, 1, 0, {3, 3}, &v), rokStatusOk);
    EXPECT_EQ(v, 0.0);
    EXPECT_EQ(rokiGetCentralMoment_64f(f.p, 2, 0, 0, &v), rokStatusMomentTooSmall);
    EXPECT_EQ(rokiGetNormalizedSpatialMoment_64f(f.p, 0, 0, 0, {0, 0}, &v), rokStatusMomentTooSmall);
    EXPECT_EQ(rokiGetNormalizedCentralMoment_64f(f.p, 0, 2, 0, &v), rokStatusMomentTooSmall);
    EXPECT_EQ(rokiGetHuMoments_64f(f.p, 0, h), rokStatusMomentTooSmall);
    // |M00| must exceed 2.220446049250313e-16 itself.
    const Rok32f tiny[1] = {2.220446049250313e-16f};
    ASSERT_EQ(rokiMoments64f_32f_C1R(tiny, 4, {1, 1}, f.p), rokStatusOk);
    ASSERT_EQ(rokiGetSpatialMoment_64f(f.p, 0, 0, 0, {0, 0}, &v), rokStatusOk);
    EXPECT_EQ(rokiGetCentralMoment_64f(f.p, 0, 0, 0, &v), v > 2.220446049250313e-16 ? rokStatusOk : rokStatusMomentTooSmall);
    const Rok32f negative[1] = {-1.0f};
    ASSERT_EQ(rokiMoments64f_32f_C1R(negative, 4, {1, 1}, f.p), rokStatusOk);
    EXPECT_EQ(rokiGetCentralMoment_64f(f.p, 0, 0, 0, &v), rokStatusOk) << "|M00| counts";
    EXPECT_EQ(v, -1.0);
}

TEST(MomentChecks, OrderOfChecksWritesNothing) {
    State64f f;
    State64s s;
    Rok8u img[64] = {};
    img[5] = 9;
    ASSERT_EQ(rokiMoments64f_8u_C1R(img, 8, {8, 8}, f.p), rokStatusOk);
    ASSERT_EQ(rokiMoments64s_8u_C1R(img, 8, {8, 8}, s.p), rokStatusOk);
    unsigned char before64f[400], before64s[400];
    std::memcpy(before64f, f.p, 400);
    std::memcpy(before64s, s.p, 400);
    auto* wrong64f = reinterpret_cast<RokiMomentState_64f*>(s.p);
    auto* wrong64s = reinterpret_cast<RokiMomentState_64s*>(f.p);
    Rok64f v = 42;
    Rok64s vs = 42;
    Rok64f h[7] = {42};
    const RokiSize ok{4, 4}, bad{0, 4};
    struct Row {
        const char* what;
        RokStatus got, want;
    };
    const Row rows[] = {
        {"null source", rokiMoments64f_8u_C1R(nullptr, 0, bad, wrong64f), rokStatusNullPtr},
        {"null state", rokiMoments64s_16u_C3R(reinterpret_cast<Rok16u*>(img), 24, ok, nullptr), rokStatusNullPtr},
        {"tag before step", rokiMoments64f_8u_C1R(img, 0, bad, wrong64f), rokStatusBadContext},
        {"step before size", rokiMoments64f_8u_C3R(img, 0, bad, f.p), rokStatusBadStep},
        {"size before short step", rokiMoments64s_8u_C1R(img, 1, bad, s.p), rokStatusBadSize},
        {"step shorter than the row", rokiMoments64f_8u_C1R(img, 9, {10, 1}, f.p), rokStatusStepTooShort},
        {"AC4 row is 4 samples a pixel", rokiMoments64s_8u_AC4R(img, 15, {4, 1}, s.p), rokStatusStepTooShort},
        {"16u row bytes", rokiMoments64f_16u_C1R(reinterpret_cast<Rok16u*>(img), 7, {4, 1}, f.p), rokStatusStepTooShort},
        {"getter null result", rokiGetCentralMoment_64f(f.p, 1, 1, 0, nullptr), rokStatusNullPtr},
        {"getter null state", rokiGetHuMoments_64s(nullptr, 0, nullptr, 0), rokStatusNullPtr},
        {"getter tag", rokiGetSpatialMoment_64f(wrong64f, 9, 9, 9, {0, 0}, &v), rokStatusBadContext},
        {"getter tag 64s", rokiGetNormalizedCentralMoment_64s(wrong64s, 0, 0, 0, &vs, 0), rokStatusBadContext},
        {"orders before channel", rokiGetSpatialMoment_64f(f.p, 2, 2, 5, {0, 0}, &v), rokStatusBadSize},
        {"channel", rokiGetCentralMoment_64s(s.p, 1, 1, 1, &vs, 0), rokStatusBadChannel},
        {"negative channel", rokiGetNormalizedSpatialMoment_64f(f.p, 0, 0, -1, {0, 0}, &v), rokStatusBadChannel},
        {"Hu channel", rokiGetHuMoments_64f(f.p, 1, h), rokStatusBadChannel},
        {"Hu tag", rokiGetHuMoments_64f(wrong64f, 0, h), rokStatusBadContext},
        // Negative orders select no entry: success, nothing written.
        {"negative order", rokiGetSpatialMoment_64f(f.p, -1, 2, 0, {0, 0}, &v), rokStatusOk},
        {"negative order 64s", rokiGetCentralMoment_64s(s.p, 4, -1, 0, &vs, 0), rokStatusOk},
        {"negative orders", rokiGetNormalizedCentralMoment_64f(f.p, -5, -5, 0, &v), rokStatusOk},
        {"free wrong kind", rokiMomentFree_64f(wrong64f), rokStatusBadContext},
        {"free null", rokiMomentFree_64s(nullptr), rokStatusNullPtr},
        {"alloc null", rokiMomentInitAlloc_64f(nullptr, 0), rokStatusNullPtr},
        {"size null", rokiMomentGetStateSize_64s(0, nullptr), rokStatusNullPtr},
        {"init null", rokiMomentInit_64s(nullptr, 0), rokStatusNullPtr},
    };
    for (const auto& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
    EXPECT_EQ(v, 42);
    EXPECT_EQ(vs, 42);
    EXPECT_EQ(h[0], 42);
    EXPECT_EQ(std::memcmp(before64f, f.p, 400), 0);
    EXPECT_EQ(std::memcmp(before64s, s.p, 400), 0);

    // A zero image's central moment: the empty selection wins over -20.
    ASSERT_EQ(rokiMoments64f_8u_C1R(img + 6, 8, {2, 2}, f.p), rokStatusOk);
    EXPECT_EQ(rokiGetCentralMoment_64f(f.p, 0, -1, 0, &v), rokStatusOk);
    EXPECT_EQ(v, 42);

    // A failed allocation leaves the caller's pointer as it was.
    RokiMomentState_64f* failed = reinterpret_cast<RokiMomentState_64f*>(&v);
    {
        rokt::FailAllocations fail(300);
        EXPECT_EQ(rokiMomentInitAlloc_64f(&failed, 0), rokStatusNoMemory);
    }
    EXPECT_EQ(failed, reinterpret_cast<RokiMomentState_64f*>(&v)) << "nothing written on failure";
}

}  // namespace
