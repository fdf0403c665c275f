// Two-dimensional transforms against the direct DFT in double precision:
// the packed layout for odd and even sides, every layout and form, every
// flag, thread counts, guarded images and buffers.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstring>

#include "fft2d_harness.h"
#include "threads.h"

namespace {

using namespace rokt::fft2d;
using rokt::Guard;
using rokt::GuardedBuffer;
using rokt::GuardedImage;

struct Size2 {
    int w, h;
};

// DFT sizes (odd and even sides, primes, rectangles) and FFT sizes.
const Size2 kDftSizes[] = {{1, 1},   {2, 1},   {1, 2},    {2, 2},     {3, 5},   {5, 3},  {7, 8},
                           {8, 7},   {12, 17}, {17, 12},  {1, 17},    {17, 1},  {100, 3}, {127, 128},
                           {128, 127}, {36, 50}, {9, 70}, {1000, 2}, {3, 1000}};
const Size2 kFftSizes[] = {{1, 1}, {2, 1}, {1, 2}, {8, 4}, {4, 8}, {32, 128}, {128, 32}, {64, 64}, {1024, 2}, {4, 1024}};

double rms_of(const GuardedImage<float>& img, int c) { return rokt::dft::rms(rokt::dft::direct2d(channel(img, c))); }

// Forward transform of every layout, out of place and in place, against
// the packed reference; in place equals out of place bit for bit, and a
// channel of a multi-channel image equals the one-channel transform of it.
TEST(Fft2d, ForwardGivesThePackedSpectrum) {
    for (Kind kind : {Kind::Dft, Kind::Fft}) {
        for (const Size2& s : kind == Kind::Dft ? std::vector<Size2>(std::begin(kDftSizes), std::end(kDftSizes))
                                                : std::vector<Size2>(std::begin(kFftSizes), std::end(kFftSizes))) {
            Spec spec(kind, Domain::Real, s.w, s.h, rokFftNoDiv);
            for (int lay : {C1, C3, C4, AC4}) {
                // Channels match the one-channel transform bit for bit (below),
                // so the largest sizes run one channel only.
                if (lay != C1 && s.w * s.h > 2000) continue;
                const int nc = kSamples[lay];
                GuardedImage<float> src(s.w, s.h, nc, 3), dst(s.w, s.h, nc, 1), inplace(s.w, s.h, nc, 0);
                rokt::fill_random(src, unsigned(s.w * 131 + s.h));
                dst.fill_bytes(0x5a);
                ASSERT_EQ(ops(kind).fwd[lay](src.data(), src.step(), dst.data(), dst.step(), spec.get(), nullptr),
                          rokStatusOk);
                for (int y = 0; y < s.h; ++y)
                    for (int i = 0; i < s.w * nc; ++i) inplace.row(y)[i] = lay == AC4 && i % 4 == 3 ? 7.0f : src.row(y)[i];
                ASSERT_EQ(ops(kind).fwdI[lay](inplace.data(), inplace.step(), spec.get(), nullptr), rokStatusOk);
                for (int c = 0; c < kProcessed[lay]; ++c) {
                    const auto f = rokt::dft::direct2d(channel(src, c));
                    const double err = packed_error(dst, c, rokt::dft::pack(f), rokt::dft::rms(f));
                    EXPECT_LT(err, 2e-6) << kLayNames[lay] << " " << s.w << "x" << s.h << " channel " << c;
                    if (lay == C1) {
                        // The elements the layout leaves out follow from the
                        // conjugate symmetry: the extended spectrum is the
                        // whole direct DFT.
                        GuardedImage<Rok32fc> full(s.w, s.h, 1);
                        ASSERT_EQ(rokiPackToCplxExtend_32f32fc_C1R(dst.data(), dst.step(), {s.w, s.h}, full.data(),
                                                                    full.step()),
                                  0);
                        double worst = 0;
                        for (int y = 0; y < s.h; ++y)
                            for (int x = 0; x < s.w; ++x)
                                worst = std::max(worst, std::abs(rokt::dft::cd(full.at(x, y).re, full.at(x, y).im) -
                                                                 f.at(x, y)));
                        EXPECT_LT(worst / rokt::dft::rms(f), 2e-6) << s.w << "x" << s.h << " extended";
                    }
                    for (int y = 0; y < s.h; ++y)
                        for (int x = 0; x < s.w; ++x)
                            ASSERT_EQ(dst.at(x, y, c), inplace.at(x, y, c)) << kLayNames[lay] << " in place";
                }
                if (lay == AC4)
                    for (int y = 0; y < s.h; ++y)
                        for (int x = 0; x < s.w; ++x) {
                            std::uint32_t bits;
                            std::memcpy(&bits, &dst.at(x, y, 3), 4);
                            ASSERT_EQ(bits, 0x5a5a5a5au) << "alpha written";
                            ASSERT_EQ(inplace.at(x, y, 3), 7.0f) << "alpha written in place";
                        }
            }
        }
    }
}

// A channel of an interleaved image gives exactly the bits of the same
// plane transformed alone.
TEST(Fft2d, ChannelsMatchTheOneChannelTransform) {
    for (const Size2& s : {Size2{17, 12}, Size2{36, 50}, Size2{9, 70}}) {
        Spec spec(Kind::Dft, Domain::Real, s.w, s.h, rokFftDivFwd);
        GuardedImage<float> four(s.w, s.h, 4), out4(s.w, s.h, 4), one(s.w, s.h, 1), out1(s.w, s.h, 1);
        rokt::fill_random(four, 99);
        ASSERT_EQ(ops(Kind::Dft).fwd[C4](four.data(), four.step(), out4.data(), out4.step(), spec.get(), nullptr), 0);
        for (int c = 0; c < 4; ++c) {
            for (int y = 0; y < s.h; ++y)
                for (int x = 0; x < s.w; ++x) one.at(x, y) = four.at(x, y, c);
            ASSERT_EQ(ops(Kind::Dft).fwd[C1](one.data(), one.step(), out1.data(), out1.step(), spec.get(), nullptr), 0);
            for (int y = 0; y < s.h; ++y)
                for (int x = 0; x < s.w; ++x) ASSERT_EQ(out4.at(x, y, c), out1.at(x, y)) << x << "," << y << " c " << c;
        }
    }
}

// Inverse after forward gives the image back, scaled as the flag says; the
// forward factor itself is checked against the unscaled transform.
TEST(Fft2d, RoundTripsWithEveryFlag) {
    const struct {
        int flag;
        double forward, roundTrip;  // factors as powers of W * H
    } flags[] = {{rokFftDivFwd, -1, 0}, {rokFftDivInv, 0, 0}, {rokFftDivSqrt, -0.5, 0}, {rokFftNoDiv, 0, 1}};
    for (Kind kind : {Kind::Dft, Kind::Fft})
        for (const Size2& s : kind == Kind::Dft ? std::vector<Size2>{{1, 1}, {15, 7}, {2, 64}}
                                                : std::vector<Size2>{{1, 1}, {8, 4}, {16, 32}, {2, 64}})
            for (const auto& f : flags) {
                const int w = s.w, h = s.h;
                const double n = double(w) * h;
                Spec spec(kind, Domain::Real, w, h, f.flag), plain(kind, Domain::Real, w, h, rokFftNoDiv);
                GuardedImage<float> src(w, h, 1), fwd(w, h, 1), ref(w, h, 1), back(w, h, 1);
                rokt::fill_random(src, 5);
                ASSERT_EQ(ops(kind).fwd[C1](src.data(), src.step(), fwd.data(), fwd.step(), spec.get(), nullptr), 0);
                ASSERT_EQ(ops(kind).fwd[C1](src.data(), src.step(), ref.data(), ref.step(), plain.get(), nullptr), 0);
                ASSERT_EQ(ops(kind).inv[C1](fwd.data(), fwd.step(), back.data(), back.step(), spec.get(), nullptr), 0);
                const double scale = rms_of(src, 0);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        EXPECT_NEAR(fwd.at(x, y), ref.at(x, y) * std::pow(n, f.forward), 2e-6 * scale)
                            << "flag " << f.flag << " " << w << "x" << h;
                        EXPECT_NEAR(back.at(x, y), src.at(x, y) * std::pow(n, f.roundTrip),
                                    2e-6 * 1000 * std::pow(n, f.roundTrip + 0.5))
                            << "flag " << f.flag << " " << w << "x" << h;
                    }
            }
}

