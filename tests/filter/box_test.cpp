// Box filter and window sums against brute-force sums of each neighbourhood:
// integer means through the fixed-point reciprocal (its multipliers checked
// against a table worked out by hand), the double-precision engine to the
// nearest integer with halves up, float means within the rounding of the
// running sums, and window sums exactly rounded to single precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "core/core.h"
#include "guarded.h"
#include "random.h"
#include "reference.h"
#include "roki.h"
#include "threads.h"

namespace {

using rokt::GuardedImage;

// ---- reference ---------------------------------------------------------------------

struct Multiplier {
    long long mult;
    int shift;
};

// The fixed-point reciprocal as the rule states it.
Multiplier multiplier(long long area, bool oneChannel) {
    const float r = 1.0f / float(area);
    if (r == 1.0f) return oneChannel ? Multiplier{4096, 12} : Multiplier{65536, 24};
    std::uint32_t u = std::uint32_t(double(r) * 4294967295.0);
    int n = 0;
    for (; n < 24 && !(u & 0x80000000u); ++n) u <<= 1;
    return oneChannel ? Multiplier{(u >> 20) + 1, n + 12} : Multiplier{u >> 8, n + 24};
}

TEST(BoxFilter, MultipliersOfTheFixedPointMean) {
    struct Row {
        long long area;
        Multiplier c1, c4;
    };
    // Worked out from r = 1/area in single precision.
    const Row rows[] = {
        {1, {4096, 12}, {65536, 24}},     {2, {4096, 13}, {16777215, 25}},  {9, {3641, 15}, {14913080, 27}},
        {25, {2622, 16}, {10737417, 28}}, {49, {2675, 17}, {10956548, 29}}, {961, {2183, 21}, {8938536, 33}},
        {8100, {2072, 24}, {8483872, 36}},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(multiplier(r.area, true).mult, r.c1.mult) << r.area;
        EXPECT_EQ(multiplier(r.area, true).shift, r.c1.shift) << r.area;
        EXPECT_EQ(multiplier(r.area, false).mult, r.c4.mult) << r.area;
        EXPECT_EQ(multiplier(r.area, false).shift, r.c4.shift) << r.area;
    }
}

template <class T, class D>
struct Form {
    std::string name;
    int channels, processed;
    bool window;  // a SumWindow form (mask mw x 1 or 1 x mh)
    std::function<RokStatus(const T*, int, D*, int, RokiSize, RokiSize, RokiPoint)> fn;
};

struct Box {
    int w, h, mw, mh, ax, ay;
};

template <class T>
void fill_source(GuardedImage<T>& img, std::uint32_t seed) {
    if constexpr (std::is_floating_point_v<T>) {
        rokt::fill_random(img, seed);
    } else {
        rokt::fill_random(img, seed);
        std::mt19937 rng(seed + 5);
        for (int y = 0; y < img.height(); ++y)
            for (int i = 0; i < img.width() * img.channels(); ++i)
                if (rng() % 3 == 0) img.row(y)[i] = std::numeric_limits<T>::max();
    }
}

// The expected sample from the exact sum s (integer data) or the sum sd and
// the largest magnitude seen (float data).
template <class T, class D>
void expect_sample(D got, long long area, bool oneChannel, bool window, long long s, long double sd, long double big,
                   const char* where) {
    if (window) {
        const float want = std::is_integral_v<T> ? float(s) : float(sd);
        if constexpr (std::is_integral_v<T>) {
            EXPECT_EQ(got, want) << where;
        } else {
            EXPECT_NEAR(got, double(sd), 1e-6 * double(big) * double(area) + std::fabs(double(sd)) * 1e-6) << where;
        }
        return;
    }
    if constexpr (std::is_integral_v<D>) {
        long long q;
        if (area <= 8100) {
            const Multiplier m = multiplier(area, oneChannel);
            const __int128 p = __int128(m.mult) * s + (__int128(1) << (m.shift - 1));
            q = (long long)(p >= 0 ? p >> m.shift : -((-p + (__int128(1) << m.shift) - 1) >> m.shift));
        } else {
            // Nearest, halves up: floor((2s + area) / (2 area)).
            const long long num = 2 * s + area, den = 2 * area;
            q = num >= 0 ? num / den : -((-num + den - 1) / den);
        }
        EXPECT_EQ(got, rokt::ref::saturate<D>(q)) << where << " sum " << s;
    } else {
        const long double mean = sd / area;
        const double ulp = std::is_same_v<D, float> ? std::ldexp(1.0, std::ilogb(double(mean) + 1e-30) - 23) : 0.0;
        EXPECT_NEAR(double(got), double(mean), ulp + 1e-12 * double(big)) << where;
    }
}

// The image holds exactly the neighbourhood of the ROI (its last byte is the
// last one read, against a protected page with Guard::After).
template <class T, class D>
void check(const Form<T, D>& f, Box b, std::uint32_t seed, rokt::Guard guard = rokt::Guard::After, int pad = 1) {
    SCOPED_TRACE(testing::Message() << f.name << " roi " << b.w << "x" << b.h << " mask " << b.mw << "x" << b.mh
                                    << " anchor " << b.ax << "," << b.ay);
    GuardedImage<T> src(b.w + b.mw - 1, b.h + b.mh - 1, f.channels, pad, guard);
    fill_source(src, seed);
    GuardedImage<D> dst(b.w, b.h, f.channels, pad);
    dst.fill_bytes(0xA5);
    const auto canvas = dst.bytes();
    ASSERT_EQ(f.fn(&src.at(b.ax, b.ay), src.step(), dst.data(), dst.step(), {b.w, b.h}, {b.mw, b.mh}, {b.ax, b.ay}),
              rokStatusOk);
    const long long area = (long long)b.mw * b.mh;
    for (int y = 0; y < b.h; ++y)
        for (int x = 0; x < b.w; ++x)
            for (int c = 0; c < f.channels; ++c) {
                if (c >= f.processed) {
                    std::uint8_t before[sizeof(D)];
                    std::memcpy(before, canvas.data() + (std::size_t(y) * dst.step() + (std::size_t(x) * f.channels + c) * sizeof(D)), sizeof(D));
                    ASSERT_EQ(std::memcmp(&dst.at(x, y, c), before, sizeof(D)), 0) << "alpha written at " << x << "," << y;
                    continue;
                }
                long long s = 0;
                long double sd = 0, big = 0;
                for (int j = 0; j < b.mh; ++j)
                    for (int i = 0; i < b.mw; ++i) {
                        const T v = src.at(x + i, y + j, c);
                        if constexpr (std::is_integral_v<T>) s += v;
                        sd += v;
                        big = std::max(big, std::fabs((long double)v));
                    }
                const std::string where = std::to_string(x) + "," + std::to_string(y) + " ch " + std::to_string(c);
                expect_sample<T, D>(dst.at(x, y, c), area, f.channels == 1, f.window, s, sd, big, where.c_str());
                if (testing::Test::HasFailure()) return;
            }
}

#define BOX(fn) [](auto s, int ss, auto d, int ds, RokiSize r, RokiSize m, RokiPoint a) { return fn(s, ss, d, ds, r, m, a); }
#define ROWSUM(fn) [](auto s, int ss, auto d, int ds, RokiSize r, RokiSize m, RokiPoint a) { return fn(s, ss, d, ds, r, m.width, a.x); }
#define COLSUM(fn) [](auto s, int ss, auto d, int ds, RokiSize r, RokiSize m, RokiPoint a) { return fn(s, ss, d, ds, r, m.height, a.y); }

// Widths 1 to 70 (every tail), odd steps, both guard sides.
template <class T, class D>
void sweep(const Form<T, D>& f, int mw, int mh) {
    for (int w = 1; w <= 70; ++w)
        check(f, Box{w, 1 + w % 3, mw, mh, (w * 7) % mw, (w * 3) % mh}, unsigned(w),
              w % 2 ? rokt::Guard::After : rokt::Guard::Before, w % 3);
}

// Each engine: 16-bit lanes (8u, narrow windows), 8u rows first (window
// sums along the rows in 16 bits, column sums in 32), 32-bit sums added
// directly and through running prefixes of one, three and four channels, the
// double engine of large integer areas, float data.
TEST(BoxFilter, EveryEngineOverEveryTail) {
    sweep(Form<Rok8u, Rok8u>{"Box 8u C1", 1, 1, false, BOX(rokiFilterBox_8u_C1R)}, 3, 3);
    sweep(Form<Rok8u, Rok8u>{"Box 8u C4", 4, 4, false, BOX(rokiFilterBox_8u_C4R)}, 5, 5);
    sweep(Form<Rok8u, Rok8u>{"Box 8u C1 5x5", 1, 1, false, BOX(rokiFilterBox_8u_C1R)}, 5, 5);
    sweep(Form<Rok8u, Rok8u>{"Box 8u C1 11x11", 1, 1, false, BOX(rokiFilterBox_8u_C1R)}, 11, 11);
    sweep(Form<Rok8u, Rok8u>{"Box 8u C3 31x2", 3, 3, false, BOX(rokiFilterBox_8u_C3R)}, 31, 2);
    sweep(Form<Rok8u, Rok8u>{"Box 8u C1 20x15", 1, 1, false, BOX(rokiFilterBox_8u_C1R)}, 20, 15);
    sweep(Form<Rok8u, Rok8u>{"Box 8u C3 5x60", 3, 3, false, BOX(rokiFilterBox_8u_C3R)}, 5, 60);
    sweep(Form<Rok8u, Rok8u>{"Box 8u AC4 33x9", 4, 3, false, BOX(rokiFilterBox_8u_AC4R)}, 33, 9);
    sweep(Form<Rok16s, Rok16s>{"Box 16s C4 12x3", 4, 4, false, BOX(rokiFilterBox_16s_C4R)}, 12, 3);
    sweep(Form<Rok16u, Rok16u>{"Box 16u AC4 7x2", 4, 3, false, BOX(rokiFilterBox_16u_AC4R)}, 7, 2);
    sweep(Form<Rok16s, Rok16s>{"Box 16s C1 9x9", 1, 1, false, BOX(rokiFilterBox_16s_C1R)}, 9, 9);
    sweep(Form<Rok32f, Rok32f>{"Box 32f C1 13x2", 1, 1, false, BOX(rokiFilterBox_32f_C1R)}, 13, 2);
    sweep(Form<Rok32f, Rok32f>{"Box 32f C3 10x3", 3, 3, false, BOX(rokiFilterBox_32f_C3R)}, 10, 3);
    sweep(Form<Rok32f, Rok32f>{"Box 32f AC4 3x3", 4, 3, false, BOX(rokiFilterBox_32f_AC4R)}, 3, 3);
    sweep(Form<Rok64f, Rok64f>{"Box 64f C1 17x4", 1, 1, false, BOX(rokiFilterBox_64f_C1R)}, 17, 4);
}

// One-channel 8u rows of 32 samples and more, masks up to 56 wide, run split
// into even and odd samples: window sums from pairs of pixels, 16- or 32-bit
// column sums. Every mask width 1 to 56 (both ends of the window whole or
// in part) at widths that end on a block, one past it and just short of the
// next (the last block then overlaps); every width 32 to 70 for a few masks
// of each column-sum size; the widest split mask and the next, which is not.
TEST(BoxFilter, SplitRowsEveryWindow) {
    const Form<Rok8u, Rok8u> f{"Box 8u C1", 1, 1, false, BOX(rokiFilterBox_8u_C1R)};
    unsigned seed = 100;
    for (int mw = 1; mw <= 56; ++mw)
        for (int mh : {1, 7, 40})
            for (int w : {32, 33, 63, 64, 70}) {
                ++seed;
                check(f, Box{w, 2 + int(seed % 2), mw, mh, int(seed % unsigned(mw)), int(seed % unsigned(mh))}, seed,
                      seed % 2 ? rokt::Guard::After : rokt::Guard::Before, int(seed % 3));
            }
    for (int mw : {11, 17, 24, 31, 33})
        for (int w = 32; w <= 70; ++w)
            check(f, Box{w, 3, mw, mw, w % mw, (w * 5) % mw}, unsigned(w),
                  w % 2 ? rokt::Guard::After : rokt::Guard::Before, w % 3);
    // Rows of several blocks, each block's windows from two half windows of
    // its own and the next block's sums (masks of 24 and more), the last
    // blocks whole.
    for (int mw = 17; mw <= 56; ++mw)
        check(f, Box{161 + mw % 3, 2, mw, 3, mw / 2, 1}, unsigned(mw), mw % 2 ? rokt::Guard::After : rokt::Guard::Before,
              mw % 2);
    for (int mw : {56, 57})
        for (int w : {95, 96})
            check(f, Box{w, 4, mw, 7, mw - 1, 1}, 9, w % 2 ? rokt::Guard::After : rokt::Guard::Before, 1);
}

// Split rows at every shift their areas take, with 16-bit column sums (17
// to 20: areas 33 to 257, the mean two multiplies) and 32-bit ones (20 to
// 24: areas 258 to 8100): the source steps from about 0 to about 255 below
// the first box, so the means run over the whole range of bytes as the box
// passes the step (sums from a table of running sums of the source).
TEST(BoxFilter, SplitRowsTallMasksEveryShift) {
    for (const auto& [mw, mh] : std::vector<std::pair<int, int>>{{7, 7}, {11, 11}, {20, 7}, {16, 16}, {1, 257}, {43, 6},
                                                                 {56, 10}, {24, 40}, {31, 31}, {56, 144}, {1, 8100}}) {
        const int w = 33 + mw % 32, h = mh + 2, cols = w + mw - 1, rows = h + mh - 1;
        GuardedImage<Rok8u> src(cols, rows, 1, 0, rokt::Guard::After);
        std::vector<long long> run(std::size_t(cols + 1) * (rows + 1), 0);  // sums of src above and left
        auto at = [&](int x, int y) -> long long& { return run[std::size_t(y) * (cols + 1) + x]; };
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < cols; ++x) {
                src.at(x, y) = Rok8u(y < mh ? (x * 5 + y) % 3 : 255 - (x + y * 3) % 4);
                at(x + 1, y + 1) = src.at(x, y) + at(x, y + 1) + at(x + 1, y) - at(x, y);
            }
        GuardedImage<Rok8u> dst(w, h, 1, 0, rokt::Guard::After);
        ASSERT_EQ(rokiFilterBox_8u_C1R(src.data(), src.step(), dst.data(), dst.step(), {w, h}, {mw, mh}, {0, 0}),
                  rokStatusOk);
        const Multiplier m = multiplier((long long)mw * mh, true);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const long long sum = at(x + mw, y + mh) - at(x, y + mh) - at(x + mw, y) + at(x, y);
                ASSERT_EQ(dst.at(x, y), std::min(255ll, (m.mult * sum + (1ll << (m.shift - 1))) >> m.shift))
                    << "mask " << mw << "x" << mh << " at " << x << "," << y;
            }
    }
}

