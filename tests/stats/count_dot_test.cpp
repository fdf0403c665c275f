// Range counts and dot products against direct sums, and the order of every
// statistics family's checks.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "reference.h"
#include "roki.h"

namespace {

using rokt::GuardedImage;

TEST(CountInRange, CountsInclusiveBoundsPerChannel) {
    for (int w = 1; w <= 70; ++w) {
        for (int nc : {1, 3, 4}) {
            const int outs = nc == 4 ? 3 : nc;
            GuardedImage<Rok8u> img(w, 3, nc, w % 2, w % 2 ? rokt::Guard::After : rokt::Guard::Before);
            GuardedImage<Rok32f> fimg(w, 3, nc, 1);
            rokt::fill_random(img, std::uint32_t(w), 0, 20);
            for (int y = 0; y < 3; ++y)
                for (int i = 0; i < w * nc; ++i) fimg.row(y)[i] = float(img.row(y)[i]) * 0.5f;
            const Rok8u lo[3] = {5, 0, 7}, hi[3] = {12, 0, 7};
            const Rok32f flo[3] = {2.5f, 0.0f, 3.5f}, fhi[3] = {6.0f, 0.0f, 3.5f};
            int counts[4] = {-1, -1, -1, -1}, fcounts[4] = {-1, -1, -1, -1};
            if (nc == 1) {
                ASSERT_EQ(rokiCountInRange_8u_C1R(img.data(), img.step(), {w, 3}, counts, lo[0], hi[0]), rokStatusOk);
                ASSERT_EQ(rokiCountInRange_32f_C1R(fimg.data(), fimg.step(), {w, 3}, fcounts, flo[0], fhi[0]),
                          rokStatusOk);
            } else if (nc == 3) {
                ASSERT_EQ(rokiCountInRange_8u_C3R(img.data(), img.step(), {w, 3}, counts, lo, hi), rokStatusOk);
                ASSERT_EQ(rokiCountInRange_32f_C3R(fimg.data(), fimg.step(), {w, 3}, fcounts, flo, fhi), rokStatusOk);
            } else {
                ASSERT_EQ(rokiCountInRange_8u_AC4R(img.data(), img.step(), {w, 3}, counts, lo, hi), rokStatusOk);
                ASSERT_EQ(rokiCountInRange_32f_AC4R(fimg.data(), fimg.step(), {w, 3}, fcounts, flo, fhi),
                          rokStatusOk);
            }
            for (int c = 0; c < outs; ++c) {
                int want = 0;
                for (int y = 0; y < 3; ++y)
                    for (int x = 0; x < w; ++x) want += img.at(x, y, c) >= lo[c] && img.at(x, y, c) <= hi[c];
                EXPECT_EQ(counts[c], want) << "w=" << w << " nc=" << nc << " c=" << c;
                EXPECT_EQ(fcounts[c], want) << "w=" << w << " nc=" << nc << " c=" << c;
            }
            EXPECT_EQ(counts[outs], -1);
        }
    }
}

template <class T>
class Dot : public ::testing::Test {};
using DotTypes = ::testing::Types<Rok8u, Rok8s, Rok16u, Rok16s, Rok32u, Rok32s, Rok32f>;
TYPED_TEST_SUITE(Dot, DotTypes);

template <class T>
struct DotMembers {
    int nc, outs;
    RokStatus (*fn)(const T*, int, const T*, int, RokiSize, Rok64f*);
};
#define ROK_DOT(t, T)                                                                                       \
    template <>                                                                                             \
    std::vector<DotMembers<T>> dots<T>() {                                                                  \
        return {{1, 1, rokiDotProd_##t##64f_C1R}, {3, 3, rokiDotProd_##t##64f_C3R},                         \
                {4, 4, rokiDotProd_##t##64f_C4R}, {4, 3, rokiDotProd_##t##64f_AC4R}};                       \
    }
template <class T>
std::vector<DotMembers<T>> dots();
ROK_DOT(8u, Rok8u)
ROK_DOT(8s, Rok8s)
ROK_DOT(16u, Rok16u)
ROK_DOT(16s, Rok16s)
ROK_DOT(32u, Rok32u)
ROK_DOT(32s, Rok32s)
ROK_DOT(32f, Rok32f)

// Small types are exact; 32-bit types follow the double partials. Negative
// steps walk bottom-up and give the same totals.
TYPED_TEST(Dot, MatchesReference) {
    using T = TypeParam;
    for (const auto& f : dots<T>()) {
        for (int w = 1; w <= 70; ++w) {
            GuardedImage<T> a(w, 3, f.nc, w % 3), b(w, 3, f.nc, 1, rokt::Guard::Before);
            rokt::fill_random(a, std::uint32_t(w));
            rokt::fill_random(b, std::uint32_t(w + 500));
            Rok64f out[5] = {-1, -1, -1, -1, -1}, up[4];
            ASSERT_EQ(f.fn(a.data(), a.step(), b.data(), b.step(), {w, 3}, out), rokStatusOk);
            ASSERT_EQ(f.fn(a.bottom_up(), -a.step(), b.bottom_up(), -b.step(), {w, 3}, up), rokStatusOk);
            for (int c = 0; c < f.outs; ++c) {
                double want;
                if constexpr (sizeof(T) <= 2) {
                    __int128 s = 0;
                    for (int y = 0; y < 3; ++y)
                        for (int x = 0; x < w; ++x) s += __int128(a.at(x, y, c)) * b.at(x, y, c);
                    want = double(s);
                    EXPECT_EQ(up[c], want);
                } else {
                    want = rokt::stats::double_totals(a, &b, rokt::stats::Term::Value, f.outs, true)[std::size_t(c)];
                    EXPECT_NEAR(up[c], want, std::fabs(want) * 1e-12);
                }
                EXPECT_EQ(out[c], want) << "w=" << w << " nc=" << f.nc << " c=" << c;
            }
            EXPECT_EQ(out[f.outs], -1);
        }
    }
}

// Statuses in each family's order, with nothing written on error.
TEST(StatsChecks, OrderOfChecks) {
    Rok8u img[64] = {};
    Rok32f fimg[64] = {};
    Rok64f v = -1;
    int n = -7, x = -7, y = -7;
    Rok8u m = 7;
    const RokiSize ok{4, 4}, bad{0, 4};
    struct Row {
        const char* what;
        RokStatus got, want;
    };
    const Row rows[] = {
        // Sum, Mean, Min, Indx: pointers then size; no step check at all.
        {"Sum null", rokiSum_8u_C1R(nullptr, 0, bad, &v), rokStatusNullPtr},
        {"Sum size", rokiSum_8u_C1R(img, -5, bad, &v), rokStatusBadSize},
        {"Mean null result", rokiMean_32f_C1R(fimg, 16, bad, nullptr, 0), rokStatusNullPtr},
        {"Mean size", rokiMean_32f_C1R(fimg, 16, bad, &v, 0), rokStatusBadSize},
        {"Min size", rokiMin_8u_C1R(img, -3, bad, &m), rokStatusBadSize},
        {"MinIndx null", rokiMinIndx_8u_C1R(img, 4, ok, &m, nullptr, &y), rokStatusNullPtr},
        {"MaxIndx size", rokiMaxIndx_8u_C1R(img, 4, bad, &m, &x, &y), rokStatusBadSize},
        // Norms: pointers, size, then steps.
        {"Norm size before step", rokiNorm_L1_8u_C1R(img, 0, bad, &v), rokStatusBadSize},
        {"Norm step", rokiNorm_L1_8u_C1R(img, 0, ok, &v), rokStatusBadStep},
        {"Norm negative step", rokiNorm_Inf_32f_C1R(fimg, -16, ok, &v), rokStatusBadStep},
        {"NormDiff second step", rokiNormDiff_L2_8u_C1R(img, 4, img, 0, ok, &v), rokStatusBadStep},
        {"NormRel null", rokiNormRel_Inf_8u_C1R(img, 4, nullptr, 4, bad, &v), rokStatusNullPtr},
        {"MinEvery step", rokiMinEvery_8u_C1IR(img, 4, img, -4, ok), rokStatusBadStep},
        {"MaxEvery size", rokiMaxEvery_8u_C1IR(img, 0, img, 0, bad), rokStatusBadSize},
        // CountInRange: pointers, step, size, then bounds.
        {"Count step before size", rokiCountInRange_8u_C1R(img, 0, bad, &n, 9, 1), rokStatusBadStep},
        {"Count size before range", rokiCountInRange_8u_C1R(img, 4, bad, &n, 9, 1), rokStatusBadSize},
        {"Count range", rokiCountInRange_8u_C1R(img, 4, ok, &n, 9, 1), rokStatusBadRange},
        {"Count null bound", rokiCountInRange_8u_C3R(img, 12, ok, &n, nullptr, nullptr), rokStatusNullPtr},
        // DotProd: a zero step is a size error.
        {"Dot zero step", rokiDotProd_8u64f_C1R(img, 4, img, 0, ok, &v), rokStatusBadSize},
        {"Dot null", rokiDotProd_8u64f_C1R(img, 0, nullptr, 0, bad, &v), rokStatusNullPtr},
    };
    for (const auto& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
    EXPECT_EQ(v, -1);
    EXPECT_EQ(n, -7);
    EXPECT_EQ(x, -7);
    EXPECT_EQ(m, 7);
    // Bounds are checked per channel; equal bounds count exact matches.
    const Rok8u lo[3] = {1, 2, 3}, hi[3] = {1, 2, 2};
    int counts[3] = {-7, -7, -7};
    EXPECT_EQ(rokiCountInRange_8u_C3R(img, 12, ok, counts, lo, hi), rokStatusBadRange);
    EXPECT_EQ(counts[0], -7);
    img[17] = 1;
    EXPECT_EQ(rokiCountInRange_8u_C1R(img, 16, ok, &n, 1, 1), rokStatusOk);
    EXPECT_EQ(n, 1);
}

}  // namespace