// The inverse reads only what the packed layout stores: the reference
// spectrum of a random image, packed, comes back as that image, for every
// layout, out of place and in place.
TEST(Fft2d, InverseTakesThePackedLayoutBack) {
    for (const Size2& s : {Size2{12, 17}, Size2{17, 12}, Size2{2, 2}, Size2{1, 5}, Size2{6, 1}})
        for (int lay : {C1, C3, C4, AC4}) {
            const int nc = kSamples[lay];
            Spec spec(Kind::Dft, Domain::Real, s.w, s.h, rokFftDivInv);
            GuardedImage<float> img(s.w, s.h, nc), packed(s.w, s.h, nc, 2), out(s.w, s.h, nc, 5);
            rokt::fill_random(img, 17);
            out.fill_bytes(0x33);
            for (int c = 0; c < nc; ++c) {
                const auto p = rokt::dft::pack(rokt::dft::direct2d(channel(img, c)));
                for (int y = 0; y < s.h; ++y)
                    for (int x = 0; x < s.w; ++x) packed.at(x, y, c) = float(p[std::size_t(y) * s.w + x]);
            }
            ASSERT_EQ(ops(Kind::Dft).inv[lay](packed.data(), packed.step(), out.data(), out.step(), spec.get(), nullptr),
                      0);
            ASSERT_EQ(ops(Kind::Dft).invI[lay](packed.data(), packed.step(), spec.get(), nullptr), 0);
            for (int c = 0; c < kProcessed[lay]; ++c)
                for (int y = 0; y < s.h; ++y)
                    for (int x = 0; x < s.w; ++x) {
                        EXPECT_NEAR(out.at(x, y, c), img.at(x, y, c), 2e-3) << kLayNames[lay];
                        EXPECT_EQ(out.at(x, y, c), packed.at(x, y, c)) << kLayNames[lay] << " in place";
                    }
            if (lay == AC4)
                for (int y = 0; y < s.h; ++y)
                    for (int x = 0; x < s.w; ++x) {
                        std::uint32_t bits;
                        std::memcpy(&bits, &out.at(x, y, 3), 4);
                        ASSERT_EQ(bits, 0x33333333u) << "alpha written";
                    }
        }
}

