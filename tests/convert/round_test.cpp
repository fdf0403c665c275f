// Float to integer with each rounding mode, the scaled pairs and bits to
// bytes, against references in exact (long double / 128-bit) arithmetic.
// The float forms run while the caller's rounding mode is upward, so a
// result that depended on the caller's mode instead of the one the call
// asks for would show.
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "harness.h"
#include "random.h"
#include "reference.h"

namespace {

using convt::check_form;

// Restores round-to-nearest when a test ends, whatever it set.
struct CallerMode {
    explicit CallerMode(int mode) { std::fesetround(mode); }
    ~CallerMode() { std::fesetround(FE_TONEAREST); }
};

// x rounded by mode (0 toward zero, 1 ties to even, other ties away from
// zero) and saturated to D; NaN gives D's minimum, as -infinity does. Every
// step is exact in long double.
template <class D>
D round_ref(long double x, int mode) {
    if (std::isnan(x)) return std::numeric_limits<D>::min();
    const long double lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
    if (x <= lo) return std::numeric_limits<D>::min();
    if (x >= hi) return std::numeric_limits<D>::max();
    const long double f = std::floor(x), frac = x - f;
    long double r;
    if (mode == 0) r = std::trunc(x);
    else if (frac != 0.5L) r = frac > 0.5L ? f + 1 : f;
    else if (mode == 1) r = std::fmod(f, 2.0L) == 0 ? f : f + 1;
    else r = x > 0 ? f + 1 : f;
    r = r < lo ? lo : (r > hi ? hi : r);
    return D(r);
}

// Ties, near-ties and saturation edges of D, NaN and infinities.
template <class D>
convt::Fill<float> float_fill(double spread) {
    const double lo = std::numeric_limits<D>::min(), hi = double(std::numeric_limits<D>::max());
    std::vector<float> pool = {0.5f, -0.5f, 1.5f, -1.5f, 2.5f, -2.5f, 3.5f, 2.7f, -2.7f, 0.49999997f, -0.49999997f,
                               0.0f, -0.0f, 1e10f, -1e10f, std::numeric_limits<float>::quiet_NaN(),
                               std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
    for (double e : {lo, hi})
        for (double d : {-1.0, -0.5, -0.25, 0.0, 0.25, 0.5, 1.0, 300.0}) pool.push_back(float(e + d));
    return convt::pool_fill<float>(pool, lo - spread, hi + spread);
}

template <class D>
void four_round(const char* name, RokStatus (*c1)(const Rok32f*, int, D*, int, RokiSize, int),
                RokStatus (*c3)(const Rok32f*, int, D*, int, RokiSize, int),
                RokStatus (*c4)(const Rok32f*, int, D*, int, RokiSize, int),
                RokStatus (*ac4)(const Rok32f*, int, D*, int, RokiSize, int)) {
    SCOPED_TRACE(name);
    for (int mode : {0, 1, 2, 7}) {
        SCOPED_TRACE(mode);
        auto bind = [mode](auto fn) {
            return [fn, mode](const Rok32f* s, int ss, D* d, int ds, RokiSize r) { return fn(s, ss, d, ds, r, mode); };
        };
        auto ref = [mode](float x) { return round_ref<D>(x, mode); };
        check_form<Rok32f, D>("C1R", 1, false, bind(c1), ref, float_fill<D>(100));
        check_form<Rok32f, D>("C3R", 3, false, bind(c3), ref, float_fill<D>(100));
        check_form<Rok32f, D>("C4R", 4, false, bind(c4), ref, float_fill<D>(100));
        check_form<Rok32f, D>("AC4R", 4, true, bind(ac4), ref, float_fill<D>(100));
    }
}

#define ROK_ROUND(T) \
    four_round(#T, rokiConvert_##T##_C1R, rokiConvert_##T##_C3R, rokiConvert_##T##_C4R, rokiConvert_##T##_AC4R)

TEST(ConvertRound, FloatToIntegerEveryModeUnderUpwardCaller) {
    CallerMode caller(FE_UPWARD);
    ROK_ROUND(32f8u);
    ROK_ROUND(32f8s);
    ROK_ROUND(32f16u);
    ROK_ROUND(32f16s);
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
}

TEST(ConvertRound, DocumentedValues) {
    struct Case { float x; int mode; int want; };
    const Case cases[] = {{2.7f, 0, 2}, {-0.5f, 0, 0}, {2.5f, 1, 2}, {3.5f, 1, 4}, {2.5f, 2, 3}, {300.0f, 2, 255},
                          {0.5f, 1, 0}, {1.5f, 1, 2}, {0.49999997f, 2, 0}, {254.5f, 2, 255}, {254.5f, 1, 254},
                          {-0.7f, 1, 0}, {255.9f, 0, 255}};
    for (int caller : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        CallerMode set(caller);
        for (const Case& c : cases) {
            Rok8u out = 77;
            ASSERT_EQ(rokiConvert_32f8u_C1R(&c.x, 4, &out, 1, RokiSize{1, 1}, c.mode), rokStatusOk);
            EXPECT_EQ(out, c.want) << c.x << " mode " << c.mode << " caller " << caller;
            EXPECT_EQ(std::fegetround(), caller);
        }
        // An early return restores nothing because it changed nothing.
        Rok8u out = 77;
        EXPECT_EQ(rokiConvert_32f8u_C1R(nullptr, 4, &out, 1, RokiSize{1, 1}, 0), rokStatusNullPtr);
        EXPECT_EQ(std::fegetround(), caller);
        EXPECT_EQ(out, 77);
    }
}

// NaN converts as -infinity: the destination minimum, in every mode and at
// every position of a vector block.
TEST(ConvertRound, NaNGivesTheMinimum) {
    std::vector<float> src(40, std::nanf(""));
    for (int mode : {0, 1, 2}) {
        std::vector<Rok8s> s8(40, 5);
        std::vector<Rok16u> u16(40, 5);
        ASSERT_EQ(rokiConvert_32f8s_C1R(src.data(), 160, s8.data(), 40, RokiSize{40, 1}, mode), rokStatusOk);
        ASSERT_EQ(rokiConvert_32f16u_C1R(src.data(), 160, u16.data(), 80, RokiSize{40, 1}, mode), rokStatusOk);
        for (int i = 0; i < 40; ++i) {
            EXPECT_EQ(s8[i], -128) << i;
            EXPECT_EQ(u16[i], 0) << i;
        }
        Rok32s s32 = 5;
        ASSERT_EQ(rokiConvert_32f32s_C1RSfs(src.data(), 4, &s32, 4, RokiSize{1, 1}, mode, 0), rokStatusOk);
        EXPECT_EQ(s32, std::numeric_limits<Rok32s>::min());
    }
    std::vector<Rok8u> u8(40, 5);
    ASSERT_EQ(rokiScale_32f8u_C1R(src.data(), 160, u8.data(), 40, RokiSize{40, 1}, -1.0f, 1.0f), rokStatusOk);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(u8[i], 0) << i;
}

// Integer scaled pairs: the magnitude shifted with the mode's rounding.
template <class D>
D int_sfs_ref(std::int64_t x, int mode, int sf) {
    if (sf <= 0) return rokt::ref::scale<D>(x, sf);
    using W = rokt::ref::Wide;
    const W mag = x < 0 ? -W(x) : W(x);
    const W d = W(1) << (sf > 100 ? 100 : sf);
    W q = mag / d;
    const W twice = 2 * (mag % d);
    if (mode == 1 ? (twice > d || (twice == d && (q & 1))) : (mode != 0 && twice >= d)) q += 1;
    return rokt::ref::saturate<D>(x < 0 ? -q : q);
}

template <class S>
convt::Fill<S> int_fill() {
    std::vector<S> pool;
    for (std::int64_t e : {0LL, 1LL, -1LL, 2LL, 3LL, 5LL, -3LL, -5LL, 127LL, 128LL, 255LL, 256LL, 32767LL, 32768LL,
                           -32768LL, 65535LL, 2147483647LL, -2147483648LL, 4294967295LL, 383LL, -383LL})
        if (e >= std::int64_t(std::numeric_limits<S>::min()) && e <= std::int64_t(std::numeric_limits<S>::max()))
            pool.push_back(S(e));
    return convt::pool_fill<S>(pool, double(std::numeric_limits<S>::min()), double(std::numeric_limits<S>::max()));
}

const std::vector<convt::Shape>& few_shapes() {
    static const std::vector<convt::Shape> v = {{70, 2, 1, 3, rokt::Guard::After}, {13, 1, 0, 0, rokt::Guard::Before}};
    return v;
}

template <class S, class D>
void int_sfs(const char* name, RokStatus (*fn)(const S*, int, D*, int, RokiSize, int, int)) {
    SCOPED_TRACE(name);
    for (int mode : {0, 1, 2})
        for (int sf = -40; sf <= 40; ++sf) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " sf " << sf);
            auto call = [=](const S* s, int ss, D* d, int ds, RokiSize r) { return fn(s, ss, d, ds, r, mode, sf); };
            auto ref = [=](S x) { return int_sfs_ref<D>(std::int64_t(x), mode, sf); };
            const bool wide = sf == 1 || sf == -1;  // the full shape table for one factor each way
            check_form<S, D>("C1RSfs", 1, false, call, ref, int_fill<S>(), wide ? nullptr : &few_shapes());
        }
    for (int sf : {1000, -1000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        auto call = [=](const S* s, int ss, D* d, int ds, RokiSize r) { return fn(s, ss, d, ds, r, 2, sf); };
        auto ref = [=](S x) { return int_sfs_ref<D>(std::int64_t(x), 2, sf); };
        check_form<S, D>("C1RSfs extreme", 1, false, call, ref, int_fill<S>(), &few_shapes());
    }
}

#define ROK_INT_SFS(T) int_sfs(#T, rokiConvert_##T##_C1RSfs)

TEST(ConvertSfs, IntegerPairsEveryModeAndFactor) {
    ROK_INT_SFS(8u8s);
    ROK_INT_SFS(16u8s);
    ROK_INT_SFS(16u16s);
    ROK_INT_SFS(16s8s);
    ROK_INT_SFS(32s16s);
    ROK_INT_SFS(32s16u);
    ROK_INT_SFS(32u8u);
    ROK_INT_SFS(32u8s);
    ROK_INT_SFS(32u16u);
    ROK_INT_SFS(32u16s);
    ROK_INT_SFS(32u32s);
}

TEST(ConvertSfs, DocumentedValues16s8s) {
    struct Case { Rok16s x; int mode, sf, want; };
    const Case cases[] = {{3, 1, 1, 2}, {5, 1, 1, 2}, {-3, 1, 1, -2}, {3, 2, 1, 2}, {5, 2, 1, 3}, {-3, 0, 1, -1},
                          {1, 0, -6, 64}, {2, 0, -6, 127}, {1, 0, -7, 127}, {-1, 0, -7, -128}, {0, 0, -30, 0},
                          {-256, 2, 1, -128}, {255, 1, 1, 127}};
    for (const Case& c : cases) {
        Rok8s out = 0;
        ASSERT_EQ(rokiConvert_16s8s_C1RSfs(&c.x, 2, &out, 1, RokiSize{1, 1}, c.mode, c.sf), rokStatusOk);
        EXPECT_EQ(out, c.want) << c.x << " mode " << c.mode << " sf " << c.sf;
    }
}

template <class D>
void float_sfs(const char* name, RokStatus (*fn)(const Rok32f*, int, D*, int, RokiSize, int, int)) {
    SCOPED_TRACE(name);
    const double spread = sizeof(D) == 4 ? 1e9 : 70000;
    for (int mode : {0, 1, 2})
        for (int sf : {-300, -31, -3, -1, 0, 1, 2, 5, 24, 40, 300}) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " sf " << sf);
            auto call = [=](const Rok32f* s, int ss, D* d, int ds, RokiSize r) { return fn(s, ss, d, ds, r, mode, sf); };
            auto ref = [=](float x) { return round_ref<D>(std::ldexp((long double)x, -sf), mode); };
            check_form<Rok32f, D>("C1RSfs", 1, false, call, ref, float_fill<D>(spread),
                                  sf == 1 ? nullptr : &few_shapes());
        }
}

