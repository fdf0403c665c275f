// Functions on packed spectra against references written from the layout
// rule: the full spectrum, products, magnitude and phase, widths 1 to 70 for
// the vector tails, guarded images, statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>

#include "guarded.h"
#include "random.h"
#include "dft_reference.h"
#include "reference.h"
#include "roki.h"

namespace {

using rokt::GuardedImage;

// A complex value of the full spectrum, exact for every sample type.
struct Z {
    std::int64_t re = 0, im = 0;  // integers
    double fre = 0, fim = 0;      // floats (exact copies of the samples)
};

// Where the packed layout stores F(u, v): the sample positions of Re and
// Im (im < 0: imaginary part 0), and whether the value is the conjugate.
struct Where {
    int reX, reY, imX, imY;
    bool conj;
};

Where where(int w, int h, int u, int v) {
    // The column elements: u = 0 and, for even W, u = W/2, along y.
    auto column = [&](int x, int vv) -> Where {
        if (vv == 0) return {x, 0, -1, -1, false};
        if (2 * vv == h) return {x, h - 1, -1, -1, false};
        if (2 * vv < h) return {x, 2 * vv - 1, x, 2 * vv, false};
        Where c = {x, 2 * (h - vv) - 1, x, 2 * (h - vv), true};
        return c;
    };
    if (u == 0) return column(0, v);
    if (2 * u == w) return column(w - 1, v);
    if (2 * u < w) return {2 * u - 1, v, 2 * u, v, false};
    const int uu = w - u, vv = (h - v) % h;
    return {2 * uu - 1, vv, 2 * uu, vv, true};
}

template <class T>
Z value(const GuardedImage<T>& p, int u, int v, int c) {
    const Where at = where(p.width(), p.height(), u, v);
    Z z;
    z.re = std::int64_t(p.at(at.reX, at.reY, c));
    z.fre = double(p.at(at.reX, at.reY, c));
    if (at.imX >= 0) {
        z.im = std::int64_t(p.at(at.imX, at.imY, c));
        z.fim = double(p.at(at.imX, at.imY, c));
    }
    if (at.conj) {
        z.im = -z.im;
        z.fim = -z.fim;
    }
    return z;
}

template <class T>
T saturate(std::int64_t v) {
    return T(std::min<std::int64_t>(std::max<std::int64_t>(v, std::numeric_limits<T>::min()), std::numeric_limits<T>::max()));
}

const int kSizes[][2] = {{1, 1}, {1, 4}, {4, 1}, {2, 2}, {5, 4}, {4, 5}, {6, 7}, {9, 3}, {16, 9}};

TEST(PackToCplxExtend, WritesTheFullSpectrumAndCplxExtendToPackUndoesIt) {
    for (const auto& s : kSizes) {
        const int w = s[0], h = s[1];
        GuardedImage<Rok32f> pf(w, h, 1, 1), backf(w, h, 1, 2);
        GuardedImage<Rok32fc> ff(w, h, 1, 3);
        GuardedImage<Rok32s> pi(w, h, 1), backi(w, h, 1);
        GuardedImage<Rok32sc> fi(w, h, 1);
        rokt::fill_random(pf, 1);
        rokt::fill_random(pi, 2);
        pi.at(w - 1, h - 1) = std::numeric_limits<Rok32s>::min();  // its conjugate saturates
        ASSERT_EQ(rokiPackToCplxExtend_32f32fc_C1R(pf.data(), pf.step(), {w, h}, ff.data(), ff.step()), 0);
        ASSERT_EQ(rokiPackToCplxExtend_32s32sc_C1R(pi.data(), pi.step(), {w, h}, fi.data(), fi.step()), 0);
        for (int v = 0; v < h; ++v)
            for (int u = 0; u < w; ++u) {
                const Z zf = value(pf, u, v, 0), zi = value(pi, u, v, 0);
                ASSERT_EQ(ff.at(u, v).re, float(zf.fre)) << u << "," << v;
                ASSERT_EQ(ff.at(u, v).im, float(zf.fim)) << u << "," << v;
                ASSERT_EQ(fi.at(u, v).re, saturate<Rok32s>(zi.re));
                ASSERT_EQ(fi.at(u, v).im, saturate<Rok32s>(zi.im)) << u << "," << v;
            }
        ASSERT_EQ(rokiCplxExtendToPack_32fc32f_C1R(ff.data(), ff.step(), {w, h}, backf.data(), backf.step()), 0);
        ASSERT_EQ(rokiCplxExtendToPack_32sc32s_C1R(fi.data(), fi.step(), {w, h}, backi.data(), backi.step()), 0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                ASSERT_EQ(backf.at(x, y), pf.at(x, y));
                ASSERT_EQ(backi.at(x, y), pi.at(x, y));
            }
    }
}

// CplxExtendToPack reads only the stored elements of any complex image.
TEST(CplxExtendToPack, TakesTheStoredElementsOfEveryChannel) {
    for (const auto& s : kSizes) {
        const int w = s[0], h = s[1];
        GuardedImage<Rok16sc> src(w, h, 3, 1);
        GuardedImage<Rok16s> dst(w, h, 3, 1);
        std::mt19937 rng(w * 10 + h);
        for (int y = 0; y < h; ++y)
            for (int i = 0; i < 3 * w; ++i) src.row(y)[i] = {Rok16s(rng()), Rok16s(rng())};
        ASSERT_EQ(rokiCplxExtendToPack_16sc16s_C3R(src.data(), src.step(), {w, h}, dst.data(), dst.step()), 0);
        for (int c = 0; c < 3; ++c) {
            rokt::dft::Spectrum f{w, h, {}};
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) f.data.push_back({double(src.at(x, y, c).re), double(src.at(x, y, c).im)});
            const auto want = rokt::dft::pack(f);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) ASSERT_EQ(dst.at(x, y, c), Rok16s(want[std::size_t(y) * w + x])) << c;
        }
    }
}