TEST(Fft2d, ComplexMatchesTheDirectDftBothWays) {
    for (Kind kind : {Kind::Dft, Kind::Fft})
        for (const Size2& s : kind == Kind::Dft ? std::vector<Size2>{{1, 1}, {3, 5}, {17, 12}, {9, 70}, {100, 3}}
                                                : std::vector<Size2>{{1, 1}, {2, 8}, {16, 32}, {64, 4}}) {
            Spec spec(kind, Domain::Complex, s.w, s.h, rokFftNoDiv);
            GuardedImage<Rok32fc> src(s.w, s.h, 1, 1), dst(s.w, s.h, 1, 3), inplace(s.w, s.h, 1);
            rokt::dft::Spectrum img{s.w, s.h, {}};
            std::mt19937 rng(3);
            std::uniform_real_distribution<float> d(-1, 1);
            for (int y = 0; y < s.h; ++y)
                for (int x = 0; x < s.w; ++x) {
                    src.at(x, y) = Rok32fc{d(rng), d(rng)};
                    img.data.push_back({src.at(x, y).re, src.at(x, y).im});
                }
            for (int dir = 0; dir < 2; ++dir) {
                const auto want = rokt::dft::direct2d(img, dir == 0 ? -1 : 1);
                for (int y = 0; y < s.h; ++y)
                    for (int x = 0; x < s.w; ++x) inplace.at(x, y) = src.at(x, y);
                const auto& o = ops(kind);
                ASSERT_EQ((dir == 0 ? o.cfwd : o.cinv)(src.data(), src.step(), dst.data(), dst.step(), spec.get(), nullptr), 0);
                ASSERT_EQ((dir == 0 ? o.cfwdI : o.cinvI)(inplace.data(), inplace.step(), spec.get(), nullptr), 0);
                double err = 0;
                for (int y = 0; y < s.h; ++y)
                    for (int x = 0; x < s.w; ++x) {
                        err = std::max(err, std::abs(rokt::dft::cd(dst.at(x, y).re, dst.at(x, y).im) - want.at(x, y)));
                        ASSERT_EQ(dst.at(x, y).re, inplace.at(x, y).re);
                        ASSERT_EQ(dst.at(x, y).im, inplace.at(x, y).im);
                    }
                EXPECT_LT(err / rokt::dft::rms(want), 2e-6) << s.w << "x" << s.h << " dir " << dir;
            }
        }
}

