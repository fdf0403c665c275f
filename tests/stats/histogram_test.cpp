// Histograms of every type and layout against direct counting, the even
// levels, the method boundaries of the 16-bit members (seen through the
// allocation that only the table method makes), and the order of the checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
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
#include "threads.h"
#include "stats/histogram.h"

namespace {

using rokt::GuardedImage;

template <class T>
using HL = std::conditional_t<std::is_same_v<T, Rok32f>, Rok32f, Rok32s>;

template <class T>
struct RangeMember {
    std::string name;
    int nc, outs;
    std::function<RokStatus(const T*, int, RokiSize, Rok32s* const*, const HL<T>* const*, const int*)> fn;
};

template <class T>
struct EvenMember {
    std::string name;
    int nc, outs;
    std::function<RokStatus(const T*, int, RokiSize, Rok32s* const*, Rok32s* const*, const int*, const Rok32s*,
                            const Rok32s*)>
        fn;
};

#define ROK_RANGE(t, T)                                                                                          \
    {"HistogramRange_" #t "_C1R", 1, 1,                                                                          \
     [](const T* s, int ss, RokiSize r, Rok32s* const* h, const HL<T>* const* l, const int* n) {                 \
         return rokiHistogramRange_##t##_C1R(s, ss, r, h[0], l[0], n[0]);                                        \
     }},                                                                                                         \
        {"HistogramRange_" #t "_C3R", 3, 3, rokiHistogramRange_##t##_C3R},                                       \
        {"HistogramRange_" #t "_C4R", 4, 4, rokiHistogramRange_##t##_C4R},                                       \
        {"HistogramRange_" #t "_AC4R", 4, 3, rokiHistogramRange_##t##_AC4R}
#define ROK_EVEN(t, T)                                                                                            \
    {"HistogramEven_" #t "_C1R", 1, 1,                                                                            \
     [](const T* s, int ss, RokiSize r, Rok32s* const* h, Rok32s* const* l, const int* n, const Rok32s* lo,       \
        const Rok32s* hi) { return rokiHistogramEven_##t##_C1R(s, ss, r, h[0], l[0], n[0], lo[0], hi[0]); }},     \
        {"HistogramEven_" #t "_C3R", 3, 3, rokiHistogramEven_##t##_C3R},                                          \
        {"HistogramEven_" #t "_C4R", 4, 4, rokiHistogramEven_##t##_C4R},                                          \
        {"HistogramEven_" #t "_AC4R", 4, 3, rokiHistogramEven_##t##_AC4R}

template <class T>
std::vector<RangeMember<T>> ranges();
template <>
std::vector<RangeMember<Rok8u>> ranges() { return {ROK_RANGE(8u, Rok8u)}; }
template <>
std::vector<RangeMember<Rok16s>> ranges() { return {ROK_RANGE(16s, Rok16s)}; }
template <>
std::vector<RangeMember<Rok16u>> ranges() { return {ROK_RANGE(16u, Rok16u)}; }
template <>
std::vector<RangeMember<Rok32f>> ranges() { return {ROK_RANGE(32f, Rok32f)}; }
template <class T>
std::vector<EvenMember<T>> evens();
template <>
std::vector<EvenMember<Rok8u>> evens() { return {ROK_EVEN(8u, Rok8u)}; }
template <>
std::vector<EvenMember<Rok16s>> evens() { return {ROK_EVEN(16s, Rok16s)}; }
template <>
std::vector<EvenMember<Rok16u>> evens() { return {ROK_EVEN(16u, Rok16u)}; }
#undef ROK_RANGE
#undef ROK_EVEN

// Bin k counts the samples of channel c with levels[k] <= x < levels[k + 1].
template <class T, class V>
std::vector<Rok32s> direct_counts(const GuardedImage<T>& img, int c, const std::vector<V>& levels) {
    std::vector<Rok32s> bins(levels.size() - 1, 0);
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x) {
            const T v = img.at(x, y, c);
            for (std::size_t k = 0; k + 1 < levels.size(); ++k) bins[k] += levels[k] <= v && v < levels[k + 1];
        }
    return bins;
}

enum class Order { Increasing, Unordered, Decreasing, Plateaus };

template <class T>
std::vector<HL<T>> random_levels(std::mt19937& rng, int n, Order order) {
    std::vector<HL<T>> l;
    if constexpr (std::is_same_v<T, Rok32f>) {
        std::uniform_real_distribution<float> d(-1100.0f, 1100.0f);
        for (int i = 0; i < n; ++i) l.push_back(d(rng));
    } else {
        const std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
        std::uniform_int_distribution<std::int64_t> d(lo - (hi - lo) / 16, hi + (hi - lo) / 16);
        for (int i = 0; i < n; ++i) l.push_back(HL<T>(d(rng)));
    }
    if (order == Order::Increasing || order == Order::Plateaus) {
        std::sort(l.begin(), l.end());
        l.erase(std::unique(l.begin(), l.end()), l.end());
        while (int(l.size()) < n) l.push_back(l.back() + 1);  // distinct: strictly increasing
        if (order == Order::Plateaus)
            for (int i = 2; i < n; i += 3) l[std::size_t(i)] = l[std::size_t(i - 1)];
    } else if (order == Order::Decreasing) {
        std::sort(l.rbegin(), l.rend());
    }
    return l;
}

// Some samples equal to levels, so the half-open rule is tested; NaN in float.
template <class T, class V>
void seed_level_values(GuardedImage<T>& img, const std::vector<V>& levels, std::mt19937& rng) {
    for (int y = 0; y < img.height(); ++y)
        for (int i = 0; i < img.width() * img.channels(); i += 3) {
            const V l = levels[rng() % levels.size()];
            if (l >= std::numeric_limits<T>::lowest() && l <= std::numeric_limits<T>::max()) img.row(y)[i] = T(l);
        }
    if constexpr (std::is_same_v<T, Rok32f>) img.at(0, 0, 0) = std::nanf("");
}

constexpr Rok32s kSentinel = 0x5EED;

template <class T>
void check_range(const RangeMember<T>& m, int w, int h, const std::vector<std::vector<HL<T>>>& levels, std::uint32_t seed) {
    std::mt19937 rng(seed);
    GuardedImage<T> img(w, h, m.nc, w % 2, seed % 2 ? rokt::Guard::After : rokt::Guard::Before);
    rokt::fill_random(img, seed);
    if constexpr (std::is_same_v<T, Rok32f>) {
        for (int y = 0; y < h; ++y)
            for (int i = 0; i < w * m.nc; ++i) img.row(y)[i] = std::uniform_real_distribution<float>(-1200, 1200)(rng);
    }
    seed_level_values(img, levels[0], rng);
    std::vector<std::vector<Rok32s>> hist(4);
    Rok32s* hp[4];
    const HL<T>* lp[4];
    int n[4];
    for (int c = 0; c < m.outs; ++c) {
        hist[std::size_t(c)].assign(levels[std::size_t(c)].size(), kSentinel);  // one slot past the last bin
        hp[c] = hist[std::size_t(c)].data();
        lp[c] = levels[std::size_t(c)].data();
        n[c] = int(levels[std::size_t(c)].size());
    }
    ASSERT_EQ(m.fn(img.data(), img.step(), {w, h}, hp, lp, n), rokStatusOk) << m.name;
    for (int c = 0; c < m.outs; ++c) {
        std::vector<Rok32s> want = direct_counts(img, c, levels[std::size_t(c)]);
        want.push_back(kSentinel);
        ASSERT_EQ(hist[std::size_t(c)], want) << m.name << " " << w << "x" << h << " channel " << c << " levels "
                                              << n[c];
    }
}

template <class T>
class Histogram : public ::testing::Test {};
using Types = ::testing::Types<Rok8u, Rok16s, Rok16u, Rok32f>;
TYPED_TEST_SUITE(Histogram, Types);

// Level counts on both sides of the float and 16-bit search switches (102,
// 170), every order of levels, widths that end vector blocks early and late.
TYPED_TEST(Histogram, RangeMatchesDirectCounts) {
    using T = TypeParam;
    std::mt19937 rng(11);
    for (const auto& m : ranges<T>())
        for (Order order : {Order::Increasing, Order::Unordered, Order::Decreasing, Order::Plateaus})
            for (int n : {2, 3, 9, 17, 102, 103, 171, 257}) {
                std::vector<std::vector<HL<T>>> levels;
                for (int c = 0; c < 4; ++c) levels.push_back(random_levels<T>(rng, c == 1 ? 5 : n, order));
                for (int w : {1, 7, 33, 70}) check_range(m, w, n > 100 ? 2 : 3, levels, rng());
                if (::testing::Test::HasFatalFailure()) return;
            }
}

// The 8-bit one-channel path that counts against level ends with vector
// compares, over every row length up to 100 and a packed image.
TEST(Histogram, FewLevels8uEveryWidth) {
    const auto m = ranges<Rok8u>()[0];
    const std::vector<std::vector<Rok32s>> sets = {
        {0, 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176, 192, 208, 224, 240, 256},
        {-5, 1, 2, 255, 300},
        {200, 100, 150, 150, 255, 1},
        {3, 3},
    };
    for (const auto& levels : sets)
        for (int w = 1; w <= 100; ++w) check_range(m, w, 2, {levels}, std::uint32_t(w));
    std::vector<Rok32s> many;  // more distinct ends than the compare path takes
    for (int v = -1; v <= 257; v += 13) many.push_back(v);
    check_range(m, 40, 3, {many}, 5);
    // Rows without padding run as one; a bright image fills every byte
    // counter, so one held past 255 registers would wrap.
    GuardedImage<Rok8u> packed(300, 40, 1);
    for (int fill : {-1, 255}) {
        if (fill < 0) rokt::fill_random(packed, 3);
        else packed.fill_bytes(Rok8u(fill));
        Rok32s hist[16];
        ASSERT_EQ(rokiHistogramRange_8u_C1R(packed.data(), packed.step(), {300, 40}, hist, sets[0].data(), 17),
                  rokStatusOk);
        EXPECT_EQ(std::vector<Rok32s>(hist, hist + 16), direct_counts(packed, 0, sets[0])) << fill;
    }
}

// The 256-bin counts of every 8-bit layout on images below and above the
// sizes at which rows are shared among threads and one-channel images are
// counted in pairs, at 1, 2 and 7 threads, with random, smooth (a ramp plus
// small noise), flat and run-length (runs of 1 to 80 equal samples)
// contents, odd steps and guards on both sides. The reference counts each
// value directly.
TEST(Histogram, Counts8uLargeImages) {
    std::vector<Rok32s> levels;
    for (int v = 0; v <= 256; ++v) levels.push_back(v);
    struct Size {
        int w, h;
    };
    for (const auto& m : ranges<Rok8u>())
        for (Size size : {Size{301, 7}, Size{517, 181}, Size{511, 256}, Size{512, 256}, Size{1031, 260}})
            for (int content = 0; content < 4; ++content) {
                const int w = size.w, h = size.h;
                GuardedImage<Rok8u> img(w, h, m.nc, w % 2 + content,
                                        content == 1 ? rokt::Guard::Before : rokt::Guard::After);
                std::mt19937 rng(std::uint32_t(w * 3 + content));
                int run = 0;
                Rok8u runValue = 0;
                for (int y = 0; y < h; ++y)
                    for (int i = 0; i < w * m.nc; ++i) {
                        const int ramp = (i / m.nc + y) * 255 / (w + h) + int(rng() % 5) - 2;
                        if (run-- == 0) run = int(rng() % 80), runValue = Rok8u(rng());
                        img.row(y)[i] = content == 0   ? Rok8u(rng())
                                        : content == 1 ? Rok8u(std::clamp(ramp, 0, 255))
                                        : content == 2 ? Rok8u(200)
                                                       : runValue;
                    }
                std::vector<std::vector<Rok32s>> want(std::size_t(m.outs), std::vector<Rok32s>(257, 0));
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        for (int c = 0; c < m.outs; ++c) ++want[std::size_t(c)][img.at(x, y, c)];
                for (auto& wc : want) wc[256] = kSentinel;  // one slot past the last bin
                for (int threads : {1, 2, 7}) {
                    rokt::WithThreads team(threads);
                    std::vector<std::vector<Rok32s>> hist(std::size_t(m.outs), std::vector<Rok32s>(257, kSentinel));
                    Rok32s* hp[4];
                    const Rok32s* lp[4];
                    int n[4];
                    for (int c = 0; c < m.outs; ++c) {
                        hp[c] = hist[std::size_t(c)].data();
                        lp[c] = levels.data();
                        n[c] = 257;
                    }
                    ASSERT_EQ(m.fn(img.data(), img.step(), {w, h}, hp, lp, n), rokStatusOk) << m.name;
                    ASSERT_EQ(hist, want) << m.name << " " << w << "x" << h << " content " << content << " threads "
                                          << threads;
                }
            }
}

// Large one-channel images count adjacent samples as pairs in 16-bit
// counters, six pairs then four single samples in every 16. One pair of
// values recurring twice in each 16 samples, three pairs apart (so that it
// is not taken for a flat area), 65,535, 65,536 and 65,537 times fills,
// wraps and passes its counter. Pairs of two values and of one value twice,
// packed rows and padded ones, and all-random rows of odd width whose blocks
// end off the group grid.
TEST(Histogram, Counts8uPairCounterWrap) {
    std::vector<Rok32s> levels;
    for (int v = 0; v <= 256; ++v) levels.push_back(v);
    const int w = 4096, h = 128;  // 512 recurrences per row, 65,536 in all
    struct Case {
        Rok8u a, b;
        int delta, pad;
    };
    for (Case k : {Case{7, 201, -1, 0}, Case{7, 201, 0, 0}, Case{7, 201, 1, 3}, Case{90, 90, 0, 5}, Case{90, 90, 1, 0},
                   Case{250, 3, -1, 1}}) {
        GuardedImage<Rok8u> img(w, h, 1, k.pad);
        std::mt19937 rng(std::uint32_t(k.a + k.b + k.delta + 7));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; x += 2) {
                const bool recur = x % 16 == 0 || x % 16 == 6;
                img.at(x, y) = recur ? k.a : Rok8u(rng());
                img.at(x + 1, y) = recur ? k.b : Rok8u(rng());
            }
        if (k.delta < 0) img.at(0, 0) = Rok8u(k.a + 1);           // one recurrence fewer
        if (k.delta > 0) img.at(2, 0) = k.a, img.at(3, 0) = k.b;  // one more, in the first group
        std::vector<Rok32s> want(257, 0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) ++want[img.at(x, y)];
        want[256] = kSentinel;
        for (int threads : {1, 2}) {
            rokt::WithThreads team(threads);
            std::vector<Rok32s> hist(257, kSentinel);
            ASSERT_EQ(rokiHistogramRange_8u_C1R(img.data(), img.step(), {w, h}, hist.data(), levels.data(), 257),
                      rokStatusOk);
            ASSERT_EQ(hist, want) << int(k.a) << "," << int(k.b) << " " << k.delta << " pad " << k.pad << " threads "
                                  << threads;
        }
    }
    for (int w2 : {1021, 4099, 8197}) {
        GuardedImage<Rok8u> img(w2, 200, 1, w2 % 4, rokt::Guard::Before);
        rokt::fill_random(img, std::uint32_t(w2));
        std::vector<Rok32s> want(257, 0);
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < w2; ++x) ++want[img.at(x, y)];
        want[256] = kSentinel;
        std::vector<Rok32s> hist(257, kSentinel);
        ASSERT_EQ(rokiHistogramRange_8u_C1R(img.data(), img.step(), {w2, 200}, hist.data(), levels.data(), 257),
                  rokStatusOk);
        ASSERT_EQ(hist, want) << w2;
    }
}

// Strictly increasing float levels with bins of very different widths, and
// levels too close for the bucket table: the searches agree with counting.
TEST(Histogram, FloatBinarySearchLevels) {
    const auto m = ranges<Rok32f>()[0];
    std::vector<Rok32f> uneven, tight, uniform;
    for (int k = 0; k < 150; ++k) uneven.push_back(k < 100 ? -1000.0f + k : float(k * k));
    for (int k = 0; k < 120; ++k) tight.push_back(k == 0 ? -1e30f : 1e-3f * float(k));
    for (int k = 0; k <= 256; ++k) uniform.push_back(-1000.0f + 7.8125f * float(k));
    for (const auto& l : {uneven, tight, uniform}) check_range(m, 97, 5, {l}, 8);
    // Levels that decimal steps make inexact, and samples on them and one
    // step to either side, where a bucket's edge may round either way.
    std::vector<Rok32f> tenths, samples;
    for (int k = 0; k <= 200; ++k) tenths.push_back(float(k * 0.1) - 3.3f);
    for (float l : tenths)
        for (float s : {std::nextafter(l, -1e9f), l, std::nextafter(l, 1e9f)}) samples.push_back(s);
    GuardedImage<Rok32f> img(int(samples.size()), 1, 1);
    std::copy(samples.begin(), samples.end(), img.data());
    std::vector<Rok32s> hist(200);
    ASSERT_EQ(rokiHistogramRange_32f_C1R(img.data(), img.step(), {img.width(), 1}, hist.data(), tenths.data(), 201),
              rokStatusOk);
    EXPECT_EQ(hist, direct_counts(img, 0, tenths));
}

// Evenly spaced float levels (more than the linear search takes), where each
// bucket is a bin and eight samples are binned at once: every row length up to 70 (vector blocks and every
// tail), packed and padded rows, samples on each level and one float to
// either side, and the values that belong to no bin (NaN, infinities, the
// ends, values far outside).
TEST(Histogram, FloatEvenLevelsEveryWidth) {
    const auto m = ranges<Rok32f>()[0];
    std::vector<std::vector<Rok32f>> sets(4);
    for (int k = 0; k <= 256; ++k) sets[0].push_back(float(k));
    for (int k = 0; k <= 128; ++k) sets[1].push_back(-1000.0f + 7.8125f * float(k));
    for (int k = 0; k <= 200; ++k) sets[2].push_back(float(k) * 0.25f - 12.0f);
    for (int k = 0; k <= 150; ++k) sets[3].push_back(float(k * 0.1));  // inexact steps
    const float inf = std::numeric_limits<float>::infinity();
    for (const auto& levels : sets) {
        std::vector<Rok32f> special = {std::nanf(""), inf, -inf, -1e30f, 1e30f, levels.front(), levels.back(),
                                       std::nextafter(levels.front(), -inf), std::nextafter(levels.back(), -inf)};
        for (Rok32f l : levels)
            for (Rok32f v : {std::nextafter(l, -inf), l, std::nextafter(l, inf)}) special.push_back(v);
        for (int w = 1; w <= 70; ++w) {
            check_range(m, w, 3, {levels}, std::uint32_t(w));
            for (int packed = 0; packed < 2; ++packed) {
                GuardedImage<Rok32f> img(w, 3, 1, packed ? 0 : 3, w % 2 ? rokt::Guard::After : rokt::Guard::Before);
                for (int y = 0; y < 3; ++y)
                    for (int x = 0; x < w; ++x) img.at(x, y, 0) = special[std::size_t(x * 7 + y * 31 + w) % special.size()];
                std::vector<Rok32s> hist(levels.size(), kSentinel);
                ASSERT_EQ(rokiHistogramRange_32f_C1R(img.data(), img.step(), {w, 3}, hist.data(), levels.data(),
                                                     int(levels.size())),
                          rokStatusOk);
                std::vector<Rok32s> want = direct_counts(img, 0, levels);
                want.push_back(kSentinel);
                ASSERT_EQ(hist, want) << "width " << w << " levels " << levels.size() << " packed " << packed;
            }
        }
    }
}

// Image sizes on both sides of every entry of the 16-bit size tables, with
// level counts around each limit: the counts are right whatever the method,
// and only the table method asks for memory, so a failing allocation shows
// which method ran.
TEST(Histogram, SixteenBitMethodBoundaries) {
    using rok::stats::HistMethod;
    struct Entry {
        std::int64_t size;
        int limit;
    };
    const Entry increasing[] = {{6400, 134}, {9216, 78}, {12544, 50}, {16384, 34}, {20736, 22}, {25600, 6}, {36864, 2}};
    const Entry other[] = {{1024, 434}, {2304, 222}, {4096, 126}, {6400, 78}, {9216, 50}, {12544, 34},
                           {16384, 22}, {20736, 14}, {25600, 10}, {30976, 6}, {43264, 2}};
    std::mt19937 rng(23);
    auto run = [&](std::int64_t pixels, int n, bool inc, bool tableWanted) {
        EXPECT_EQ(rok::stats::method_16(pixels, n, inc) == HistMethod::Table, tableWanted)
            << pixels << " pixels, " << n << " levels";
        const int w = int(pixels), h = 1;
        GuardedImage<Rok16s> img(w, h, 1);
        rokt::fill_random(img, std::uint32_t(pixels));
        std::vector<Rok32s> levels = random_levels<Rok16s>(rng, n, Order::Increasing);
        if (!inc) std::swap(levels[0], levels[1]);
        std::vector<Rok32s> hist(std::size_t(n), kSentinel);
        {
            rokt::FailAllocations fail(100000);
            const RokStatus st = rokiHistogramRange_16s_C1R(img.data(), img.step(), {w, h}, hist.data(), levels.data(), n);
            EXPECT_EQ(st, tableWanted ? rokStatusNoMemory : rokStatusOk) << pixels << " pixels, " << n << " levels";
            if (tableWanted) {
                EXPECT_EQ(hist, std::vector<Rok32s>(std::size_t(n), kSentinel)) << "written on error";
            }
        }
        ASSERT_EQ(rokiHistogramRange_16s_C1R(img.data(), img.step(), {w, h}, hist.data(), levels.data(), n), rokStatusOk);
        std::vector<Rok32s> want = direct_counts(img, 0, levels);
        EXPECT_EQ(std::vector<Rok32s>(hist.begin(), hist.end() - 1), want) << pixels << " pixels, " << n << " levels";
    };
    // Below the first size every increasing level count searches.
    run(6399, 1000, true, false);
    for (std::size_t i = 0; i < std::size(increasing); ++i) {
        const auto e = increasing[i];
        const int before = i == 0 ? INT_MAX : increasing[i - 1].limit;
        run(e.size, e.limit, true, false);
        run(e.size, e.limit + 1, true, true);
        if (before != INT_MAX) run(e.size - 1, e.limit + 1, true, e.limit + 1 > before);
    }
    run(1023, 1000, false, false);
    for (std::size_t i = 0; i < std::size(other); ++i) {
        const auto e = other[i];
        run(e.size, e.limit, false, false);
        run(e.size, e.limit + 1, false, true);
        if (i > 0) run(e.size - 1, e.limit + 1, false, e.limit + 1 > other[i - 1].limit);
    }
    EXPECT_EQ(rok::stats::method_16(1, 170, true), HistMethod::LinearSearch);
    EXPECT_EQ(rok::stats::method_16(1, 171, true), HistMethod::BinarySearch);
    EXPECT_EQ(rok::stats::method_32f(102, true), HistMethod::LinearSearch);
    EXPECT_EQ(rok::stats::method_32f(103, true), HistMethod::BinarySearch);
    EXPECT_EQ(rok::stats::method_32f(3, false), HistMethod::BruteForce);
}

// Even levels from their closed form: lower + k d + sign min(k, |r|).
std::vector<Rok32s> closed_form_levels(int n, Rok32s lower, Rok32s upper) {
    const std::int64_t span = std::int64_t(upper) - lower, d = span / (n - 1), r = span - d * (n - 1);
    std::vector<Rok32s> l;
    for (int k = 0; k < n; ++k) l.push_back(Rok32s(lower + k * d + (r < 0 ? -1 : 1) * std::min<std::int64_t>(k, std::llabs(r))));
    return l;
}

template <class T>
void check_even(const EvenMember<T>& m, int w, int h, const int* n, const Rok32s* lower, const Rok32s* upper,
                std::uint32_t seed) {
    GuardedImage<T> img(w, h, m.nc, 1);
    rokt::fill_random(img, seed);
    std::vector<std::vector<Rok32s>> hist(4), levels(4);
    Rok32s *hp[4], *lp[4];
    for (int c = 0; c < m.outs; ++c) {
        hist[std::size_t(c)].assign(std::size_t(n[c]), kSentinel);
        levels[std::size_t(c)].assign(std::size_t(n[c]) + 1, kSentinel);
        hp[c] = hist[std::size_t(c)].data();
        lp[c] = levels[std::size_t(c)].data();
    }
    ASSERT_EQ(m.fn(img.data(), img.step(), {w, h}, hp, lp, n, lower, upper), rokStatusOk) << m.name;
    for (int c = 0; c < m.outs; ++c) {
        std::vector<Rok32s> wantLevels = closed_form_levels(n[c], lower[c], upper[c]);
        std::vector<Rok32s> want = direct_counts(img, c, wantLevels);
        wantLevels.push_back(kSentinel);
        want.push_back(kSentinel);
        EXPECT_EQ(levels[std::size_t(c)], wantLevels) << m.name << " channel " << c;
        EXPECT_EQ(hist[std::size_t(c)], want) << m.name << " channel " << c;
    }
}

template <class T>
class Even : public ::testing::Test {};
using EvenTypes = ::testing::Types<Rok8u, Rok16s, Rok16u>;
TYPED_TEST_SUITE(Even, EvenTypes);

TYPED_TEST(Even, LevelsAndCounts) {
    using T = TypeParam;
    const std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    struct Spec {
        int n;
        std::int64_t lower, upper;
    };
    const Spec specs[] = {
        {4, 0, 10},                  // 0 4 7 10
        {4, 10, 0},                  // decreasing: 10 6 3 0
        {257, lo, lo + 256},         // one bin per value from the bottom
        {17, lo - 5, hi + 7},        // beyond the range
        {9, hi, lo},                 // decreasing over the range
        {5, 3, 5},                   // steps of 0 and 1: not increasing
        {3, INT_MIN, INT_MAX},       // the span overflows 32 bits
        {300, lo, hi + 1},
    };
    for (const auto& m : evens<T>())
        for (const auto& s : specs) {
            const int n[4] = {s.n, 6, s.n, s.n};
            const Rok32s lower[4] = {Rok32s(s.lower), -3, Rok32s(s.lower), Rok32s(s.lower)};
            const Rok32s upper[4] = {Rok32s(s.upper), 40, Rok32s(s.upper), Rok32s(s.upper)};
            for (int w : {1, 45}) check_even(m, w, 3, n, lower, upper, std::uint32_t(w + s.n));
        }
    EXPECT_EQ(closed_form_levels(4, 0, 10), (std::vector<Rok32s>{0, 4, 7, 10}));
    // One levels array for every channel: each channel is counted with its
    // own levels, written just before it.
    for (const auto& m : evens<T>()) {
        GuardedImage<T> img(31, 2, m.nc);
        rokt::fill_random(img, 77, -20, 260);
        const int n[4] = {5, 4, 6, 3};
        const Rok32s lower[4] = {0, 100, -7, 50}, upper[4] = {250, 20, 250, 60};
        std::vector<Rok32s> shared(6);
        std::vector<std::vector<Rok32s>> hist(4, std::vector<Rok32s>(5));
        Rok32s* hp[4] = {hist[0].data(), hist[1].data(), hist[2].data(), hist[3].data()};
        Rok32s* lp[4] = {shared.data(), shared.data(), shared.data(), shared.data()};
        ASSERT_EQ(m.fn(img.data(), img.step(), {31, 2}, hp, lp, n, lower, upper), rokStatusOk) << m.name;
        for (int c = 0; c < m.outs; ++c) {
            std::vector<Rok32s> want = direct_counts(img, c, closed_form_levels(n[c], lower[c], upper[c]));
            want.resize(5);
            EXPECT_EQ(hist[std::size_t(c)], want) << m.name << " channel " << c;
        }
        EXPECT_EQ(std::vector<Rok32s>(shared.begin(), shared.begin() + n[m.outs - 1]),
                  closed_form_levels(n[m.outs - 1], lower[m.outs - 1], upper[m.outs - 1]));
    }
}

// The worked cases on 8-bit images.
TEST(Even, WorkedCases8u) {
    Rok8u ramp[256];
    for (int v = 0; v < 256; ++v) ramp[v] = Rok8u(v);
    Rok32s hist[256], levels[257];
    ASSERT_EQ(rokiHistogramEven_8u_C1R(ramp, 256, {256, 1}, hist, levels, 257, 0, 256), rokStatusOk);
    for (int v = 0; v < 256; ++v) ASSERT_EQ(hist[v], 1) << v;
    ASSERT_EQ(rokiHistogramEven_8u_C1R(ramp, 256, {256, 1}, hist, levels, 5, 200, 0), rokStatusOk);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(hist[k], 0) << "decreasing levels leave bin " << k << " empty";
    const Rok32s last[2] = {0, 255};
    ASSERT_EQ(rokiHistogramRange_8u_C1R(ramp, 256, {256, 1}, hist, last, 2), rokStatusOk);
    EXPECT_EQ(hist[0], 255) << "a value equal to the last level is not counted";
    const Rok32f fl[3] = {0, 2, 1}, fs[2] = {1.5f, 0.5f};
    ASSERT_EQ(rokiHistogramRange_32f_C1R(fs, 8, {2, 1}, hist, fl, 3), rokStatusOk);
    EXPECT_EQ(hist[0], 2);
    EXPECT_EQ(hist[1], 0) << "[2, 1) holds nothing";
}

TEST(HistogramChecks, OrderOfChecksWritesNothing) {
    Rok8u img[64] = {};
    Rok16u img16[64] = {};
    Rok32s hist[8], levels[8];
    std::fill(hist, hist + 8, kSentinel);
    std::fill(levels, levels + 8, kSentinel);
    const Rok32s lv[3] = {0, 5, 10};
    Rok32s* hp[3] = {hist, hist, nullptr};
    const Rok32s* lp[3] = {lv, lv, lv};
    const int n3[3] = {3, 3, 1};
    const Rok32s lo3[3] = {0, 0, 0}, up3[3] = {9, 9, 9};
    Rok32s* lvp[3] = {levels, levels, levels};
    Rok32s* hp3[3] = {hist, hist, hist};
    const RokiSize ok{4, 4}, bad{4, -1};
    struct Row {
        const char* what;
        RokStatus got, want;
    };
    const Row rows[] = {
        {"null source", rokiHistogramRange_8u_C1R(nullptr, 0, bad, hist, lv, 1), rokStatusNullPtr},
        {"null histogram", rokiHistogramRange_16u_C1R(img16, 8, ok, nullptr, lv, 3), rokStatusNullPtr},
        {"null levels", rokiHistogramEven_8u_C1R(img, 4, ok, hist, nullptr, 3, 0, 9), rokStatusNullPtr},
        {"null channel histogram", rokiHistogramRange_8u_C3R(img, 12, ok, hp, lp, n3), rokStatusNullPtr},
        {"null bounds", rokiHistogramEven_8u_C3R(img, 12, ok, hp3, lvp, n3, nullptr, up3), rokStatusNullPtr},
        {"size before step", rokiHistogramRange_8u_C1R(img, 0, bad, hist, lv, 1), rokStatusBadSize},
        {"step", rokiHistogramRange_8u_C1R(img, 0, ok, hist, lv, 1), rokStatusBadStep},
        {"step before levels", rokiHistogramEven_16u_C1R(img16, -8, ok, hist, levels, 1, 0, 9), rokStatusBadStep},
        {"one level", rokiHistogramRange_8u_C1R(img, 4, ok, hist, lv, 1), rokStatusBadHistLevels},
        {"one level in channel 2", rokiHistogramEven_8u_C3R(img, 12, ok, hp3, lvp, n3, lo3, up3),
         rokStatusBadHistLevels},
    };
    for (const auto& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
    for (int i = 0; i < 8; ++i) {
        ASSERT_EQ(hist[i], kSentinel) << i;
        ASSERT_EQ(levels[i], kSentinel) << i;
    }
    // A failed table allocation leaves the even levels unwritten as well.
    std::vector<Rok16s> big(40000, 7);
    rokt::FailAllocations fail(100000);
    EXPECT_EQ(rokiHistogramEven_16s_C1R(big.data(), 80000, {40000, 1}, hist, levels, 7, 0, 60), rokStatusNoMemory);
    for (int i = 0; i < 8; ++i) {
        ASSERT_EQ(hist[i], kSentinel) << i;
        ASSERT_EQ(levels[i], kSentinel) << i;
    }
}

}  // namespace