// Images past the core's cache take streaming stores for their means, the
// first and last block of each row stored normally over the aligned ones.
TEST(BoxFilter, LargeImages) {
    check(Form<Rok8u, Rok8u>{"Box 8u C3 3x3", 3, 3, false, BOX(rokiFilterBox_8u_C3R)}, Box{701, 700, 3, 3, 1, 1}, 32,
          rokt::Guard::Before, 1);
    // Means of four times the core's cache and more on rows off 32 bytes:
    // 16-bit sums put every row through an aligned row and copy it out
    // streamed.
    const std::size_t l2 = std::size_t(std::max(rok::core::l2_cache_bytes, 1 << 20));
    const int tall = int(4 * l2 / 2047) + 2;
    struct Large {
        const char* name;
        Box box;
        std::uint32_t seed;
        rokt::Guard guard;
        int pad;
    };
    const Large cases[] = {
        {"Box 8u C1 11x11", {1533, 1100, 11, 11, 4, 9}, 31, rokt::Guard::After, 3},
        // Rows of whole 32-byte blocks on 32-byte boundaries (no padding:
        // the buffer ends on a page), so the one-channel split rows stream
        // every block, with 16- and with 32-bit column sums.
        {"Box 8u C1 11x11", {1536, 700, 11, 11, 5, 5}, 33, rokt::Guard::After, 0},
        {"Box 8u C1 16x16", {1536, 700, 16, 16, 15, 0}, 34, rokt::Guard::Before, 0},
        // Rows off 32 bytes: 16-bit sums put their means through an aligned
        // row and copy them out streamed; 32-bit sums store them in place.
        {"Box 8u C1 15x15", {1535, 700, 15, 15, 0, 14}, 35, rokt::Guard::After, 2},
        {"Box 8u C1 16x16", {1535, 700, 16, 16, 15, 0}, 36, rokt::Guard::Before, 1},
        {"Box 8u C1 7x7", {2047, tall, 7, 7, 3, 6}, 37, rokt::Guard::After, 2},
        // Streaming only fills whole cache lines: rows on 32 bytes that end
        // inside a line store their means plainly (16- and 32-bit split
        // sums), and the column-sum engine streams rows of whole lines
        // without storing their first block twice.
        {"Box 8u C1 11x11", {1568, 700, 11, 11, 5, 5}, 38, rokt::Guard::After, 0},
        {"Box 8u C1 31x31", {1568, 600, 31, 31, 30, 0}, 39, rokt::Guard::Before, 0},
        {"Box 8u C1 61x3", {1536, 700, 61, 3, 60, 2}, 40, rokt::Guard::After, 0},
    };
    for (const Large& c : cases)
        check(Form<Rok8u, Rok8u>{c.name, 1, 1, false, BOX(rokiFilterBox_8u_C1R)}, c.box, c.seed, c.guard, c.pad);
}

