// 8x8 block transforms against a double-precision orthonormal DCT written
// from its definition, plus the level-shift, clamping, reduced, zigzag and
// status rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "roki.h"
#include "guarded.h"

namespace {

using Block = std::vector<double>;

// F(u, v) = 1/4 C(u) C(v) sum f(x, y) cos((2x+1)u pi/16) cos((2y+1)v pi/16),
// u along x (columns), v along y (rows); inverse the transposed sum.
double basis(int k, int x) {
    const double pi = 3.14159265358979323846;
    return (k == 0 ? std::sqrt(0.125) : 0.5) * std::cos((2 * x + 1) * k * pi / 16);
}
Block dct_ref(const Block& f, bool forward) {
    Block out(64, 0.0);
    for (int v = 0; v < 8; ++v)
        for (int u = 0; u < 8; ++u) {
            double s = 0;
            for (int y = 0; y < 8; ++y)
                for (int x = 0; x < 8; ++x)
                    s += f[y * 8 + x] * (forward ? basis(u, x) * basis(v, y) : basis(x, u) * basis(y, v));
            out[v * 8 + u] = s;
        }
    return out;
}
int round_sat16(double v) {
    return int(std::clamp(std::nearbyint(v), -32768.0, 32767.0));
}

template <class T>
std::vector<T> random_block(std::mt19937& rng, int lo, int hi) {
    std::uniform_int_distribution<int> d(lo, hi);
    std::vector<T> b(64);
    for (auto& v : b) v = T(d(rng));
    return b;
}
template <class T>
Block widen(const std::vector<T>& b) {
    return Block(b.begin(), b.end());
}

// Coefficients of a random block of values in [lo, hi], rounded.
std::vector<Rok16s> random_coefficients(std::mt19937& rng, int lo, int hi) {
    const Block c = dct_ref(widen(random_block<int>(rng, lo, hi)), true);
    std::vector<Rok16s> out(64);
    for (int i = 0; i < 64; ++i) out[i] = Rok16s(round_sat16(c[i]));
    return out;
}

// The 16s rule in wide arithmetic: K[u][x] = sqrt(2) C(u) cos((2x+1)u pi/16)
// in 14 bits; rows, then columns; per output, pair sums of two products
// shifted right by 2, the four added, rounded by half the remaining divisor
// and shifted (12, then 15), saturated to 16 bits. Inverse: K transposed.
int k14(int u, int x) {
    const double pi = 3.14159265358979323846;
    return u == 0 ? 16384 : int(std::lround(std::sqrt(2.0) * std::cos((2 * x + 1) * u * pi / 16) * 16384));
}
std::vector<Rok16s> fixed_ref(const std::vector<int>& f, bool forward) {
    auto m = [&](int i, int j) -> std::int64_t { return forward ? k14(i, j) : k14(j, i); };
    auto sat = [](std::int64_t v) { return int(std::clamp<std::int64_t>(v, -32768, 32767)); };
    // out(i, lane) from in(j, lane): the pass runs along j.
    auto pass = [&](auto in, int shift) {
        std::vector<int> out(64);
        for (int i = 0; i < 8; ++i)
            for (int lane = 0; lane < 8; ++lane) {
                std::int64_t sum = 0;
                for (int p = 0; p < 4; ++p)
                    sum += (in(2 * p, lane) * m(i, 2 * p) + in(2 * p + 1, lane) * m(i, 2 * p + 1)) >> 2;
                out[i * 8 + lane] = sat((sum + (std::int64_t(1) << (shift - 1))) >> shift);
            }
        return out;
    };
    // Rows: r(y, u) = pass over x; stored as rowPass[u * 8 + y].
    const std::vector<int> rowPass = pass([&](int x, int y) { return std::int64_t(f[y * 8 + x]); }, 12);
    // Columns: F(v, u) = pass over y of r(y, u); stored as [v * 8 + u].
    const std::vector<int> out = pass([&](int y, int u) { return std::int64_t(rowPass[u * 8 + y]); }, 15);
    return std::vector<Rok16s>(out.begin(), out.end());
}

TEST(Dct8x8, IntegerFormsFollowTheFixedPointRuleExactly) {
    const int stated[8] = {0, 22725, 21407, 19266, 16384, 12873, 8867, 4520};
    for (int k = 1; k < 8; ++k) ASSERT_EQ(std::abs(k14(k, 0)), stated[k]);
    std::mt19937 rng(17);
    for (int trial = 0; trial < 600; ++trial) {
        // Full range (saturating), the 12-bit range, and 8-bit samples.
        const int lo = trial % 3 == 0 ? -32768 : trial % 3 == 1 ? -2048 : 0;
        const int hi = trial % 3 == 0 ? 32767 : trial % 3 == 1 ? 2047 : 255;
        const auto src = random_block<Rok16s>(rng, lo, hi);
        const std::vector<int> wide(src.begin(), src.end());
        for (bool forward : {true, false}) {
            const std::vector<Rok16s> want = fixed_ref(wide, forward);
            std::vector<Rok16s> got(64), inplace = src;
            ASSERT_EQ((forward ? rokiDCT8x8Fwd_16s_C1 : rokiDCT8x8Inv_16s_C1)(src.data(), got.data()), rokStatusOk);
            ASSERT_EQ((forward ? rokiDCT8x8Fwd_16s_C1I : rokiDCT8x8Inv_16s_C1I)(inplace.data()), rokStatusOk);
            ASSERT_EQ(got, want) << (forward ? "forward" : "inverse") << " trial " << trial;
            ASSERT_EQ(inplace, want);
        }
        if (lo == 0) {
            const std::vector<Rok8u> u8(src.begin(), src.end());
            std::vector<Rok16s> got(64);
            ASSERT_EQ(rokiDCT8x8Fwd_8u16s_C1R(u8.data(), 8, got.data()), rokStatusOk);
            ASSERT_EQ(got, fixed_ref(wide, true));
        }
    }
}

TEST(Dct8x8, FloatFormsMatchTheOrthonormalTransform) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> d(-1000, 1000);
    double worst = 0;
    for (bool forward : {true, false})
        for (int trial = 0; trial < 200; ++trial) {
            std::vector<Rok32f> src(64), dst(64), inplace;
            for (auto& v : src) v = Rok32f(d(rng));
            const Block ref = dct_ref(widen(src), forward);
            double scale = 0;
            for (double r : ref) scale = std::max(scale, std::fabs(r));
            ASSERT_EQ(forward ? rokiDCT8x8Fwd_32f_C1(src.data(), dst.data()) : rokiDCT8x8Inv_32f_C1(src.data(), dst.data()),
                      rokStatusOk);
            for (int i = 0; i < 64; ++i) worst = std::max(worst, std::fabs(dst[i] - ref[i]) / scale);
            inplace = src;
            ASSERT_EQ(forward ? rokiDCT8x8Fwd_32f_C1I(inplace.data()) : rokiDCT8x8Inv_32f_C1I(inplace.data()),
                      rokStatusOk);
            ASSERT_EQ(0, std::memcmp(inplace.data(), dst.data(), 64 * sizeof(Rok32f)));
        }
    EXPECT_LT(worst, 1e-5);
    RecordProperty("float_worst_relative_error", std::to_string(worst));
}