// The integer magnitude from the rule: the integer nearest to sqrt(s) *
// 2^-sf (ties to even), found by comparing squares exactly.
template <class T>
T magnitude_ref(std::int64_t re, std::int64_t im, int sf) {
    using W = __int128;
    const W s = W(re) * re + W(im) * im;
    // sqrt(s) < 2^32: a factor of 2^-40 rounds to 0, one of 2^32 saturates.
    if (s == 0 || sf >= 40) return 0;
    if (sf <= -32) return std::numeric_limits<T>::max();
    // Candidates around the estimate; r is nearest when (2r-1)^2 4^sf <= 4s <= (2r+1)^2 4^sf.
    const long double est = std::sqrt((long double)s) * std::pow(2.0L, -sf);
    if (est > 4e9L) return std::numeric_limits<T>::max();
    const std::int64_t r0 = std::int64_t(est);
    for (std::int64_t r = std::max<std::int64_t>(0, r0 - 2); r <= r0 + 2; ++r) {
        auto sq = [&](std::int64_t k) {  // k^2 * 4^sf, against 4 s * 4^max(0,-sf)
            W v = W(k) * k;
            return sf >= 0 ? v << (2 * sf) : v;
        };
        const W four = sf >= 0 ? 4 * s : (4 * s) << (-2 * sf);
        const W lo = r == 0 ? W(0) : sq(2 * r - 1), hi = sq(2 * r + 1);
        const bool above = four > lo || (four == lo && r % 2 == 0);
        const bool below = four < hi || (four == hi && r % 2 == 0);
        if (above && below) return T(std::min<std::int64_t>(r, std::numeric_limits<T>::max()));
    }
    ADD_FAILURE() << "no nearest integer for " << re << ", " << im << " sf " << sf;
    return 0;
}

