// rokiScale against references written from its formulas: exact integer
// maps up, the accurate and fast paths down, the float range forms.
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "harness.h"
#include "random.h"

namespace {

using convt::check_form;

template <class S>
convt::Fill<S> full_range() {
    std::vector<S> pool = {std::numeric_limits<S>::min(), std::numeric_limits<S>::max(), S(0), S(1), S(-1), S(255),
                           S(256), S(257), S(32767), S(-32768)};
    return convt::pool_fill<S>(pool, double(std::numeric_limits<S>::min()), double(std::numeric_limits<S>::max()));
}

// floor(a / 2^k), independent of how the library shifts.
std::int64_t floor_div(std::int64_t a, int k) {
    const std::int64_t d = std::int64_t(1) << k;
    return a >= 0 ? a / d : -((-a + d - 1) / d);
}

// Nearest with ties to even, from the exact value.
Rok8u nearest_even_8u(long double v) {
    if (std::isnan(v)) return 0;
    const long double f = std::floor(v), frac = v - f;
    long double r = frac > 0.5L ? f + 1 : (frac < 0.5L ? f : (std::fmod(f, 2.0L) == 0 ? f : f + 1));
    return Rok8u(r < 0 ? 0 : (r > 255 ? 255 : r));
}

template <class S, class D, class Ref, class... X>
void four(const char* name, Ref ref, convt::Fill<S> fill, RokStatus (*c1)(const S*, int, D*, int, RokiSize, X...),
          RokStatus (*c3)(const S*, int, D*, int, RokiSize, X...), RokStatus (*c4)(const S*, int, D*, int, RokiSize, X...),
          RokStatus (*ac4)(const S*, int, D*, int, RokiSize, X...), X... extra) {
    SCOPED_TRACE(name);
    auto bind = [=](auto fn) { return [=](const S* s, int ss, D* d, int ds, RokiSize r) { return fn(s, ss, d, ds, r, extra...); }; };
    check_form<S, D>("C1R", 1, false, bind(c1), ref, fill);
    check_form<S, D>("C3R", 3, false, bind(c3), ref, fill);
    check_form<S, D>("C4R", 4, false, bind(c4), ref, fill);
    check_form<S, D>("AC4R", 4, true, bind(ac4), ref, fill);
}

#define ROK_SCALE4(T) rokiScale_##T##_C1R, rokiScale_##T##_C3R, rokiScale_##T##_C4R, rokiScale_##T##_AC4R

TEST(Scale, UpExactFormulas) {
    four<Rok8u, Rok16u>("8u16u", [](Rok8u x) { return Rok16u(std::int64_t(x) * 65535 / 255); }, full_range<Rok8u>(),
                        ROK_SCALE4(8u16u));
    four<Rok8u, Rok16s>("8u16s", [](Rok8u x) { return Rok16s(std::int64_t(x) * 65535 / 255 - 32768); },
                        full_range<Rok8u>(), ROK_SCALE4(8u16s));
    four<Rok8u, Rok32s>("8u32s", [](Rok8u x) { return Rok32s(std::int64_t(x) * 4294967295LL / 255 - 2147483648LL); },
                        full_range<Rok8u>(), ROK_SCALE4(8u32s));
    Rok8u ends[2] = {0, 255};
    Rok16s s16[2];
    Rok32s s32[2];
    ASSERT_EQ(rokiScale_8u16s_C1R(ends, 2, s16, 4, RokiSize{2, 1}), rokStatusOk);
    ASSERT_EQ(rokiScale_8u32s_C1R(ends, 2, s32, 8, RokiSize{2, 1}), rokStatusOk);
    EXPECT_EQ(s16[0], -32768);
    EXPECT_EQ(s16[1], 32767);
    EXPECT_EQ(s32[0], std::numeric_limits<Rok32s>::min());
    EXPECT_EQ(s32[1], 2147483647);
}

TEST(Scale, UpToFloatRange) {
    const float ranges[][2] = {{0.0f, 1.0f}, {-1.0f, 1.0f}, {-1000.0f, 3.5f}, {0.0f, 255.0f}, {1e-3f, 2e-3f}};
    for (const auto& r : ranges) {
        const float vMin = r[0], vMax = r[1];
        const float step = (vMax - vMin) / 255.0f;
        auto ref = [=](Rok8u x) {
            const float product = float(x) * step;
            return vMin + product;
        };
        four<Rok8u, Rok32f>("8u32f", ref, full_range<Rok8u>(), ROK_SCALE4(8u32f), vMin, vMax);
    }
}

TEST(Scale, DownAccurate) {
    auto r16u = [](Rok16u x) { return nearest_even_8u(float(x) * 0.0038910506f); };
    auto r16s = [](Rok16s x) { return nearest_even_8u(float(int(x) + 32768) * 0.0038910506f); };
    auto r32s = [](Rok32s x) { return nearest_even_8u(double(x) * 5.937181414556033e-8 + 127.5000000296859); };
    four<Rok16u, Rok8u>("16u8u", r16u, full_range<Rok16u>(), ROK_SCALE4(16u8u), int(rokHintAccurate));
    four<Rok16s, Rok8u>("16s8u", r16s, full_range<Rok16s>(), ROK_SCALE4(16s8u), int(rokHintAccurate));
    four<Rok32s, Rok8u>("32s8u", r32s, full_range<Rok32s>(), ROK_SCALE4(32s8u), int(rokHintAccurate));
}

// Every 16-bit input once, through the vector body (one contiguous image of
// 65536 samples), against the float rule.
TEST(Scale, DownAccurateEveryInput) {
    std::vector<Rok16u> u(65536);
    std::vector<Rok16s> s(65536);
    for (int k = 0; k < 65536; ++k) {
        u[std::size_t(k)] = Rok16u(k);
        s[std::size_t(k)] = Rok16s(k - 32768);
    }
    std::vector<Rok8u> du(65536), ds(65536);
    ASSERT_EQ(rokiScale_16u8u_C1R(u.data(), 512, du.data(), 256, {256, 256}, rokHintAccurate), rokStatusOk);
    ASSERT_EQ(rokiScale_16s8u_C1R(s.data(), 512, ds.data(), 256, {256, 256}, rokHintAccurate), rokStatusOk);
    for (int k = 0; k < 65536; ++k) {
        ASSERT_EQ(du[std::size_t(k)], nearest_even_8u(float(k) * 0.0038910506f)) << "16u " << k;
        ASSERT_EQ(ds[std::size_t(k)], nearest_even_8u(float(k) * 0.0038910506f)) << "16s " << k - 32768;
    }
}

TEST(Scale, DownFast) {
    auto r16s = [](Rok16s x) { return Rok8u(floor_div(x - floor_div(x, 8), 8) + 128); };
    auto r16u = [](Rok16u x) {
        const std::int64_t v = std::int64_t(x) - 32768;
        return Rok8u(floor_div(v - floor_div(v, 8), 8) + 128);
    };
    auto r32s = [](Rok32s x) { return Rok8u(floor_div(x - floor_div(x, 8), 24) + 128); };
    for (int hint : {int(rokHintDefault), int(rokHintFast), 5}) {
        four<Rok16u, Rok8u>("16u8u", r16u, full_range<Rok16u>(), ROK_SCALE4(16u8u), hint);
        four<Rok16s, Rok8u>("16s8u", r16s, full_range<Rok16s>(), ROK_SCALE4(16s8u), hint);
        four<Rok32s, Rok8u>("32s8u", r32s, full_range<Rok32s>(), ROK_SCALE4(32s8u), hint);
    }
    const Rok16s ends[2] = {-32768, 32767};
    Rok8u out[2];
    ASSERT_EQ(rokiScale_16s8u_C1R(ends, 4, out, 2, RokiSize{2, 1}, rokHintFast), rokStatusOk);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 255);
}