// Every 16s path against the exact transform rounded: forward from 16s (C1,
// C1I, C1R with an odd step against a protected page) and from 8u, inverse
// to 16s (C1, C1I, C1R) and to 8u.
TEST(Dct8x8, IntegerFormsAreWithinOneOfTheRoundedTransform) {
    std::mt19937 rng(11);
    int worstFwd = 0, worstInv = 0;
    for (int trial = 0; trial < 500; ++trial) {
        const auto src = random_block<Rok16s>(rng, -2048, 2047);
        const Block ref = dct_ref(widen(src), true);
        std::vector<Rok16s> a(64), b = src, c(64);
        ASSERT_EQ(rokiDCT8x8Fwd_16s_C1(src.data(), a.data()), rokStatusOk);
        ASSERT_EQ(rokiDCT8x8Fwd_16s_C1I(b.data()), rokStatusOk);
        rokt::GuardedImage<Rok16s> img(8, 8, 1, 3);
        for (int y = 0; y < 8; ++y) std::copy_n(&src[y * 8], 8, img.row(y));
        ASSERT_EQ(rokiDCT8x8Fwd_16s_C1R(img.data(), img.step(), c.data()), rokStatusOk);
        EXPECT_EQ(a, b);
        EXPECT_EQ(a, c);
        for (int i = 0; i < 64; ++i) worstFwd = std::max(worstFwd, std::abs(a[i] - round_sat16(ref[i])));

        const auto u8 = random_block<Rok8u>(rng, 0, 255);
        rokt::GuardedImage<Rok8u> img8(8, 8, 1, 5);
        for (int y = 0; y < 8; ++y) std::copy_n(&u8[y * 8], 8, img8.row(y));
        ASSERT_EQ(rokiDCT8x8Fwd_8u16s_C1R(img8.data(), img8.step(), a.data()), rokStatusOk);
        const Block ref8 = dct_ref(widen(u8), true);
        for (int i = 0; i < 64; ++i) worstFwd = std::max(worstFwd, std::abs(a[i] - round_sat16(ref8[i])));

        const auto coef = random_coefficients(rng, -2048, 2047);
        const Block inv = dct_ref(widen(coef), false);
        b = coef;
        ASSERT_EQ(rokiDCT8x8Inv_16s_C1(coef.data(), a.data()), rokStatusOk);
        ASSERT_EQ(rokiDCT8x8Inv_16s_C1I(b.data()), rokStatusOk);
        rokt::GuardedImage<Rok16s> out(8, 8, 1, 1);
        ASSERT_EQ(rokiDCT8x8Inv_16s_C1R(coef.data(), out.data(), out.step()), rokStatusOk);
        EXPECT_EQ(a, b);
        for (int i = 0; i < 64; ++i) {
            worstInv = std::max(worstInv, std::abs(a[i] - round_sat16(inv[i])));
            EXPECT_EQ(out.row(i / 8)[i % 8], a[i]);
        }
        const auto coef8 = random_coefficients(rng, -128, 383);  // spills past 0..255
        const Block inv8 = dct_ref(widen(coef8), false);
        rokt::GuardedImage<Rok8u> out8(8, 8, 1, 3);
        ASSERT_EQ(rokiDCT8x8Inv_16s8u_C1R(coef8.data(), out8.data(), out8.step()), rokStatusOk);
        for (int i = 0; i < 64; ++i) {
            const int want = std::clamp(round_sat16(inv8[i]), 0, 255);
            worstInv = std::max(worstInv, std::abs(out8.row(i / 8)[i % 8] - want));
        }
    }
    EXPECT_LE(worstFwd, 1);
    EXPECT_LE(worstInv, 1);
    RecordProperty("integer_worst_forward", worstFwd);
    RecordProperty("integer_worst_inverse", worstInv);
}