template <class T>
void check_magnitude_and_phase(const GuardedImage<T>& p, int nc, int sf) {
    const int w = p.width(), h = p.height();
    GuardedImage<T> mag(w, h, nc, 1), ph(w, h, nc, 2);
    RokiSize roi{w, h};
    if constexpr (std::is_same_v<T, Rok32f>) {
        ASSERT_EQ(nc == 1 ? rokiMagnitudePack_32f_C1R(p.data(), p.step(), mag.data(), mag.step(), roi)
                          : rokiMagnitudePack_32f_C3R(p.data(), p.step(), mag.data(), mag.step(), roi),
                  0);
        ASSERT_EQ(nc == 1 ? rokiPhasePack_32f_C1R(p.data(), p.step(), ph.data(), ph.step(), roi)
                          : rokiPhasePack_32f_C3R(p.data(), p.step(), ph.data(), ph.step(), roi),
                  0);
    } else if constexpr (std::is_same_v<T, Rok16s>) {
        ASSERT_EQ(nc == 1 ? rokiMagnitudePack_16s_C1RSfs(p.data(), p.step(), mag.data(), mag.step(), roi, sf)
                          : rokiMagnitudePack_16s_C3RSfs(p.data(), p.step(), mag.data(), mag.step(), roi, sf),
                  0);
        ASSERT_EQ(nc == 1 ? rokiPhasePack_16s_C1RSfs(p.data(), p.step(), ph.data(), ph.step(), roi, sf)
                          : rokiPhasePack_16s_C3RSfs(p.data(), p.step(), ph.data(), ph.step(), roi, sf),
                  0);
    } else {
        ASSERT_EQ(nc == 1 ? rokiMagnitudePack_32s_C1RSfs(p.data(), p.step(), mag.data(), mag.step(), roi, sf)
                          : rokiMagnitudePack_32s_C3RSfs(p.data(), p.step(), mag.data(), mag.step(), roi, sf),
                  0);
        ASSERT_EQ(nc == 1 ? rokiPhasePack_32s_C1RSfs(p.data(), p.step(), ph.data(), ph.step(), roi, sf)
                          : rokiPhasePack_32s_C3RSfs(p.data(), p.step(), ph.data(), ph.step(), roi, sf),
                  0);
    }
    for (int c = 0; c < nc; ++c)
        for (int v = 0; v < h; ++v)
            for (int u = 0; u < w; ++u) {
                const Z z = value(p, u, v, c);
                if constexpr (std::is_same_v<T, Rok32f>) {
                    ASSERT_EQ(mag.at(u, v, c), float(std::sqrt(z.fre * z.fre + z.fim * z.fim))) << u << "," << v;
                    ASSERT_EQ(ph.at(u, v, c), float(std::atan2(z.fim, z.fre))) << u << "," << v;
                } else {
                    ASSERT_EQ(mag.at(u, v, c), magnitude_ref<T>(z.re, z.im, sf)) << z.re << "," << z.im << " sf " << sf;
                    // Beyond 2^+-1000 every non-zero angle saturates or rounds to 0 (and -INT_MIN has no int).
                    const long long e = std::clamp(-static_cast<long long>(sf), -1000LL, 1000LL);
                    const double a = std::nearbyint(std::ldexp(std::atan2(double(z.im), double(z.re)), int(e)));
                    ASSERT_EQ(ph.at(u, v, c), saturate<T>(std::int64_t(std::clamp(a, -9e18, 9e18)))) << u << "," << v << " sf " << sf;
                }
            }
}

TEST(MagnitudePhasePack, FollowTheFullSpectrum) {
    for (const auto& s : kSizes)
        for (int nc : {1, 3}) {
            GuardedImage<Rok32f> f(s[0], s[1], nc, 1);
            rokt::fill_random(f, 3);
            check_magnitude_and_phase(f, nc, 0);
            GuardedImage<Rok16s> a(s[0], s[1], nc, 1);
            GuardedImage<Rok32s> b(s[0], s[1], nc, 1);
            rokt::fill_random(a, 4);
            rokt::fill_random(b, 5);
            for (int sf : {0, 1, 5, -3, -12, 40, -40, INT_MIN, INT_MAX}) {
                check_magnitude_and_phase(a, nc, sf);
                check_magnitude_and_phase(b, nc, sf);
            }
        }
}