TEST(BoxFilter, LargeAreasTakeTheDoubleEngine) {
    for (int w : {1, 9, 33}) {
        check(Form<Rok8u, Rok8u>{"Box 8u C1 91x90", 1, 1, false, BOX(rokiFilterBox_8u_C1R)}, Box{w, 1, 91, 90, 45, 3}, 7);
        check(Form<Rok16s, Rok16s>{"Box 16s C3 8101x1", 3, 3, false, BOX(rokiFilterBox_16s_C3R)}, Box{w, 2, 8101, 1, 8100, 0}, 8);
        check(Form<Rok16u, Rok16u>{"Box 16u C1 90x90", 1, 1, false, BOX(rokiFilterBox_16u_C1R)}, Box{w, 1, 90, 90, 0, 89}, 9);
    }
}

// A 90x90 box (area 8100) keeps the fixed point, a 91x90 one (8190) rounds
// exactly: sums of 4049 and 12283 tell them apart.
TEST(BoxFilter, EngineByArea) {
    auto one = [](int mw, int mh, int sum) {
        GuardedImage<Rok8u> src(mw, mh, 1);
        src.fill_bytes(0);
        for (int i = 0; sum > 0; ++i, sum -= 255) src.at(i % mw, i / mw) = Rok8u(std::min(sum, 255));
        Rok8u got = 77;
        EXPECT_EQ(rokiFilterBox_8u_C1R(src.data(), src.step(), &got, 1, {1, 1}, {mw, mh}, {0, 0}), rokStatusOk);
        return int(got);
    };
    EXPECT_EQ(one(90, 90, 4049), 1);   // (2072 * 4049 + 2^23) >> 24; the exact mean is 0.49988
    EXPECT_EQ(one(91, 90, 12283), 1);  // 1.49975 to nearest; the fixed point would give 2
    EXPECT_EQ(one(3, 3, 4), 0);
    EXPECT_EQ(one(3, 3, 5), 1);
}