TEST(Dct8x8, FlatBlocksHaveOnlyADcTermAndSaturate) {
    for (int c : {-300, -1, 0, 1, 77, 255, 4095}) {
        std::vector<Rok16s> s(64, Rok16s(c)), d(64, 99);
        ASSERT_EQ(rokiDCT8x8Fwd_16s_C1(s.data(), d.data()), rokStatusOk);
        EXPECT_EQ(d[0], 8 * c);
        for (int i = 1; i < 64; ++i) EXPECT_EQ(d[i], 0) << c << " at " << i;
        std::vector<Rok32f> f(64, Rok32f(c)), g(64);
        ASSERT_EQ(rokiDCT8x8Fwd_32f_C1(f.data(), g.data()), rokStatusOk);
        EXPECT_NEAR(g[0], 8.0 * c, 1e-5 * std::max(1, std::abs(8 * c)));
        for (int i = 1; i < 64; ++i) EXPECT_NEAR(g[i], 0.0, 1e-6 * std::max(1, std::abs(c)));
        // And back: the DC alone gives the flat block.
        ASSERT_EQ(rokiDCT8x8Inv_16s_C1I(d.data()), rokStatusOk);
        EXPECT_EQ(d, s);
    }
    std::vector<Rok16s> big(64, 30000), d(64);
    ASSERT_EQ(rokiDCT8x8Fwd_16s_C1(big.data(), d.data()), rokStatusOk);
    EXPECT_EQ(d[0], 32767);
    std::vector<Rok16s> dc(64, 0);
    dc[0] = -32768;  // inverse -4096 everywhere: no saturation, exact
    ASSERT_EQ(rokiDCT8x8Inv_16s_C1I(dc.data()), rokStatusOk);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(dc[i], -4096);
}