// Exact ties and saturation of the integer magnitude.
TEST(MagnitudePhasePack, IntegerMagnitudeRoundsTiesToEvenAndSaturates) {
    const struct {
        std::int64_t re, im;
        int sf;
        std::int64_t want16, want32;
    } cases[] = {{3, 4, 1, 2, 2},       {5, 12, 1, 6, 6},     {7, 24, 1, 12, 12},   {1, 0, 1, 0, 0},
                 {3, 0, 1, 2, 2},       {3, 4, -2, 20, 20},   {3, 4, 0, 5, 5},      {-32768, -32768, 0, 32767, 46341},
                 {-32768, 0, 16, 0, 0}, {-32768, 0, 15, 1, 1}, {-32768, 0, 17, 0, 0}, {1, 1, 0, 1, 1}};
    for (const auto& c : cases) {
        // A 4 x 1 packed image with the pair at pixels 1, 2; F(1, 0) is it.
        GuardedImage<Rok16s> a(4, 1, 1);
        GuardedImage<Rok32s> b(4, 1, 1);
        a.at(0, 0) = 0, a.at(1, 0) = Rok16s(c.re), a.at(2, 0) = Rok16s(c.im), a.at(3, 0) = 0;
        b.at(0, 0) = 0, b.at(1, 0) = Rok32s(c.re), b.at(2, 0) = Rok32s(c.im), b.at(3, 0) = 0;
        GuardedImage<Rok16s> ma(4, 1, 1);
        GuardedImage<Rok32s> mb(4, 1, 1);
        ASSERT_EQ(rokiMagnitudePack_16s_C1RSfs(a.data(), a.step(), ma.data(), ma.step(), {4, 1}, c.sf), 0);
        ASSERT_EQ(rokiMagnitudePack_32s_C1RSfs(b.data(), b.step(), mb.data(), mb.step(), {4, 1}, c.sf), 0);
        EXPECT_EQ(ma.at(1, 0), c.want16) << c.re << "," << c.im << " sf " << c.sf;
        EXPECT_EQ(mb.at(1, 0), c.want32) << c.re << "," << c.im << " sf " << c.sf;
        EXPECT_EQ(ma.at(3, 0), ma.at(1, 0)) << "the conjugate has the same magnitude";
    }
    // Two real-only elements of -2^31: magnitude 2^31, a tie at sf 32.
    GuardedImage<Rok32s> big(2, 1, 1), out(2, 1, 1);
    big.at(0, 0) = big.at(1, 0) = std::numeric_limits<Rok32s>::min();
    for (const auto& [sf, want] : {std::pair{0, 2147483647}, std::pair{1, 1073741824}, std::pair{31, 1},
                                   std::pair{32, 0}, std::pair{33, 0}, std::pair{-1, 2147483647}}) {
        ASSERT_EQ(rokiMagnitudePack_32s_C1RSfs(big.data(), big.step(), out.data(), out.step(), {2, 1}, sf), 0);
        EXPECT_EQ(out.at(0, 0), want) << "sf " << sf;
    }
}