#define ROK_FLOAT_SFS(T, D) float_sfs<D>(#T, rokiConvert_##T##_C1RSfs)

TEST(ConvertSfs, FloatPairsEveryModeUnderDownwardCaller) {
    CallerMode caller(FE_DOWNWARD);
    ROK_FLOAT_SFS(32f8u, Rok8u);
    ROK_FLOAT_SFS(32f8s, Rok8s);
    ROK_FLOAT_SFS(32f16u, Rok16u);
    ROK_FLOAT_SFS(32f16s, Rok16s);
    ROK_FLOAT_SFS(32f32s, Rok32s);
    ROK_FLOAT_SFS(32f32u, Rok32u);
    EXPECT_EQ(std::fegetround(), FE_DOWNWARD);
}

// In place gives what the out-of-place form gives.
TEST(ConvertSfs, InPlaceMatchesOutOfPlace) {
    for (int w = 1; w <= 70; w += 3) {
        rokt::GuardedImage<Rok32f> img(w, 3, 1, w % 3);
        float_fill<Rok32u>(1e9)(img, std::uint32_t(w));
        rokt::GuardedImage<Rok32u> out(w, 3, 1, w % 3);
        for (int mode : {0, 1, 2}) {
            rokt::GuardedImage<Rok32f> copy(w, 3, 1, w % 3);
            std::memcpy(copy.data(), img.data(), img.bytes().size());
            ASSERT_EQ(rokiConvert_32f32u_C1RSfs(img.data(), img.step(), out.data(), out.step(), RokiSize{w, 3}, mode, -2),
                      rokStatusOk);
            ASSERT_EQ(rokiConvert_32f32u_C1IRSfs(copy.data(), copy.step(), RokiSize{w, 3}, mode, -2), rokStatusOk);
            for (int y = 0; y < 3; ++y)
                ASSERT_EQ(0, std::memcmp(copy.row(y), out.row(y), std::size_t(w) * 4)) << w << " mode " << mode;
        }
    }
}