TEST(Dct8x8, LevelShiftWrapsAndClampsBothWays) {
    std::mt19937 rng(5);
    for (int addVal : {-128, 0, 100, 32767, -32768}) {
        const auto u8 = random_block<Rok8u>(rng, 0, 255);
        rokt::GuardedImage<Rok8u> img(8, 8, 1, 9);
        for (int y = 0; y < 8; ++y) std::copy_n(&u8[y * 8], 8, img.row(y));
        std::vector<Rok16s> got(64), shifted(64), want(64);
        ASSERT_EQ(rokiDCT8x8FwdLS_8u16s_C1R(img.data(), img.step(), got.data(), Rok16s(addVal)), rokStatusOk);
        for (int i = 0; i < 64; ++i) shifted[i] = Rok16s(std::uint16_t(u8[i] + addVal));  // 16-bit wrap
        ASSERT_EQ(rokiDCT8x8Fwd_16s_C1(shifted.data(), want.data()), rokStatusOk);
        EXPECT_EQ(got, want) << addVal;
    }
    struct Clip {
        int add, lo, hi;
    };
    for (Clip c : {Clip{128, 0, 255}, Clip{128, 16, 235}, Clip{-32768, 0, 255}, Clip{32767, 0, 255},
                   Clip{0, 200, 100}, Clip{300, 0, 255}}) {
        for (int trial = 0; trial < 20; ++trial) {
            const auto coef = random_coefficients(rng, -400, 400);
            std::vector<Rok16s> inv(64);
            ASSERT_EQ(rokiDCT8x8Inv_16s_C1(coef.data(), inv.data()), rokStatusOk);
            rokt::GuardedImage<Rok8u> out(8, 8, 1, 0);
            ASSERT_EQ(rokiDCT8x8InvLSClip_16s8u_C1R(coef.data(), out.data(), out.step(), Rok16s(c.add),
                                                    Rok8u(c.lo), Rok8u(c.hi)),
                      rokStatusOk);
            for (int i = 0; i < 64; ++i) {
                const int v = Rok16s(std::uint16_t(inv[i] + c.add));
                EXPECT_EQ(out.row(i / 8)[i % 8], std::min(std::max(v, c.lo), c.hi)) << c.add << " " << c.lo;
            }
        }
    }
}

TEST(Dct8x8, ReducedInversesUseOnlyTheirCorner) {
    std::mt19937 rng(3);
    for (int n : {2, 4}) {
        for (int trial = 0; trial < 50; ++trial) {
            auto coef = random_coefficients(rng, -256, 255);
            auto cleared = coef;
            for (int i = 0; i < 64; ++i)
                if (i % 8 >= n || i / 8 >= n) cleared[i] = 0;
            std::vector<Rok16s> want(64), got(64), inplace = coef;
            ASSERT_EQ(rokiDCT8x8Inv_16s_C1(cleared.data(), want.data()), rokStatusOk);
            ASSERT_EQ((n == 2 ? rokiDCT8x8Inv_2x2_16s_C1 : rokiDCT8x8Inv_4x4_16s_C1)(coef.data(), got.data()),
                      rokStatusOk);
            ASSERT_EQ((n == 2 ? rokiDCT8x8Inv_2x2_16s_C1I : rokiDCT8x8Inv_4x4_16s_C1I)(inplace.data()), rokStatusOk);
            EXPECT_EQ(got, want);
            EXPECT_EQ(inplace, want);

            // n x n inverse of the corner scaled by n/8, in double.
            std::vector<Rok16s> small(64, 55), smallI = coef;
            ASSERT_EQ((n == 2 ? rokiDCT8x8To2x2Inv_16s_C1 : rokiDCT8x8To4x4Inv_16s_C1)(coef.data(), small.data()),
                      rokStatusOk);
            ASSERT_EQ((n == 2 ? rokiDCT8x8To2x2Inv_16s_C1I : rokiDCT8x8To4x4Inv_16s_C1I)(smallI.data()),
                      rokStatusOk);
            const double pi = 3.14159265358979323846;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i) {
                    double s = 0;
                    for (int v = 0; v < n; ++v)
                        for (int u = 0; u < n; ++u)
                            s += coef[v * 8 + u] * (n / 8.0) * (u ? std::sqrt(2.0 / n) : std::sqrt(1.0 / n)) *
                                 (v ? std::sqrt(2.0 / n) : std::sqrt(1.0 / n)) *
                                 std::cos((2 * i + 1) * u * pi / (2 * n)) * std::cos((2 * j + 1) * v * pi / (2 * n));
                    EXPECT_LE(std::abs(small[j * n + i] - round_sat16(s)), 1);
                    EXPECT_EQ(smallI[j * n + i], small[j * n + i]);
                }
            for (int i = n * n; i < 64; ++i) {
                EXPECT_EQ(small[i], 55);        // nothing past the n x n results
                EXPECT_EQ(smallI[i], coef[i]);  // in place: the rest of the block stays
            }
        }
        // A flat block decodes to the same flat value.
        std::vector<Rok16s> flat(64, 0), small(16);
        flat[0] = 8 * 93;
        ASSERT_EQ((n == 2 ? rokiDCT8x8To2x2Inv_16s_C1 : rokiDCT8x8To4x4Inv_16s_C1)(flat.data(), small.data()),
                  rokStatusOk);
        for (int i = 0; i < n * n; ++i) EXPECT_EQ(small[i], 93);
    }
}

