// rokiResizeSqrPixel against the reference: every method, sample type and
// layout, edge modes, vector tails, exact 2:1 paths and thread counts.
#include <gtest/gtest.h>

#include <random>

#include "resize_harness.h"

namespace {

using rtest::Lay;
using rtest::ResizeRun;

constexpr int kMethods[] = {1, 2, 4, 5, 6, 7, 8, 16};

// A random call: small images, source rectangles that may reach past the
// image, shifted and scaled destinations that may be cut by dstRoi.
rref::Call random_call(std::mt19937& rng, int method) {
    auto uni = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    auto real = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    rref::Call c{};
    c.method = method;
    c.srcW = uni(1, 16), c.srcH = uni(1, 12);
    c.src = {uni(0, c.srcW - 1), uni(0, c.srcH - 1), uni(1, 18), uni(1, 14)};
    if (method == 8) {
        c.xf = real(0.15, 1.0), c.yf = real(0.15, 1.0);
        if (uni(0, 3) == 0) c.xf = 0.5, c.yf = uni(0, 1) ? 0.5 : 1.0 / 3;
    } else {
        c.xf = real(0.3, 3.0), c.yf = real(0.3, 3.0);
    }
    c.xs = real(-2, 4), c.ys = real(-2, 4);
    if (uni(0, 4) == 0) c.xs = std::round(c.xs), c.ys = std::round(c.ys);
    c.dst = {uni(0, 3), uni(0, 3), uni(1, 30), uni(1, 24)};
    return c;
}

template <class T>
void reference_cases(std::uint32_t seed, int cases) {
    std::mt19937 rng(seed);
    long long written = 0;
    for (int method : kMethods)
        for (Lay lay : rtest::kLayouts)
            for (int i = 0; i < cases; ++i) {
                rref::Call c = random_call(rng, method);
                const int mode = std::uniform_int_distribution<int>(0, 5)(rng);
                c.smooth = mode == 1, c.subpixel = mode == 2, c.antialias = mode == 3;
                ResizeRun<T> run(lay, c, i % 3, seed + i);
                const RokStatus st = run.run();
                const rref::Region r = rref::region(c);
                const std::string what = std::string(rtest::name_of(lay)) + " method " + std::to_string(method) +
                                         " mode " + std::to_string(mode) + " case " + std::to_string(i);
                ASSERT_EQ(st, r.status) << what;
                written += run.expect_reference(what);
                if (::testing::Test::HasFailure()) return;
            }
    EXPECT_GT(written, 1000);
}

TEST(ResizeSqrPixel, MatchesReference8u) { reference_cases<Rok8u>(11, 14); }
TEST(ResizeSqrPixel, MatchesReference16u) { reference_cases<Rok16u>(12, 10); }
TEST(ResizeSqrPixel, MatchesReference16s) { reference_cases<Rok16s>(13, 10); }
TEST(ResizeSqrPixel, MatchesReference32f) { reference_cases<Rok32f>(14, 12); }
TEST(ResizeSqrPixel, MatchesReference64f) { reference_cases<Rok64f>(15, 8); }

// Factor 1 and no shift: every interpolating method gives the source back
// bit for bit (the fractions are all 0); B-spline and method 7 smooth.
template <class T>
void identity() {
    for (int method : {1, 2, 4, 6, 8, 16})
        for (Lay lay : {Lay::C1, Lay::C3, Lay::AC4, Lay::P3}) {
            rref::Call c{};
            c.method = method, c.srcW = 13, c.srcH = 9, c.src = {0, 0, 13, 9}, c.dst = {0, 0, 13, 9};
            c.xf = c.yf = 1;
            ResizeRun<T> run(lay, c, 1, 5);
            ASSERT_EQ(run.run(), rokStatusOk);
            const int nc = rtest::samples_of(lay);
            for (int p = 0; p < rtest::planes_of(lay); ++p)
                for (int y = 0; y < 9; ++y)
                    for (int i = 0; i < 13 * nc; ++i) {
                        if (lay == Lay::AC4 && i % 4 == 3) continue;
                        ASSERT_EQ(run.dst(p).row(y)[i], run.src(p).row(y)[i])
                            << rtest::name_of(lay) << " method " << method << " at " << i << "," << y;
                    }
        }
}

TEST(ResizeSqrPixel, IdentityAtFactorOne) {
    identity<Rok8u>();
    identity<Rok16s>();
    identity<Rok32f>();
    identity<Rok64f>();
}

// Output widths across every vector tail, with steps that are odd in
// samples, for the one-channel and interleaved kernels of each type.
template <class T>
void widths() {
    struct Scale {
        double f, shift;
    };
    const Scale scales[] = {{1.5, 0.0}, {0.5, 0.0}, {0.77, 0.3}, {2.0, -1.25}};
    for (int method : {1, 2, 4, 8, 16})
        for (Lay lay : {Lay::C1, Lay::C3, Lay::C4, Lay::AC4})
            for (const Scale& s : scales) {
                if (method == 8 && s.f > 1) continue;
                for (int w = 1; w <= 70; ++w) {
                    rref::Call c{};
                    c.method = method, c.srcW = w, c.srcH = 6, c.src = {0, 0, w, 6};
                    c.xf = s.f, c.yf = method == 8 ? 0.5 : 1.0, c.xs = s.shift;
                    c.dst = {0, 0, int(w * s.f) + 2, 5};
                    ResizeRun<T> run(lay, c, w % 2, w);
                    const std::string what = std::string(rtest::name_of(lay)) + " method " + std::to_string(method) +
                                             " factor " + std::to_string(s.f) + " width " + std::to_string(w);
                    ASSERT_EQ(run.run(), rref::region(c).status) << what;
                    run.expect_reference(what);
                    if (::testing::Test::HasFailure()) return;
                }
            }
}

TEST(ResizeSqrPixel, EveryVectorTail8u) { widths<Rok8u>(); }
TEST(ResizeSqrPixel, EveryVectorTail16u) { widths<Rok16u>(); }
TEST(ResizeSqrPixel, EveryVectorTail16s) { widths<Rok16s>(); }
TEST(ResizeSqrPixel, EveryVectorTail32f) { widths<Rok32f>(); }

// 2:1 reductions on pixel boundaries take the 2x2 path inside the
// rectangle and the general one at its edges (a source rectangle that is
// cut, odd sizes, a shift of whole pixels that moves the edges out);
// nearest neighbour copies every second pixel.
template <class T>
void halves() {
    for (int method : {1, 2, 8})
        for (Lay lay : {Lay::C1, Lay::C3, Lay::C4, Lay::AC4, Lay::P3})
            for (int w = 1; w <= 70; w += (w < 40 ? 1 : 7))
                for (double shift : {0.0, 1.0, -2.0}) {
                    rref::Call c{};
                    c.method = method, c.srcW = w + 1, c.srcH = 7, c.src = {1, 0, w, 7};
                    c.xf = c.yf = 0.5, c.xs = shift, c.ys = shift;
                    c.dst = {0, 0, w / 2 + 3, 6};
                    ResizeRun<T> run(lay, c, 3, w);
                    const std::string what = std::string(rtest::name_of(lay)) + " method " + std::to_string(method) +
                                             " width " + std::to_string(w) + " shift " + std::to_string(shift);
                    ASSERT_EQ(run.run(), rref::region(c).status) << what;
                    run.expect_reference(what);
                    if (::testing::Test::HasFailure()) return;
                }
}

TEST(ResizeSqrPixel, ExactHalves) {
    halves<Rok8u>();
    halves<Rok16u>();
    halves<Rok16s>();
    halves<Rok32f>();
    halves<Rok64f>();
}

// Regions of at least 64 x 64 pixels are split among threads; every row is
// computed the same way in any band.
template <class T>
void thread_counts(Lay lay, int method, int flags) {
    rref::Call c{};
    c.method = method, c.srcW = 97, c.srcH = 83, c.src = {2, 1, 95, 80};
    c.xf = method == 8 ? 0.73 : 1.37, c.yf = method == 8 ? 0.81 : 1.21, c.xs = 0.4, c.ys = -0.7;
    c.dst = {1, 2, 140, 101};
    c.smooth = flags == 1, c.antialias = flags == 2;
    if (flags == 2) c.xf = 0.71;
    std::vector<std::uint8_t> first;
    for (int threads : {1, 2, 7}) {
        rokt::WithThreads with(threads);
        ResizeRun<T> run(lay, c, 1, 3);
        ASSERT_EQ(run.run(), rokStatusOk);
        std::vector<std::uint8_t> bytes;
        for (int p = 0; p < rtest::planes_of(lay); ++p) {
            auto b = run.dst(p).bytes();
            bytes.insert(bytes.end(), b.begin(), b.end());
        }
        if (threads == 1) {
            first = bytes;
            run.expect_reference(std::string(rtest::name_of(lay)) + " method " + std::to_string(method));
        } else {
            EXPECT_TRUE(bytes == first) << rtest::name_of(lay) << " method " << method << " flags " << flags << " at "
                                        << threads << " threads";
        }
    }
}

TEST(ResizeSqrPixel, ResultsDoNotDependOnThreadCount) {
    for (int method : kMethods) thread_counts<Rok8u>(Lay::C3, method, 0);
    thread_counts<Rok32f>(Lay::C1, 16, 0);
    thread_counts<Rok16u>(Lay::AC4, 4, 1);
    thread_counts<Rok8u>(Lay::P3, 2, 0);
    thread_counts<Rok64f>(Lay::C1, 8, 0);
    thread_counts<Rok8u>(Lay::C1, 6, 2);
    thread_counts<Rok8u>(Lay::C1, 2, 0);
}

}  // namespace