TEST(ConvertBits, EveryOffsetAndWidth) {
    for (int offset : {0, 1, 3, 7, 8, 13}) {
        SCOPED_TRACE(offset);
        for (int w = 1; w <= 70; ++w) {
            const int srcBytes = (offset + w + 7) / 8;
            rokt::GuardedImage<Rok8u> src(srcBytes, 3, 1, w % 2);
            rokt::GuardedImage<Rok8u> dst(w, 3, 1, w % 3, w % 2 ? rokt::Guard::Before : rokt::Guard::After);
            rokt::fill_random(src, std::uint32_t(w + 100 * offset));
            dst.fill_bytes(0x5A);
            std::vector<std::uint8_t> expect = dst.bytes();
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < w; ++x) {
                    const int bit = offset + x;
                    expect[std::size_t(y) * dst.step() + x] = (src.at(bit / 8, y) >> (7 - bit % 8)) & 1 ? 255 : 0;
                }
            ASSERT_EQ(rokiConvert_1u8u_C1R(src.data(), src.step(), offset, dst.data(), dst.step(), RokiSize{w, 3}),
                      rokStatusOk);
            ASSERT_EQ(dst.bytes(), expect) << "width " << w;
        }
    }
    const Rok8u bits = 0x35;  // 0011 0101: from the fourth bit on, 1 0 1 0 1
    Rok8u out[5];
    ASSERT_EQ(rokiConvert_1u8u_C1R(&bits, 1, 3, out, 5, RokiSize{5, 1}), rokStatusOk);
    const Rok8u want[5] = {255, 0, 255, 0, 255};
    EXPECT_EQ(0, std::memcmp(out, want, 5));
}

}  // namespace