TEST(Dct8x8, A10InverseIsCloserToTheExactInverse) {
    std::mt19937 rng(13);
    int worst = 0;
    long differing = 0, total = 0;
    for (int trial = 0; trial < 2000; ++trial) {
        const auto coef = random_coefficients(rng, -256, 255);
        const Block inv = dct_ref(widen(coef), false);
        std::vector<Rok16s> got(64), inplace = coef;
        ASSERT_EQ(rokiDCT8x8Inv_A10_16s_C1(coef.data(), got.data()), rokStatusOk);
        ASSERT_EQ(rokiDCT8x8Inv_A10_16s_C1I(inplace.data()), rokStatusOk);
        EXPECT_EQ(got, inplace);
        for (int i = 0; i < 64; ++i, ++total) {
            const int e = std::abs(got[i] - round_sat16(inv[i]));
            worst = std::max(worst, e);
            differing += e != 0;
        }
    }
    EXPECT_LE(worst, 1);
    EXPECT_LE(differing * 1000, total);
    RecordProperty("a10_differing", int(differing));
}

TEST(Zigzag, FollowsTheTablesBothWaysAndInPlace) {
    std::vector<Rok16s> raster(64), zz(64), back(64);
    for (int i = 0; i < 64; ++i) raster[i] = Rok16s(1000 + i);
    ASSERT_EQ(rokiZigzagFwd8x8_16s_C1(raster.data(), zz.data()), rokStatusOk);
    // Spot checks along the zigzag: k -> raster position.
    const int k[] = {0, 1, 2, 3, 5, 6, 9, 10, 20, 27, 35, 36, 42, 48, 58, 63};
    const int pos[] = {0, 1, 8, 16, 2, 3, 24, 32, 40, 6, 56, 57, 15, 58, 61, 63};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(zz[k[i]], 1000 + pos[i]) << k[i];
    ASSERT_EQ(rokiZigzagInv8x8_16s_C1(zz.data(), back.data()), rokStatusOk);
    EXPECT_EQ(back, raster);
    auto inplace = raster;
    ASSERT_EQ(rokiZigzagFwd8x8_16s_C1(inplace.data(), inplace.data()), rokStatusOk);
    EXPECT_EQ(inplace, zz);
    ASSERT_EQ(rokiZigzagInv8x8_16s_C1(inplace.data(), inplace.data()), rokStatusOk);
    EXPECT_EQ(inplace, raster);
}

TEST(Dct8x8, StatusesComeBeforeAnyWrite) {
    std::vector<Rok16s> s(64, 1), d(64, 7);
    std::vector<Rok8u> b(64, 9);
    const std::vector<Rok16s> d0 = d;
    const std::vector<Rok8u> b0 = b;
    EXPECT_EQ(rokiDCT8x8Fwd_16s_C1(nullptr, d.data()), rokStatusNullPtr);
    EXPECT_EQ(rokiDCT8x8Inv_16s_C1(s.data(), nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiDCT8x8Fwd_32f_C1I(nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiDCT8x8Fwd_16s_C1R(s.data(), 0, d.data()), rokStatusBadStep);
    EXPECT_EQ(rokiDCT8x8Fwd_16s_C1R(nullptr, 0, d.data()), rokStatusNullPtr);  // pointers first
    EXPECT_EQ(rokiDCT8x8Fwd_8u16s_C1R(b.data(), -8, d.data()), rokStatusBadStep);
    EXPECT_EQ(rokiDCT8x8FwdLS_8u16s_C1R(b.data(), 0, d.data(), 5), rokStatusBadStep);
    EXPECT_EQ(rokiDCT8x8Inv_16s_C1R(s.data(), d.data(), 0), rokStatusBadStep);
    EXPECT_EQ(rokiDCT8x8Inv_16s8u_C1R(s.data(), b.data(), 0), rokStatusBadStep);
    EXPECT_EQ(rokiDCT8x8InvLSClip_16s8u_C1R(s.data(), b.data(), 0, 0, 0, 255), rokStatusBadStep);
    EXPECT_EQ(rokiDCT8x8InvLSClip_16s8u_C1R(nullptr, b.data(), 8, 0, 0, 255), rokStatusNullPtr);
    EXPECT_EQ(rokiDCT8x8To4x4Inv_16s_C1(s.data(), nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiZigzagInv8x8_16s_C1(nullptr, d.data()), rokStatusNullPtr);
    EXPECT_EQ(d, d0);
    EXPECT_EQ(b, b0);
}

}  // namespace
