// Sums, means, norms, norms of differences, relative norms: every type and
// layout against the references, over widths that hit every vector tail.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "guarded.h"
#include "members.h"
#include "random.h"
#include "reference.h"
#include "roki.h"

namespace {

using rokt::GuardedImage;
using rokt::stats::Term;

template <class T>
using OneFn = std::function<RokStatus(const T*, int, RokiSize, Rok64f*, int)>;
template <class T>
using TwoFn = std::function<RokStatus(const T*, int, const T*, int, RokiSize, Rok64f*, int)>;

// Integer members have no hint; the adapters give every member one shape.
template <class T>
OneFn<T> one(RokStatus (*f)(const T*, int, RokiSize, Rok64f*)) {
    return [f](const T* p, int s, RokiSize r, Rok64f* o, int) { return f(p, s, r, o); };
}
template <class T>
OneFn<T> one(RokStatus (*f)(const T*, int, RokiSize, Rok64f*, int)) {
    return f;
}
template <class T>
TwoFn<T> two(RokStatus (*f)(const T*, int, const T*, int, RokiSize, Rok64f*)) {
    return [f](const T* a, int as, const T* b, int bs, RokiSize r, Rok64f* o, int) { return f(a, as, b, bs, r, o); };
}
template <class T>
TwoFn<T> two(RokStatus (*f)(const T*, int, const T*, int, RokiSize, Rok64f*, int)) {
    return f;
}

template <class T>
struct Members {
    std::string name;
    int nc, outs;
    OneFn<T> sum, mean, inf, l1, l2;
    TwoFn<T> diff_inf, diff_l1, diff_l2, rel_inf, rel_l1, rel_l2;
};

#define ROK_MEMBERS(t, T, l, nc, outs)                                                                            \
    Members<T> {                                                                                                  \
        #t "_" #l, nc, outs, one(rokiSum_##t##_##l##R), one(rokiMean_##t##_##l##R),                               \
            one(rokiNorm_Inf_##t##_##l##R), one(rokiNorm_L1_##t##_##l##R), one(rokiNorm_L2_##t##_##l##R),         \
            two(rokiNormDiff_Inf_##t##_##l##R), two(rokiNormDiff_L1_##t##_##l##R),                                \
            two(rokiNormDiff_L2_##t##_##l##R), two(rokiNormRel_Inf_##t##_##l##R),                                 \
            two(rokiNormRel_L1_##t##_##l##R), two(rokiNormRel_L2_##t##_##l##R)                                    \
    }
ROK_MEMBER_TABLES

// The totals the rules give for this image, type and hint.
template <class T>
std::vector<double> expected(const GuardedImage<T>& a, const std::type_identity_t<GuardedImage<T>>* b, Term t, int outs, int hint) {
    if constexpr (std::is_same_v<T, Rok32f>) {
        if (hint == rokHintAccurate || a.width() <= 16) return rokt::stats::double_totals(a, b, t, outs);
        return rokt::stats::float_totals(a, b, t, outs);
    } else {
        return rokt::stats::exact_totals(a, b, t, outs);
    }
}

std::vector<double> roots(std::vector<double> v) {
    for (double& x : v) x = std::sqrt(x);
    return v;
}

void expect_values(const std::vector<double>& want, const Rok64f* got, const std::string& what) {
    for (std::size_t c = 0; c < want.size(); ++c) EXPECT_EQ(got[c], want[c]) << what << " channel " << c;
}

template <class T>
class Reductions : public ::testing::Test {};
using Types = ::testing::Types<Rok8u, Rok16s, Rok16u, Rok32f>;
TYPED_TEST_SUITE(Reductions, Types);

// Every member at widths 1..70 (three rows, odd pads, both guard sides) and
// at both hints; the result array past the processed channels stays as it was.
TYPED_TEST(Reductions, MatchReferences) {
    using T = TypeParam;
    for (const auto& f : members<T>()) {
        for (int w = 1; w <= 70; ++w) {
            const auto guard = w % 2 ? rokt::Guard::After : rokt::Guard::Before;
            GuardedImage<T> a(w, 3, f.nc, w % 3, guard), b(w, 3, f.nc, 1 + w % 2, guard);
            rokt::fill_random(a, std::uint32_t(w));
            rokt::fill_random(b, std::uint32_t(w + 1000));
            const RokiSize roi{w, 3};
            for (int hint : {rokHintDefault, rokHintAccurate}) {
                const std::string what = f.name + " w=" + std::to_string(w) + " hint=" + std::to_string(hint);
                Rok64f out[5] = {-1, -1, -1, -1, -1};
                const auto run1 = [&](const OneFn<T>& fn) {
                    EXPECT_EQ(fn(a.data(), a.step(), roi, out, hint), rokStatusOk) << what;
                    return out;
                };
                const auto run2 = [&](const TwoFn<T>& fn) {
                    EXPECT_EQ(fn(a.data(), a.step(), b.data(), b.step(), roi, out, hint), rokStatusOk) << what;
                    return out;
                };
                const auto sum = expected(a, nullptr, Term::Value, f.outs, hint);
                expect_values(sum, run1(f.sum), what + " Sum");
                EXPECT_EQ(out[f.outs], -1) << what << " wrote past its channels";
                auto mean = sum;
                for (double& v : mean) v /= 3 * w;
                expect_values(mean, run1(f.mean), what + " Mean");
                expect_values(rokt::stats::max_magnitude(a, static_cast<const GuardedImage<T>*>(nullptr), f.outs),
                              run1(f.inf), what + " Norm_Inf");
                expect_values(expected(a, nullptr, Term::Abs, f.outs, hint), run1(f.l1), what + " Norm_L1");
                expect_values(roots(expected(a, nullptr, Term::Square, f.outs, hint)), run1(f.l2), what + " Norm_L2");
                const auto dinf = rokt::stats::max_magnitude(a, &b, f.outs);
                const auto dl1 = expected(a, &b, Term::Abs, f.outs, hint);
                const auto dl2 = roots(expected(a, &b, Term::Square, f.outs, hint));
                expect_values(dinf, run2(f.diff_inf), what + " NormDiff_Inf");
                expect_values(dl1, run2(f.diff_l1), what + " NormDiff_L1");
                expect_values(dl2, run2(f.diff_l2), what + " NormDiff_L2");
                const auto binf = rokt::stats::max_magnitude(b, static_cast<const GuardedImage<T>*>(nullptr), f.outs);
                const auto bl1 = expected(b, nullptr, Term::Abs, f.outs, hint);
                const auto bl2 = roots(expected(b, nullptr, Term::Square, f.outs, hint));
                std::vector<double> rinf, rl1, rl2;
                for (int c = 0; c < f.outs; ++c) {
                    rinf.push_back(dinf[std::size_t(c)] / binf[std::size_t(c)]);
                    rl1.push_back(dl1[std::size_t(c)] / bl1[std::size_t(c)]);
                    rl2.push_back(dl2[std::size_t(c)] / bl2[std::size_t(c)]);
                }
                expect_values(rinf, run2(f.rel_inf), what + " NormRel_Inf");
                expect_values(rl1, run2(f.rel_l1), what + " NormRel_L1");
                expect_values(rl2, run2(f.rel_l2), what + " NormRel_L2");
            }
        }
    }
}

// Sum walks whatever step it is given: bottom-up gives the same totals.
TYPED_TEST(Reductions, SumAcceptsNegativeAndZeroSteps) {
    using T = TypeParam;
    for (const auto& f : members<T>()) {
        GuardedImage<T> a(37, 5, f.nc, 3);
        rokt::fill_random(a, 7);
        Rok64f down[4], up[4], first[4];
        ASSERT_EQ(f.sum(a.data(), a.step(), {37, 5}, down, rokHintAccurate), rokStatusOk);
        ASSERT_EQ(f.sum(a.bottom_up(), -a.step(), {37, 5}, up, rokHintAccurate), rokStatusOk);
        ASSERT_EQ(f.sum(a.data(), 0, {37, 5}, first, rokHintAccurate), rokStatusOk);
        GuardedImage<T> top(37, 1, f.nc);
        for (int i = 0; i < 37 * f.nc; ++i) top.row(0)[i] = a.row(0)[i];
        const auto one_row = expected(top, nullptr, Term::Value, f.outs, rokHintAccurate);
        for (int c = 0; c < f.outs; ++c) {
            EXPECT_DOUBLE_EQ(up[c], down[c]) << f.name;
            EXPECT_EQ(first[c], 5 * one_row[std::size_t(c)]) << f.name;
        }
    }
}

// A zero denominator keeps the numerator and warns; only the channel that
// has it is affected.
TYPED_TEST(Reductions, RelativeNormOfZeroDenominator) {
    using T = TypeParam;
    for (const auto& f : members<T>()) {
        GuardedImage<T> a(20, 2, f.nc), b(20, 2, f.nc);
        rokt::fill_random(a, 3, 1, 100);
        rokt::fill_random(b, 4, 1, 100);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 20; ++x) b.at(x, y, 0) = 0;
        Rok64f rel[4], diff[4];
        for (const auto& [rel_fn, diff_fn] : {std::pair{f.rel_inf, f.diff_inf}, {f.rel_l1, f.diff_l1}, {f.rel_l2, f.diff_l2}}) {
            EXPECT_EQ(rel_fn(a.data(), a.step(), b.data(), b.step(), {20, 2}, rel, rokHintAccurate), rokStatusDivByZero)
                << f.name;
            ASSERT_EQ(diff_fn(a.data(), a.step(), b.data(), b.step(), {20, 2}, diff, rokHintAccurate), rokStatusOk);
            EXPECT_EQ(rel[0], diff[0]) << f.name;
            for (int c = 1; c < f.outs; ++c) EXPECT_LT(rel[c], diff[c]) << f.name;
        }
        // Identical images over an all-zero second image: 0 and the warning.
        for (int y = 0; y < 2; ++y)
            for (int i = 0; i < 20 * f.nc; ++i) a.row(y)[i] = b.row(y)[i] = 0;
        EXPECT_EQ(f.rel_l1(a.data(), a.step(), b.data(), b.step(), {20, 2}, rel, rokHintDefault), rokStatusDivByZero);
        for (int c = 0; c < f.outs; ++c) EXPECT_EQ(rel[c], 0.0);
    }
}

// A float denominator below the smallest normal double counts as zero.
TEST(Reductions32f, SubnormalDenominatorCountsAsZero) {
    Rok32f a[1] = {1.0f}, b[1] = {1e-30f};
    Rok64f out = 0;
    // ||b|| = 1e-30: a normal double, so no warning.
    EXPECT_EQ(rokiNormRel_L2_32f_C1R(a, 4, b, 4, {1, 1}, &out, rokHintAccurate), rokStatusOk);
    b[0] = 1e-45f;  // a float subnormal; its L1 norm 1.4e-45 is a normal double
    EXPECT_EQ(rokiNormRel_L1_32f_C1R(a, 4, b, 4, {1, 1}, &out, rokHintAccurate), rokStatusOk);
    b[0] = 0.0f;
    EXPECT_EQ(rokiNormRel_Inf_32f_C1R(a, 4, b, 4, {1, 1}, &out), rokStatusDivByZero);
    EXPECT_EQ(out, 1.0);
}

// Large integer totals stay exact: 4096 x 4096 samples of 255.
TEST(Reductions8u, SumOfFullImageIsExact) {
    std::vector<Rok8u> img(4096u * 4096u, 255);
    Rok64f sum = 0, l2 = 0;
    ASSERT_EQ(rokiSum_8u_C1R(img.data(), 4096, {4096, 4096}, &sum), rokStatusOk);
    EXPECT_EQ(sum, 4278190080.0);
    ASSERT_EQ(rokiNorm_L2_8u_C1R(img.data(), 4096, {4096, 4096}, &l2), rokStatusOk);
    EXPECT_EQ(l2, std::sqrt(4096.0 * 4096.0 * 65025.0));
}

// Extreme samples: -32768 has magnitude 32768, and squares of -32768 and
// differences of 65535 do not overflow their lanes.
TEST(Reductions16, ExtremeSamples) {
    std::vector<Rok16s> lo(1000, -32768), hi(1000, 32767);
    Rok64f v = 0;
    ASSERT_EQ(rokiNorm_Inf_16s_C1R(lo.data(), 2000, {1000, 1}, &v), rokStatusOk);
    EXPECT_EQ(v, 32768.0);
    ASSERT_EQ(rokiNorm_L2_16s_C1R(lo.data(), 2000, {1000, 1}, &v), rokStatusOk);
    EXPECT_EQ(v, std::sqrt(1000.0 * 1073741824.0));
    ASSERT_EQ(rokiNormDiff_Inf_16s_C1R(hi.data(), 2000, lo.data(), 2000, {1000, 1}, &v), rokStatusOk);
    EXPECT_EQ(v, 65535.0);
    ASSERT_EQ(rokiNormDiff_L2_16s_C1R(hi.data(), 2000, lo.data(), 2000, {1000, 1}, &v), rokStatusOk);
    EXPECT_EQ(v, std::sqrt(1000.0 * 65535.0 * 65535.0));
    ASSERT_EQ(rokiSum_16s_C1R(lo.data(), 0, {1000, 40000}, &v), rokStatusOk);
    EXPECT_EQ(v, -32768.0 * 1000 * 40000);
    std::vector<Rok32s> s32(9, INT32_MIN);
    ASSERT_EQ(rokiNorm_Inf_32s_C1R(s32.data(), 36, {9, 1}, &v), rokStatusOk);
    EXPECT_EQ(v, 2147483648.0);
}

// Mean's pixel count is a signed 32-bit product.
TEST(Reductions8u, MeanDividesByThe32BitCount) {
    const std::vector<Rok8u> row(65536, 200);
    Rok64f mean = 0;
    ASSERT_EQ(rokiMean_8u_C1R(row.data(), 0, {65536, 32769}, &mean), rokStatusOk);
    const double sum = 200.0 * 65536.0 * 32769.0;
    EXPECT_EQ(mean, sum / double(std::int32_t(std::uint32_t(65536u * 32769u))));
}

// Many rows of the largest byte: the per-position 16-bit lanes of the
// multi-channel 8u sums and the byte counters of one-channel range counts
// must be emptied before they overflow.
TEST(Reductions8u, LongMultiChannelSumsAreExact) {
    const int w = 45, h = 700;
    std::vector<Rok8u> full(std::size_t(w) * 4 * h, 255), none(full.size(), 0);
    const double want = 255.0 * w * h;
    Rok64f s[4];
    ASSERT_EQ(rokiSum_8u_C3R(full.data(), 3 * w, {w, h}, s), rokStatusOk);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(s[c], want);
    ASSERT_EQ(rokiSum_8u_C4R(full.data(), 4 * w, {w, h}, s), rokStatusOk);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(s[c], want);
    ASSERT_EQ(rokiNormDiff_L1_8u_AC4R(full.data(), 4 * w, none.data(), 4 * w, {w, h}, s), rokStatusOk);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(s[c], want);
    const Rok8u lo[3] = {255, 0, 200}, hi[3] = {255, 255, 255};
    int counts[3];
    ASSERT_EQ(rokiCountInRange_8u_C3R(full.data(), 3 * w, {w, h}, counts, lo, hi), rokStatusOk);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(counts[c], w * h);
    // One channel gathers counts in bytes, emptied before they wrap.
    ASSERT_EQ(rokiCountInRange_8u_C1R(full.data(), 4 * w, {4 * w, h}, counts, 255, 255), rokStatusOk);
    EXPECT_EQ(counts[0], 4 * w * h);
}

}  // namespace