TEST(Scale, DownFromFloatRange) {
    const float ranges[][2] = {{0.0f, 1.0f}, {-1.0f, 1.0f}, {-1000.0f, 3.5f}, {0.0f, 255.0f}, {10.0f, 10.5f}};
    for (const auto& r : ranges) {
        const float vMin = r[0], vMax = r[1];
        const float k = 255.0f / (vMax - vMin);
        const float kv = k * vMin;
        const float b = 0.0f - kv;
        auto ref = [=](float x) {
            if (std::isnan(x)) return Rok8u(0);
            x = x > vMax ? vMax : x;
            x = x < vMin ? vMin : x;
            const float product = x * k;
            const float sum = product + b;
            return nearest_even_8u(sum);
        };
        std::vector<float> pool = {vMin, vMax, vMin - 1, vMax + 1, (vMin + vMax) / 2, std::nanf(""),
                                   std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
        for (int i = 0; i <= 255; i += 17) pool.push_back(vMin + (float(i) + 0.5f) / k);
        four<Rok32f, Rok8u>("32f8u", ref, convt::pool_fill<float>(pool, vMin - 5, vMax + 5), ROK_SCALE4(32f8u), vMin,
                            vMax);
    }
}

// The accurate and float forms set nearest for the call: the caller's mode
// neither changes their results nor is lost.
TEST(Scale, RoundingControlSetAndRestored) {
    rokt::GuardedImage<Rok32f> f(61, 2, 1, 1);
    rokt::GuardedImage<Rok32s> i(61, 2, 1, 1);
    rokt::fill_random(f, 3);
    rokt::fill_random(i, 4);
    rokt::GuardedImage<Rok8u> nearestF(61, 2, 1), nearestI(61, 2, 1), otherF(61, 2, 1), otherI(61, 2, 1);
    const RokiSize roi{61, 2};
    ASSERT_EQ(rokiScale_32f8u_C1R(f.data(), f.step(), nearestF.data(), nearestF.step(), roi, -700.0f, 900.0f), 0);
    ASSERT_EQ(rokiScale_32s8u_C1R(i.data(), i.step(), nearestI.data(), nearestI.step(), roi, rokHintAccurate), 0);
    for (int caller : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        std::fesetround(caller);
        const RokStatus a = rokiScale_32f8u_C1R(f.data(), f.step(), otherF.data(), otherF.step(), roi, -700.0f, 900.0f);
        const RokStatus b = rokiScale_32s8u_C1R(i.data(), i.step(), otherI.data(), otherI.step(), roi, rokHintAccurate);
        const int after = std::fegetround();
        std::fesetround(FE_TONEAREST);
        ASSERT_EQ(a, rokStatusOk);
        ASSERT_EQ(b, rokStatusOk);
        EXPECT_EQ(after, caller);
        EXPECT_EQ(otherF.bytes(), nearestF.bytes());
        EXPECT_EQ(otherI.bytes(), nearestI.bytes());
    }
}

}  // namespace