// The product of two stored values by the layout rule.
template <class T>
void expected_products(const GuardedImage<T>& a, const GuardedImage<T>& b, GuardedImage<T>& d, int processed, bool conj,
                       int sf) {
    const int w = a.width(), h = a.height();
    auto complex = [&](int rx, int ry, int ix, int iy, int c) {
        const T ar = a.at(rx, ry, c), ai = a.at(ix, iy, c), br = b.at(rx, ry, c), bi = b.at(ix, iy, c);
        if constexpr (std::is_same_v<T, Rok32f>) {
            d.at(rx, ry, c) = conj ? ar * br + ai * bi : ar * br - ai * bi;
            d.at(ix, iy, c) = conj ? ai * br - ar * bi : ai * br + ar * bi;
        } else {
            d.at(rx, ry, c) = rokt::ref::scale<T>(rokt::ref::Wide(ar) * br - rokt::ref::Wide(ai) * bi, sf);
            d.at(ix, iy, c) = rokt::ref::scale<T>(rokt::ref::Wide(ai) * br + rokt::ref::Wide(ar) * bi, sf);
        }
    };
    auto real = [&](int x, int y, int c) {
        if constexpr (std::is_same_v<T, Rok32f>)
            d.at(x, y, c) = a.at(x, y, c) * b.at(x, y, c);
        else
            d.at(x, y, c) = rokt::ref::scale<T>(rokt::ref::Wide(a.at(x, y, c)) * b.at(x, y, c), sf);
    };
    for (int c = 0; c < processed; ++c) {
        for (int y = 0; y < h; ++y)
            for (int u = 1; 2 * u < w; ++u) complex(2 * u - 1, y, 2 * u, y, c);
        const int columns = w % 2 == 0 ? 2 : 1;  // pixel 0, and W-1 for even W
        for (int x : {0, w - 1}) {
            if (x > 0 && columns == 1) break;
            real(x, 0, c);
            for (int k = 1; 2 * k < h; ++k) complex(x, 2 * k - 1, x, 2 * k, c);
            if (h % 2 == 0 && h > 1) real(x, h - 1, c);
        }
    }
}

using MulFn32f = RokStatus (*)(const Rok32f*, int, const Rok32f*, int, Rok32f*, int, RokiSize);
using MulIFn32f = RokStatus (*)(const Rok32f*, int, Rok32f*, int, RokiSize);

// One-channel float products over widths 1 to 70 (every vector tail), odd
// steps and guarded images: both products, both forms, the conjugate's
// destination rules.
TEST(MulPack, OneChannelFloatOverEveryTail) {
    for (int w = 1; w <= 70; ++w)
        for (int h : {3, 4}) {
            GuardedImage<Rok32f> a(w, h, 1, 1), b(w, h, 1, 3), d(w, h, 1, 5), want(w, h, 1), io(w, h, 1);
            rokt::fill_random(a, unsigned(w));
            rokt::fill_random(b, unsigned(w + 100));
            for (bool conj : {false, true}) {
                expected_products(a, b, want, 1, conj, 0);
                const MulFn32f fn = conj ? rokiMulPackConj_32f_C1R : rokiMulPack_32f_C1R;
                const MulIFn32f fnI = conj ? rokiMulPackConj_32f_C1IR : rokiMulPack_32f_C1IR;
                ASSERT_EQ(fn(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), {w, h}), 0);
                for (int y = 0; y < h; ++y) std::memcpy(io.row(y), b.row(y), sizeof(float) * w);
                ASSERT_EQ(fnI(a.data(), a.step(), io.data(), io.step(), {w, h}), 0);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        ASSERT_EQ(d.at(x, y), want.at(x, y)) << (conj ? "conj " : "") << w << "x" << h << " at " << x << "," << y;
                        ASSERT_EQ(io.at(x, y), want.at(x, y)) << "in place";
                    }
                // Destination = second source: the same result.
                for (int y = 0; y < h; ++y) std::memcpy(io.row(y), b.row(y), sizeof(float) * w);
                ASSERT_EQ(fn(a.data(), a.step(), io.data(), io.step(), io.data(), io.step(), {w, h}), 0);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) ASSERT_EQ(io.at(x, y), want.at(x, y)) << "dst = src2";
                // Destination = first source: the conjugate product swaps its
                // operands, so the stored imaginary parts change sign.
                for (int y = 0; y < h; ++y) std::memcpy(io.row(y), a.row(y), sizeof(float) * w);
                ASSERT_EQ(fn(io.data(), io.step(), b.data(), b.step(), io.data(), io.step(), {w, h}), 0);
                GuardedImage<Rok32f> swapped(w, h, 1);
                expected_products(b, a, swapped, 1, conj, 0);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) ASSERT_EQ(io.at(x, y), conj ? swapped.at(x, y) : want.at(x, y)) << "dst = src1";
            }
        }
}