// A 1x1 box: the source itself on one channel; (s + 128) >> 8 on the
// others, as their multiplier 65536 with shift 24 gives.
// Every window sum an 8u row box of 1 to 257 pixels can take, at every
// vector position: the source rises by one every `w` pixels, so consecutive
// windows sum to consecutive integers up to 255 w. Areas of 32 and more
// take the mean from the high half of a 16-bit product, most smaller ones
// from one rounding multiply; any slip at a rounding boundary of the fixed
// point shows here.
TEST(BoxFilter, EverySumOfNarrowAreas) {
    std::vector<Rok8u> src, dst;
    for (int w = 1; w <= 257; ++w) {
        const int n = 255 * w + 1;
        src.assign(std::size_t(n) + w - 1, 0);
        for (std::size_t i = 0; i < src.size(); ++i) src[i] = Rok8u(std::min<std::size_t>(i / std::size_t(w), 255));
        dst.assign(std::size_t(n), 0);
        ASSERT_EQ(rokiFilterBox_8u_C1R(src.data(), int(src.size()), dst.data(), n, {n, 1}, {w, 1}, {0, 0}), rokStatusOk);
        const Multiplier m = multiplier(w, true);
        for (int x = 0; x < n; ++x) {
            const long long sum = x;  // the windows' sums, by construction
            const long long want = std::min(255ll, (m.mult * sum + (1ll << (m.shift - 1))) >> m.shift);
            ASSERT_EQ(dst[std::size_t(x)], want) << "width " << w << " sum " << sum;
        }
    }
}