// Above the size thresholds a record splits its work among threads (for
// calls of 2^20 samples and more, a complex one counting twice); the
// result is the same bits with one thread, two, or a record made for one,
// also when the caller rounds upward (every thread computes in the
// caller's mode, and the mode stays the caller's). The integer transforms
// also convert on every thread.
TEST(Fft2d, ResultsDoNotDependOnTheThreadCount) {
    for (Domain domain : {Domain::Real, Domain::Complex, Domain::Integer})
        for (int mode : {FE_TONEAREST, FE_UPWARD}) {
            const Size2 s = domain == Domain::Complex ? Size2{750, 700} : Size2{1050, 1000};
            const auto& o = ops(Kind::Dft);
            std::vector<std::vector<float>> results;
            std::vector<std::vector<Rok8u>> backs;
            const int nc = domain == Domain::Complex ? 2 : 1;
            GuardedImage<float> src(s.w, s.h, nc), dst(s.w, s.h, nc);
            // Scale factor -4: the integer results keep four fraction bits,
            // so that a differently rounded float would show.
            GuardedImage<Rok8u> in(s.w, s.h, 1), back(s.w, s.h, 1);
            GuardedImage<Rok32s> out(s.w, s.h, 1);
            rokt::fill_random(src, 11);
            rokt::fill_random(in, 11);
            for (int made : {1, 2})
                for (int run : {1, 2}) {
                    rokt::WithThreads madeWith(made);
                    Spec spec(Kind::Dft, domain, s.w, s.h, rokFftDivFwd);
                    rokt::WithThreads runWith(run);
                    std::fesetround(mode);
                    RokStatus fwd = 0, inv = 0;
                    if (domain == Domain::Integer) {
                        fwd = o.intFwd[C1](in.data(), in.step(), out.data(), out.step(), -4, spec.get(), nullptr);
                        inv = o.intInv[C1](out.data(), out.step(), back.data(), back.step(), -4, spec.get(), nullptr);
                    } else if (domain == Domain::Real) {
                        fwd = o.fwd[C1](src.data(), src.step(), dst.data(), dst.step(), spec.get(), nullptr);
                    } else {
                        fwd = o.cfwd(reinterpret_cast<Rok32fc*>(src.data()), src.step(),
                                     reinterpret_cast<Rok32fc*>(dst.data()), dst.step(), spec.get(), nullptr);
                    }
                    const int after = std::fegetround();
                    std::fesetround(FE_TONEAREST);
                    ASSERT_EQ(fwd, 0);
                    ASSERT_EQ(inv, 0);
                    EXPECT_EQ(after, mode);
                    results.emplace_back();
                    backs.emplace_back();
                    for (int y = 0; y < s.h; ++y) {
                        if (domain == Domain::Integer) {
                            for (int x = 0; x < s.w; ++x) results.back().push_back(float(out.at(x, y)));
                            backs.back().insert(backs.back().end(), back.row(y), back.row(y) + s.w);
                        } else {
                            results.back().insert(results.back().end(), dst.row(y), dst.row(y) + s.w * nc);
                        }
                    }
                }
            for (std::size_t i = 1; i < results.size(); ++i) {
                EXPECT_TRUE(results[i] == results[0]) << "run " << i << ", mode " << mode;
                EXPECT_TRUE(backs[i] == backs[0]) << "inverse, run " << i << ", mode " << mode;
            }
        }
}

// Images whose last byte touches a protected page, and a caller buffer of
// exactly GetBufSize bytes against one, for sizes on both sides of the
// thread thresholds and one large enough to run on the threads.
TEST(Fft2d, StaysInsideImagesAndTheBuffer) {
    for (Domain domain : {Domain::Real, Domain::Complex, Domain::Integer})
        for (const Size2& s : {Size2{5, 3}, Size2{150, 142}, Size2{241, 250}, Size2{1050, 500}}) {
            rokt::WithThreads threads(3);
            Spec spec(Kind::Dft, domain, s.w, s.h, rokFftDivSqrt);
            for (Guard guard : {Guard::After, Guard::Before}) {
                GuardedBuffer buffer(std::size_t(spec.buffer_size()), guard);
                const auto& o = ops(Kind::Dft);
                if (domain == Domain::Real) {
                    GuardedImage<float> src(s.w, s.h, 3, 0, guard), dst(s.w, s.h, 3, 0, guard);
                    rokt::fill_random(src, 1);
                    EXPECT_EQ(o.fwd[C3](src.data(), src.step(), dst.data(), dst.step(), spec.get(), buffer.data()), 0);
                    EXPECT_EQ(o.inv[C3](dst.data(), dst.step(), src.data(), src.step(), spec.get(), buffer.data()), 0);
                } else if (domain == Domain::Complex) {
                    GuardedImage<Rok32fc> src(s.w, s.h, 1, 0, guard), dst(s.w, s.h, 1, 0, guard);
                    EXPECT_EQ(o.cfwd(src.data(), src.step(), dst.data(), dst.step(), spec.get(), buffer.data()), 0);
                    EXPECT_EQ(o.cinv(dst.data(), dst.step(), src.data(), src.step(), spec.get(), buffer.data()), 0);
                } else {
                    GuardedImage<Rok8u> src(s.w, s.h, 4, 0, guard), back(s.w, s.h, 4, 0, guard);
                    GuardedImage<Rok32s> dst(s.w, s.h, 4, 0, guard);
                    rokt::fill_random(src, 1);
                    EXPECT_EQ(o.intFwd[C4](src.data(), src.step(), dst.data(), dst.step(), 0, spec.get(), buffer.data()), 0);
                    EXPECT_EQ(o.intInv[C4](dst.data(), dst.step(), back.data(), back.step(), 0, spec.get(), buffer.data()),
                              0);
                }
            }
        }
}

}  // namespace