template <class T>
void check_products(int lay, int w, int h, int sf) {
    static constexpr int kChannels[] = {1, 3, 4, 4};
    const int nc = kChannels[lay], processed = lay == 3 ? 3 : nc;
    GuardedImage<T> a(w, h, nc, 1), b(w, h, nc, 2), d(w, h, nc, 1), io(w, h, nc), want(w, h, nc);
    rokt::fill_random(a, unsigned(w * 7 + lay));
    rokt::fill_random(b, unsigned(h * 5 + lay));
    d.fill_bytes(0x5c);
    want.fill_bytes(0x5c);
    for (int y = 0; y < h; ++y)
        for (int i = 0; i < w * nc; ++i) io.row(y)[i] = i % 4 == 3 && lay == 3 ? want.row(y)[i] : b.row(y)[i];
    for (int conj = 0; conj < (std::is_same_v<T, Rok32f> ? 2 : 1); ++conj) {
        expected_products(a, b, want, processed, conj, sf);
        const RokiSize roi{w, h};
        RokStatus r = 0, ri = 0;
        if constexpr (std::is_same_v<T, Rok32f>) {
            static const MulFn32f fns[2][4] = {
                {rokiMulPack_32f_C1R, rokiMulPack_32f_C3R, rokiMulPack_32f_C4R, rokiMulPack_32f_AC4R},
                {rokiMulPackConj_32f_C1R, rokiMulPackConj_32f_C3R, rokiMulPackConj_32f_C4R, rokiMulPackConj_32f_AC4R}};
            static const MulIFn32f fnsI[2][4] = {
                {rokiMulPack_32f_C1IR, rokiMulPack_32f_C3IR, rokiMulPack_32f_C4IR, rokiMulPack_32f_AC4IR},
                {rokiMulPackConj_32f_C1IR, rokiMulPackConj_32f_C3IR, rokiMulPackConj_32f_C4IR, rokiMulPackConj_32f_AC4IR}};
            r = fns[conj][lay](a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), roi);
            ri = fnsI[conj][lay](a.data(), a.step(), io.data(), io.step(), roi);
        } else {
            using Fn = RokStatus (*)(const T*, int, const T*, int, T*, int, RokiSize, int);
            using FnI = RokStatus (*)(const T*, int, T*, int, RokiSize, int);
            Fn fns[4];
            FnI fnsI[4];
            if constexpr (std::is_same_v<T, Rok16s>) {
                const Fn f[] = {rokiMulPack_16s_C1RSfs, rokiMulPack_16s_C3RSfs, rokiMulPack_16s_C4RSfs, rokiMulPack_16s_AC4RSfs};
                const FnI fi[] = {rokiMulPack_16s_C1IRSfs, rokiMulPack_16s_C3IRSfs, rokiMulPack_16s_C4IRSfs,
                                  rokiMulPack_16s_AC4IRSfs};
                std::copy(f, f + 4, fns);
                std::copy(fi, fi + 4, fnsI);
            } else {
                const Fn f[] = {rokiMulPack_32s_C1RSfs, rokiMulPack_32s_C3RSfs, rokiMulPack_32s_C4RSfs, rokiMulPack_32s_AC4RSfs};
                const FnI fi[] = {rokiMulPack_32s_C1IRSfs, rokiMulPack_32s_C3IRSfs, rokiMulPack_32s_C4IRSfs,
                                  rokiMulPack_32s_AC4IRSfs};
                std::copy(f, f + 4, fns);
                std::copy(fi, fi + 4, fnsI);
            }
            r = fns[lay](a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), roi, sf);
            ri = fnsI[lay](a.data(), a.step(), io.data(), io.step(), roi, sf);
        }
        ASSERT_EQ(r, 0);
        ASSERT_EQ(ri, 0);
        for (int y = 0; y < h; ++y)
            for (int i = 0; i < w * nc; ++i) {
                ASSERT_EQ(d.row(y)[i], want.row(y)[i]) << "layout " << lay << " " << w << "x" << h << " sf " << sf << " sample " << i;
                ASSERT_EQ(io.row(y)[i], want.row(y)[i]) << "in place, layout " << lay;
            }
        for (int y = 0; y < h; ++y)
            for (int i = 0; i < w * nc; ++i) io.row(y)[i] = i % 4 == 3 && lay == 3 ? want.row(y)[i] : b.row(y)[i];
    }
}