TEST(BoxFilter, OneByOne) {
    GuardedImage<Rok8u> src(40, 2, 3);
    rokt::fill_random(src, 3);
    GuardedImage<Rok8u> c1(120, 2, 1), c3(40, 2, 3);
    ASSERT_EQ(rokiFilterBox_8u_C1R(src.data(), src.step(), c1.data(), c1.step(), {120, 2}, {1, 1}, {0, 0}), rokStatusOk);
    ASSERT_EQ(rokiFilterBox_8u_C3R(src.data(), src.step(), c3.data(), c3.step(), {40, 2}, {1, 1}, {0, 0}), rokStatusOk);
    for (int y = 0; y < 2; ++y)
        for (int i = 0; i < 120; ++i) {
            EXPECT_EQ(c1.row(y)[i], src.row(y)[i]);
            EXPECT_EQ(c3.row(y)[i], (src.row(y)[i] + 128) >> 8);
        }
}

// Every member once, with its own mask and anchor.
TEST(BoxFilter, EveryMember) {
#define EACH4(T, S)                                                                                              \
    check(Form<S, S>{"Box " #T " C1", 1, 1, false, BOX(rokiFilterBox_##T##_C1R)}, Box{37, 3, 4, 3, 3, 0}, 11);   \
    check(Form<S, S>{"Box " #T " C3", 3, 3, false, BOX(rokiFilterBox_##T##_C3R)}, Box{21, 2, 3, 5, 1, 4}, 12);   \
    check(Form<S, S>{"Box " #T " C4", 4, 4, false, BOX(rokiFilterBox_##T##_C4R)}, Box{19, 3, 9, 2, 8, 1}, 13);   \
    check(Form<S, S>{"Box " #T " AC4", 4, 3, false, BOX(rokiFilterBox_##T##_AC4R)}, Box{23, 2, 2, 2, 0, 1}, 14)
    EACH4(8u, Rok8u);
    EACH4(16s, Rok16s);
    EACH4(16u, Rok16u);
    EACH4(32f, Rok32f);
#undef EACH4
    check(Form<Rok64f, Rok64f>{"Box 64f C1", 1, 1, false, BOX(rokiFilterBox_64f_C1R)}, Box{41, 3, 5, 5, 2, 2}, 15);
}

// ---- in place ----------------------------------------------------------------------

// The IR form, and the R form given the same pointer twice (whatever the
// source step says), equal the out-of-place result; anchors at every corner.
// Outside the ROI, and in the alpha samples of AC4, nothing changes.
template <class T>
void in_place(RokStatus (*r)(const T*, int, T*, int, RokiSize, RokiSize, RokiPoint),
              RokStatus (*ir)(T*, int, RokiSize, RokiSize, RokiPoint), int nc, int processed) {
    for (RokiSize mask : {RokiSize{4, 3}, RokiSize{2, 21}, RokiSize{33, 9}})
    for (RokiPoint a : {RokiPoint{0, 0}, RokiPoint{mask.width - 1, 0}, RokiPoint{0, mask.height - 1},
                        RokiPoint{mask.width - 1, mask.height - 1}, RokiPoint{1, 1}}) {
        SCOPED_TRACE(testing::Message() << "mask " << mask.width << "x" << mask.height << " anchor " << a.x << "," << a.y);
        const int w = 45, h = 17;
        GuardedImage<T> img(w + mask.width - 1, h + mask.height - 1, nc, 2);
        fill_source(img, unsigned(a.x * 7 + a.y));
        const auto original = img.bytes();
        GuardedImage<T> want(w, h, nc, 2);
        T* roi = &img.at(a.x, a.y);
        ASSERT_EQ(r(roi, img.step(), want.data(), want.step(), {w, h}, mask, a), rokStatusOk);
        GuardedImage<T> copy(w + mask.width - 1, h + mask.height - 1, nc, 2);
        std::memcpy(copy.data(), img.data(), original.size());
        ASSERT_EQ(ir(roi, img.step(), {w, h}, mask, a), rokStatusOk);
        T* roi2 = &copy.at(a.x, a.y);
        ASSERT_EQ(r(roi2, 1, roi2, copy.step(), {w, h}, mask, a), rokStatusOk);
        auto before = [&](int x, int y, int c) {
            T v;
            std::memcpy(&v, original.data() + std::size_t(y) * img.step() + (std::size_t(x) * nc + c) * sizeof(T), sizeof(T));
            return v;
        };
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < img.width(); ++x)
                for (int c = 0; c < nc; ++c) {
                    const bool inside = y >= a.y && y < a.y + h && x >= a.x && x < a.x + w && c < processed;
                    const T expected = inside ? want.at(x - a.x, y - a.y, c) : before(x, y, c);
                    ASSERT_EQ(img.at(x, y, c), expected) << "IR at " << x << "," << y << " ch " << c;
                    ASSERT_EQ(copy.at(x, y, c), expected) << "R in place at " << x << "," << y << " ch " << c;
                }
    }
}

TEST(BoxFilter, InPlaceEqualsOutOfPlace) {
    in_place<Rok8u>(rokiFilterBox_8u_C1R, rokiFilterBox_8u_C1IR, 1, 1);
    in_place<Rok16s>(rokiFilterBox_16s_C3R, rokiFilterBox_16s_C3IR, 3, 3);
    in_place<Rok16u>(rokiFilterBox_16u_AC4R, rokiFilterBox_16u_AC4IR, 4, 3);
    in_place<Rok32f>(rokiFilterBox_32f_C4R, rokiFilterBox_32f_C4IR, 4, 4);
    in_place<Rok8u>(rokiFilterBox_8u_AC4R, rokiFilterBox_8u_AC4IR, 4, 3);
}

TEST(BoxFilter, SameResultsAtOneAndTwoThreads) {
    auto run = [](auto tag, int threads, RokiSize mask, int nc = 3) {
        using T = decltype(tag);
        GuardedImage<T> src(300 + mask.width - 1, 150 + mask.height - 1, nc);
        fill_source(src, 4);
        GuardedImage<T> dst(300, 150, nc);
        rokt::WithThreads with(threads);
        RokStatus s;
        if constexpr (std::is_same_v<T, Rok8u>)
            s = (nc == 1 ? rokiFilterBox_8u_C1R : rokiFilterBox_8u_C3R)(src.data(), src.step(), dst.data(), dst.step(),
                                                                        {300, 150}, mask, {0, 0});
        else
            s = rokiFilterBox_32f_C3R(src.data(), src.step(), dst.data(), dst.step(), {300, 150}, mask, {0, 0});
        EXPECT_EQ(s, rokStatusOk);
        return dst.bytes();
    };
    EXPECT_EQ(run(Rok8u{}, 1, {11, 11}), run(Rok8u{}, 2, {11, 11}));
    EXPECT_EQ(run(Rok8u{}, 1, {31, 31}), run(Rok8u{}, 2, {31, 31}));
    EXPECT_EQ(run(Rok8u{}, 1, {3, 3}, 1), run(Rok8u{}, 2, {3, 3}, 1));
    EXPECT_EQ(run(Rok8u{}, 1, {11, 11}, 1), run(Rok8u{}, 2, {11, 11}, 1));
    EXPECT_EQ(run(Rok8u{}, 1, {31, 31}, 1), run(Rok8u{}, 2, {31, 31}, 1));
    EXPECT_EQ(run(Rok32f{}, 1, {7, 9}), run(Rok32f{}, 2, {7, 9}));
}

TEST(BoxFilter, ChecksInOrderWriteNothing) {
    GuardedImage<Rok8u> img(20, 10, 1);
    img.fill_bytes(9);
    const auto before = img.bytes();
    Rok8u* p = img.data();
    const int st = img.step();
    const RokStatus got[][2] = {
        {rokStatusNullPtr, rokiFilterBox_8u_C1R(nullptr, 0, p, 0, {0, 0}, {0, 0}, {-1, -1})},
        {rokStatusNullPtr, rokiFilterBox_8u_C1IR(nullptr, 0, {0, 0}, {0, 0}, {-1, -1})},
        {rokStatusBadStep, rokiFilterBox_8u_C1R(p, 0, p + 1, st, {0, 0}, {0, 0}, {-1, -1})},  // step before size
        {rokStatusBadStep, rokiFilterBox_8u_C1IR(p, -1, {0, 0}, {3, 3}, {1, 1})},
        {rokStatusBadSize, rokiFilterBox_8u_C1R(p, st, p + 1, st, {0, 3}, {0, 0}, {-1, -1})},
        {rokStatusBadMaskSize, rokiFilterBox_8u_C1R(p, st, p + 1, st, {3, 3}, {0, 3}, {-1, -1})},
        {rokStatusBadAnchor, rokiFilterBox_8u_C1R(p, st, p + 1, st, {3, 3}, {3, 3}, {3, 0})},
        {rokStatusBadAnchor, rokiFilterBox_8u_C1IR(p, st, {3, 3}, {3, 3}, {0, -1})},
    };
    for (std::size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i][1], got[i][0]) << "check " << i;
    EXPECT_EQ(img.bytes(), before);
}

// ---- window sums -------------------------------------------------------------------

TEST(WindowSums, RowsAndColumns) {
    for (int len : {1, 3, 8, 9, 40}) {
        const int a = len / 3;
        check(Form<Rok8u, Rok32f>{"SumWindowRow 8u32f C1", 1, 1, true, ROWSUM(rokiSumWindowRow_8u32f_C1R)},
              Box{67, 2, len, 1, a, 0}, unsigned(len));
        check(Form<Rok16u, Rok32f>{"SumWindowRow 16u32f C3", 3, 3, true, ROWSUM(rokiSumWindowRow_16u32f_C3R)},
              Box{29, 2, len, 1, a, 0}, unsigned(len));
        check(Form<Rok16s, Rok32f>{"SumWindowRow 16s32f C4", 4, 4, true, ROWSUM(rokiSumWindowRow_16s32f_C4R)},
              Box{31, 2, len, 1, len - 1, 0}, unsigned(len));
        check(Form<Rok8u, Rok32f>{"SumWindowColumn 8u32f C3", 3, 3, true, COLSUM(rokiSumWindowColumn_8u32f_C3R)},
              Box{33, 3, 1, len, 0, a}, unsigned(len));
        check(Form<Rok16u, Rok32f>{"SumWindowColumn 16u32f C1", 1, 1, true, COLSUM(rokiSumWindowColumn_16u32f_C1R)},
              Box{41, 2, 1, len, 0, len - 1}, unsigned(len));
        check(Form<Rok16s, Rok32f>{"SumWindowColumn 16s32f C4", 4, 4, true, COLSUM(rokiSumWindowColumn_16s32f_C4R)},
              Box{17, 2, 1, len, 0, 0}, unsigned(len));
    }
    for (int w = 1; w <= 70; w += 3)
        check(Form<Rok8u, Rok32f>{"SumWindowRow 8u32f C4", 4, 4, true, ROWSUM(rokiSumWindowRow_8u32f_C4R)},
              Box{w, 1, 12, 1, 5, 0}, unsigned(w), w % 2 ? rokt::Guard::After : rokt::Guard::Before, w % 4);
}

// Sums beyond 2^24 round once to single precision; beyond 2^31 they are
// kept in double precision.
TEST(WindowSums, LargeSumsRoundOnce) {
    const int len = 40000;
    GuardedImage<Rok16u> src(len + 2, 1, 1);
    src.fill_bytes(0xFF);  // 65535 everywhere
    src.at(0, 0) = 1;
    Rok32f dst[3];
    ASSERT_EQ(rokiSumWindowRow_16u32f_C1R(src.data(), src.step(), dst, 12, {3, 1}, len, 0), rokStatusOk);
    const double full = 65535.0 * len;
    EXPECT_EQ(dst[0], float(full - 65534.0));
    EXPECT_EQ(dst[1], float(full));
    GuardedImage<Rok16u> tall(1, 300, 1);
    tall.fill_bytes(0xFF);
    Rok32f column = 0;
    ASSERT_EQ(rokiSumWindowColumn_16u32f_C1R(tall.data(), tall.step(), &column, 4, {1, 1}, 300, 0), rokStatusOk);
    EXPECT_EQ(column, float(65535.0 * 300));  // 19660500 rounds to 19660500 (a multiple of 4)
}

TEST(WindowSums, ChecksInOrder) {
    GuardedImage<Rok8u> src(10, 4, 1);
    GuardedImage<Rok32f> dst(8, 4, 1);
    dst.fill_bytes(0x11);
    const auto before = dst.bytes();
    const Rok8u* s = src.data();
    Rok32f* d = dst.data();
    const RokStatus got[][2] = {
        {rokStatusNullPtr, rokiSumWindowRow_8u32f_C1R(nullptr, 0, d, 0, {0, 0}, 0, -1)},
        {rokStatusBadMaskSize, rokiSumWindowRow_8u32f_C1R(s, 0, d, 0, {0, 0}, 0, -1)},
        {rokStatusBadAnchor, rokiSumWindowRow_8u32f_C1R(s, 0, d, 0, {0, 0}, 3, 3)},
        {rokStatusBadAnchor, rokiSumWindowColumn_8u32f_C1R(s, 0, d, 0, {0, 0}, 3, -1)},
        {rokStatusOk, rokiSumWindowRow_8u32f_C1R(s, 0, d, 0, {0, 0}, 3, 1)},  // height 0: success
        {rokStatusOk, rokiSumWindowColumn_16u32f_C3R(reinterpret_cast<const Rok16u*>(s), -5, d, 0, {4, -2}, 3, 1)},
        {rokStatusBadSize, rokiSumWindowRow_8u32f_C1R(s, 0, d, 0, {0, 2}, 3, 1)},
        {rokStatusBadStep, rokiSumWindowRow_8u32f_C1R(s, 0, d, 32, {4, 2}, 3, 1)},
        {rokStatusBadStep, rokiSumWindowColumn_8u32f_C1R(s, 10, d, -32, {4, 2}, 3, 1)},
    };
    for (std::size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i][1], got[i][0]) << "check " << i;
    EXPECT_EQ(dst.bytes(), before);
}

}  // namespace