TEST(MulPack, EveryTypeAndLayout) {
    for (int lay = 0; lay < 4; ++lay)
        for (const auto& s : kSizes) {
            check_products<Rok32f>(lay, s[0], s[1], 0);
            for (int sf : {0, 3, 16, -2, 70, -70, INT_MIN, INT_MAX}) {
                check_products<Rok16s>(lay, s[0], s[1], sf);
                check_products<Rok32s>(lay, s[0], s[1], sf);
            }
        }
}

// Null pointers, then size, then steps; nothing written on error.
TEST(PackedFunctions, CheckPointersThenSizeThenSteps) {
    GuardedImage<Rok32f> a(4, 4, 1), d(4, 4, 1);
    GuardedImage<Rok32fc> z(4, 4, 1);
    d.fill_bytes(0x77);
    z.fill_bytes(0x77);
    const auto before = d.bytes(), beforeZ = z.bytes();
    const int s = a.step();
    const struct {
        const Rok32f* src;
        Rok32f* dst;
        RokiSize roi;
        int ss, ds;
        RokStatus want;
    } cases[] = {{nullptr, d.data(), {0, 4}, 0, 0, rokStatusNullPtr}, {a.data(), nullptr, {4, 4}, s, s, rokStatusNullPtr},
                 {a.data(), d.data(), {0, 4}, 0, s, rokStatusBadSize},  {a.data(), d.data(), {4, -1}, s, s, rokStatusBadSize},
                 {a.data(), d.data(), {4, 4}, 0, s, rokStatusBadStep},  {a.data(), d.data(), {4, 4}, s, -4, rokStatusBadStep}};
    for (const auto& c : cases) {
        EXPECT_EQ(rokiMulPack_32f_C1R(c.src, c.ss, c.src, c.ss, c.dst, c.ds, c.roi), c.want);
        EXPECT_EQ(rokiMulPackConj_32f_AC4IR(c.src, c.ss, c.dst, c.ds, c.roi), c.want);
        EXPECT_EQ(rokiMulPack_16s_C3RSfs(reinterpret_cast<const Rok16s*>(c.src), c.ss, reinterpret_cast<const Rok16s*>(c.src),
                                         c.ss, reinterpret_cast<Rok16s*>(c.dst), c.ds, c.roi, 0),
                  c.want);
        EXPECT_EQ(rokiMagnitudePack_32f_C1R(c.src, c.ss, c.dst, c.ds, c.roi), c.want);
        EXPECT_EQ(rokiPhasePack_32s_C3RSfs(reinterpret_cast<const Rok32s*>(c.src), c.ss, reinterpret_cast<Rok32s*>(c.dst), c.ds,
                                           c.roi, 0),
                  c.want);
        EXPECT_EQ(rokiPackToCplxExtend_32f32fc_C1R(c.src, c.ss, c.roi, c.dst ? z.data() : nullptr, c.ds), c.want);
        EXPECT_EQ(rokiCplxExtendToPack_32fc32f_C1R(c.src ? z.data() : nullptr, c.ss, c.roi, c.dst, c.ds), c.want);
    }
    EXPECT_TRUE(d.bytes() == before);
    EXPECT_TRUE(z.bytes() == beforeZ);
}

}  // namespace
