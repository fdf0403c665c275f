// General linear filters against an independent scalar convolution written
// from the rule: dst(x, y) = sum K[j][i] * src(x + ax - i, y + ay - j) for the
// integer kernels (exact, 64-bit), the same sum formed neighbourhood-first in
// the data's precision for the float kernels, and the finishing rules written
// out in exact integer or double arithmetic.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "guarded.h"
#include "kernels/filter/filter_sum.h"
#include "random.h"
#include "reference.h"
#include "rokcore.h"
#include "roki.h"
#include "threads.h"

namespace {

using rokt::GuardedImage;

using rokt::WithThreads;

// ---- reference finishing rules -------------------------------------------

// Nearest integer to p, ties to the even neighbour (p exact in double).
double round_even(double p) {
    double f = std::floor(p + 0.5);
    if (f - p == 0.5 && std::fmod(f, 2.0) != 0.0) f -= 1.0;
    return f;
}

template <class D>
D saturate_double(double v) {
    const double lo = double(std::numeric_limits<D>::min()), hi = double(std::numeric_limits<D>::max());
    return D(v < lo ? lo : v > hi ? hi : v);
}

// s / d exactly, rounded: mode 0 toward zero, 1 ties to even, 2 ties away.
std::int64_t divide_exact(std::int64_t s, std::int64_t d, int mode) {
    if (d < 0) {
        s = -s;
        d = -d;
    }
    const bool neg = s < 0;
    const std::int64_t a = neg ? -s : s;
    std::int64_t q = a / d;
    const std::int64_t r2 = 2 * (a % d);
    if (mode == 1 && (r2 > d || (r2 == d && (q & 1)))) ++q;
    if (mode == 2 && r2 >= d) ++q;
    return neg ? -q : q;
}

bool power_of_two(int d) { return d > 1 && (d & (d - 1)) == 0; }

// mode -1: the plain filter's rule chosen by the divisor.
template <class D>
D finish_int(std::int64_t s, int divisor, int mode) {
    if (divisor == 1) return rokt::ref::saturate<D>(s);
    if (mode < 0) {
        if (power_of_two(divisor)) return rokt::ref::saturate<D>(divide_exact(s, divisor, 1));
        const float p = float(s) * (1.0f / float(divisor));
        return saturate_double<D>(round_even(double(p)));
    }
    return rokt::ref::saturate<D>(divide_exact(s, divisor, mode));
}

template <class D>
D finish_float(double p, int mode) {
    double r;
    if (mode == 0)
        r = std::trunc(p);
    else if (mode == 2)
        r = std::copysign(std::floor(std::fabs(p) + 0.5), p);
    else
        r = round_even(p);
    if (r >= 2147483647.0 && std::is_same_v<D, Rok32s>) return D(std::numeric_limits<D>::max());
    return saturate_double<D>(r);
}

// ---- forms ---------------------------------------------------------------

enum class Shape { TwoD, Row, Column };

template <class S, class D, class K>
using FilterFn = std::function<RokStatus(const S*, int, D*, int, RokiSize, const K*, RokiSize, RokiPoint, int, int,
                                         Rok8u*)>;

template <class S, class D, class K>
struct Form {
    const char* name;
    int channels, processed;
    Shape shape;
    bool rounding;
    FilterFn<S, D, K> fn;
    RokStatus (*bufsize)(RokiSize, int, int*) = nullptr;
};

#define F2_DIV(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int div, int, Rok8u*) { return f(s, ss, d, ds, r, k, ks, a, div); }
#define F2_PLAIN(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int, int, Rok8u*) { return f(s, ss, d, ds, r, k, ks, a); }
#define F2_RDIV(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int div, int m, Rok8u* b) { return f(s, ss, d, ds, r, k, ks, a, div, m, b); }
#define F2_RF(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int, int m, Rok8u* b) { return f(s, ss, d, ds, r, k, ks, a, m, b); }
#define ROW_DIV(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int div, int, Rok8u*) { return f(s, ss, d, ds, r, k, ks.width, a.x, div); }
#define COL_DIV(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int div, int, Rok8u*) { return f(s, ss, d, ds, r, k, ks.height, a.y, div); }
#define ROW_PLAIN(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int, int, Rok8u*) { return f(s, ss, d, ds, r, k, ks.width, a.x); }
#define COL_PLAIN(f) [](auto s, int ss, auto d, int ds, RokiSize r, auto k, RokiSize ks, RokiPoint a, int, int, Rok8u*) { return f(s, ss, d, ds, r, k, ks.height, a.y); }

struct Config {
    int w, h, kw, kh, ax, ay;
    int divisor = 1;
    int mode = 1;
    int coefLo = -9, coefHi = 9;
    std::vector<int> kernel = {};  // integer coefficients as stored; random from coefLo..coefHi when empty
};

template <class S>
void fill_source(GuardedImage<S>& img, std::uint32_t seed) {
    if constexpr (std::is_floating_point_v<S>) {
        rokt::fill_random(img, seed);
    } else if constexpr (sizeof(S) == 4) {
        rokt::fill_random(img, seed, -100000, 100000);
    } else {
        rokt::fill_random(img, seed, std::numeric_limits<S>::min(), std::numeric_limits<S>::max());
    }
}

template <class K>
std::vector<K> make_kernel(int n, const Config& c, std::uint32_t seed) {
    if (!c.kernel.empty()) return std::vector<K>(c.kernel.begin(), c.kernel.end());
    std::mt19937 rng(seed);
    std::vector<K> k(std::size_t(n) > 0 ? std::size_t(n) : 1);
    for (K& v : k) {
        if constexpr (std::is_floating_point_v<K>)
            v = K(std::uniform_real_distribution<double>(-2.0, 2.0)(rng));
        else
            v = K(std::uniform_int_distribution<int>(c.coefLo, c.coefHi)(rng));
    }
    return k;
}

// The reference result of channel ch at ROI pixel (x, y). `at(x, y, ch)`
// reads the image that holds the neighbourhood, whose top-left corner is the
// neighbourhood of ROI pixel (0, 0).
template <class S, class D, class K, class At>
D reference(const At& at, const std::vector<K>& k, const Config& c, bool rounding, int x, int y, int ch) {
    const int ox = c.kw - 1 - c.ax, oy = c.kh - 1 - c.ay;
    if constexpr (std::is_integral_v<K>) {
        std::int64_t s = 0;
        for (int j = 0; j < c.kh; ++j)
            for (int i = 0; i < c.kw; ++i)
                s += std::int64_t(k[std::size_t(j) * c.kw + i]) * std::int64_t(at(x + c.ax - i + ox, y + c.ay - j + oy, ch));
        return finish_int<D>(s, c.divisor, rounding ? c.mode : -1);
    } else {
        using A = std::conditional_t<std::is_same_v<K, double>, double, float>;
        A s = 0;
        for (int jj = 0; jj < c.kh; ++jj)
            for (int ii = 0; ii < c.kw; ++ii)
                s = s + A(k[std::size_t(c.kh - 1 - jj) * c.kw + (c.kw - 1 - ii)]) * A(at(x + ii, y + jj, ch));
        if constexpr (std::is_floating_point_v<D>)
            return D(s);
        else
            return finish_float<D>(double(s), rounding ? c.mode : 1);
    }
}

template <class S, class D, class K>
void check(const Form<S, D, K>& f, Config c, std::uint32_t seed, rokt::Guard guard = rokt::Guard::After) {
    if (f.shape == Shape::Row) c.kh = 1, c.ay = 0;
    if (f.shape == Shape::Column) c.kw = 1, c.ax = 0;
    SCOPED_TRACE(testing::Message() << f.name << " roi " << c.w << "x" << c.h << " kernel " << c.kw << "x" << c.kh
                                    << " anchor " << c.ax << "," << c.ay << " divisor " << c.divisor << " mode "
                                    << c.mode);
    // The image holds exactly the pixels the filter may read; with
    // Guard::After its last byte is the last byte of the neighbourhood of
    // the ROI's bottom-right pixel.
    GuardedImage<S> src(c.w + c.kw - 1, c.h + c.kh - 1, f.channels, 1, guard);
    fill_source(src, seed);
    const auto k = make_kernel<K>(c.kw * c.kh, c, seed + 1);
    const int ox = c.kw - 1 - c.ax, oy = c.kh - 1 - c.ay;
    const S* roi = reinterpret_cast<const S*>(reinterpret_cast<const char*>(src.data()) +
                                              std::ptrdiff_t(oy) * src.step() +
                                              std::ptrdiff_t(ox) * f.channels * std::ptrdiff_t(sizeof(S)));
    GuardedImage<D> dst(c.w, c.h, f.channels, 1);
    dst.fill_bytes(0xA5);
    GuardedImage<D> want(c.w, c.h, f.channels, 1);
    want.fill_bytes(0xA5);
    auto at = [&](int x, int y, int ch) { return src.at(x, y, ch); };
    for (int y = 0; y < c.h; ++y)
        for (int x = 0; x < c.w; ++x)
            for (int ch = 0; ch < f.processed; ++ch)
                want.at(x, y, ch) = reference<S, D, K>(at, k, c, f.rounding, x, y, ch);

    std::unique_ptr<rokt::GuardedBuffer> buffer;
    if (f.rounding) {
        int bytes = 0;
        ASSERT_EQ(f.bufsize({c.kw, c.kh}, c.w, &bytes), rokStatusOk);
        buffer = std::make_unique<rokt::GuardedBuffer>(std::size_t(bytes), rokt::Guard::After);
    }
    ASSERT_EQ(f.fn(roi, src.step(), dst.data(), dst.step(), {c.w, c.h}, k.data(), {c.kw, c.kh}, {c.ax, c.ay},
                   c.divisor, c.mode, buffer ? buffer->data() : nullptr),
              rokStatusOk);
    if constexpr (std::is_floating_point_v<D>) {
        for (int y = 0; y < c.h; ++y)
            for (int i = 0; i < c.w * f.channels; ++i)
                if (std::memcmp(&dst.row(y)[i], &want.row(y)[i], sizeof(D)) != 0) {
                    FAIL() << "sample " << i << " of row " << y << ": " << dst.row(y)[i] << " want " << want.row(y)[i];
                }
    }
    ASSERT_EQ(dst.bytes(), want.bytes());
}

// Every kernel size from 1x1 to 9x9, anchors inside and outside, widths
// around the vector block, both guard sides.
template <class S, class D, class K>
void sweep(const Form<S, D, K>& f, std::vector<int> divisors, std::vector<int> modes = {1}) {
    std::uint32_t seed = 1;
    for (int kh = 1; kh <= 9; kh += (f.shape == Shape::Row ? 9 : 1))
        for (int kw = 1; kw <= 9; kw += (f.shape == Shape::Column ? 9 : 1)) {
            const int w = 1 + int(seed * 7 % 40);
            Config c{w, 2, kw, kh, kw / 2, kh / 2, divisors[seed % divisors.size()], modes[seed % modes.size()]};
            check(f, c, seed++);
            Config out{w + 3, 2, kw, kh, -1 - int(seed % 2), kh, divisors[seed % divisors.size()], modes[0]};
            check(f, out, seed++, rokt::Guard::Before);
        }
    for (int w = 1; w <= 70; ++w) {
        Config c{w, 1, 3, 3, 1, 1, divisors[w % divisors.size()], modes[w % modes.size()]};
        check(f, c, seed++, w % 2 ? rokt::Guard::After : rokt::Guard::Before);
    }
    // Long one-dimensional kernels.
    if (f.shape != Shape::Column) check(f, Config{37, 2, 31, 1, 30, 0, divisors[0], modes[0]}, seed++);
    if (f.shape != Shape::Row) check(f, Config{37, 2, 1, 25, 0, 3, divisors[0], modes[0]}, seed++);
}

const std::vector<int> kDivisors = {1, 2, 8, 3, -5, 45, 64, 10};

TEST(Filter, IntegerKernels8u) {
    sweep(Form<Rok8u, Rok8u, Rok32s>{"Filter 8u C1", 1, 1, Shape::TwoD, false, F2_DIV(rokiFilter_8u_C1R)}, kDivisors);
    sweep(Form<Rok8u, Rok8u, Rok32s>{"Filter 8u AC4", 4, 3, Shape::TwoD, false, F2_DIV(rokiFilter_8u_AC4R)}, kDivisors);
    sweep(Form<Rok8u, Rok8u, Rok32s>{"FilterRow 8u C3", 3, 3, Shape::Row, false, ROW_DIV(rokiFilterRow_8u_C3R)}, kDivisors);
    sweep(Form<Rok8u, Rok8u, Rok32s>{"FilterColumn 8u C4", 4, 4, Shape::Column, false, COL_DIV(rokiFilterColumn_8u_C4R)}, kDivisors);
}

TEST(Filter, IntegerKernels8uDirectPathMatchesPackedPath) {
    // Coefficients beyond 16 bits cannot be packed two to a word.
    Form<Rok8u, Rok8u, Rok32s> f{"Filter 8u C3 wide coefficients", 3, 3, Shape::TwoD, false, F2_DIV(rokiFilter_8u_C3R)};
    for (int kw : {1, 3, 4}) {
        Config c{35, 3, kw, 3, 1, 1, 100003, 1, -70000, 70000};
        check(f, c, 5u + unsigned(kw));
        c.coefLo = -32767, c.coefHi = 32766, c.divisor = 4096;  // the packed range's ends
        check(f, c, 9u + unsigned(kw));
    }
}

TEST(Filter, IntegerKernels16) {
    sweep(Form<Rok16s, Rok16s, Rok32s>{"Filter 16s C1", 1, 1, Shape::TwoD, false, F2_DIV(rokiFilter_16s_C1R)}, kDivisors);
    sweep(Form<Rok16u, Rok16u, Rok32s>{"Filter 16u C3", 3, 3, Shape::TwoD, false, F2_DIV(rokiFilter_16u_C3R)}, kDivisors);
    sweep(Form<Rok16s, Rok16s, Rok32s>{"FilterColumn 16s AC4", 4, 3, Shape::Column, false, COL_DIV(rokiFilterColumn_16s_AC4R)}, kDivisors);
    sweep(Form<Rok16u, Rok16u, Rok32s>{"FilterRow 16u C1", 1, 1, Shape::Row, false, ROW_DIV(rokiFilterRow_16u_C1R)}, kDivisors);
}

TEST(Filter, FloatKernelsOnIntegerData) {
    const std::vector<int> one = {1};
    sweep(Form<Rok8u, Rok8u, Rok32f>{"Filter32f 8u C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter32f_8u_C1R)}, one);
    sweep(Form<Rok16s, Rok16s, Rok32f>{"Filter32f 16s AC4", 4, 3, Shape::TwoD, false, F2_PLAIN(rokiFilter32f_16s_AC4R)}, one);
    sweep(Form<Rok16u, Rok16u, Rok32f>{"FilterRow32f 16u C4", 4, 4, Shape::Row, false, ROW_PLAIN(rokiFilterRow32f_16u_C4R)}, one);
    sweep(Form<Rok8u, Rok8u, Rok32f>{"FilterColumn32f 8u C3", 3, 3, Shape::Column, false, COL_PLAIN(rokiFilterColumn32f_8u_C3R)}, one);
    sweep(Form<Rok32s, Rok32s, Rok32f>{"Filter32f 32s C3", 3, 3, Shape::TwoD, false, F2_PLAIN(rokiFilter32f_32s_C3R)}, one);
    sweep(Form<Rok8s, Rok8s, Rok32f>{"Filter32f 8s C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter32f_8s_C1R)}, one);
    sweep(Form<Rok8u, Rok16s, Rok32f>{"Filter32f 8u16s C4", 4, 4, Shape::TwoD, false, F2_PLAIN(rokiFilter32f_8u16s_C4R)}, one);
    sweep(Form<Rok8s, Rok16s, Rok32f>{"Filter32f 8s16s C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter32f_8s16s_C1R)}, one);
}

TEST(Filter, FloatData) {
    const std::vector<int> one = {1};
    sweep(Form<Rok32f, Rok32f, Rok32f>{"Filter 32f C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter_32f_C1R)}, one);
    sweep(Form<Rok32f, Rok32f, Rok32f>{"Filter 32f AC4", 4, 3, Shape::TwoD, false, F2_PLAIN(rokiFilter_32f_AC4R)}, one);
    sweep(Form<Rok32f, Rok32f, Rok32f>{"FilterRow 32f C3", 3, 3, Shape::Row, false, ROW_PLAIN(rokiFilterRow_32f_C3R)}, one);
    sweep(Form<Rok32f, Rok32f, Rok32f>{"FilterColumn 32f C1", 1, 1, Shape::Column, false, COL_PLAIN(rokiFilterColumn_32f_C1R)}, one);
    sweep(Form<Rok64f, Rok64f, Rok64f>{"Filter 64f C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter_64f_C1R)}, one);
    sweep(Form<Rok64f, Rok64f, Rok64f>{"FilterRow 64f C1", 1, 1, Shape::Row, false, ROW_PLAIN(rokiFilterRow_64f_C1R)}, one);
    sweep(Form<Rok64f, Rok64f, Rok64f>{"FilterColumn 64f C1", 1, 1, Shape::Column, false, COL_PLAIN(rokiFilterColumn_64f_C1R)}, one);
}

// One-channel float data has kernels of its own for 3x3, 5x5 and rows and
// columns of 3 to 7 taps that form several rows to a pass: heights 1 to 9
// leave every remainder of rows, widths 1 to 70 every vector tail, and the
// anchors move the first tap round the neighbourhood. 4x4 and 2x3 take the
// general path beside them.
TEST(Filter, FloatShapesEveryTailAndRemainder) {
    using F = Form<Rok32f, Rok32f, Rok32f>;
    const F twoD{"Filter 32f C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter_32f_C1R)};
    const F rowF{"FilterRow 32f C1", 1, 1, Shape::Row, false, ROW_PLAIN(rokiFilterRow_32f_C1R)};
    const F colF{"FilterColumn 32f C1", 1, 1, Shape::Column, false, COL_PLAIN(rokiFilterColumn_32f_C1R)};
    struct Case {
        const F* form;
        int kw, kh;
    };
    const Case cases[] = {{&twoD, 3, 3}, {&twoD, 5, 5}, {&twoD, 4, 4}, {&twoD, 2, 3}, {&rowF, 3, 1}, {&rowF, 4, 1},
                          {&rowF, 5, 1}, {&rowF, 6, 1}, {&rowF, 7, 1}, {&colF, 1, 3}, {&colF, 1, 4}, {&colF, 1, 5},
                          {&colF, 1, 6}, {&colF, 1, 7}};
    std::uint32_t seed = 900;
    for (const Case& k : cases)
        for (int w = 1; w <= 70; ++w) {
            const Config c{w, 1 + w % 9, k.kw, k.kh, w % k.kw, (w / 3) % k.kh};
            check(*k.form, c, seed++, w % 2 ? rokt::Guard::After : rokt::Guard::Before);
        }
}

// Results of 12 MiB and more go past the cache: the first row of each pass
// aligns its stores, the others stream only where they are aligned too
// (the odd steps make them differ). The same at one and two threads.
TEST(Filter, FloatShapesStreamed) {
    using F = Form<Rok32f, Rok32f, Rok32f>;
    const F twoD{"Filter 32f C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter_32f_C1R)};
    const F colF{"FilterColumn 32f C1", 1, 1, Shape::Column, false, COL_PLAIN(rokiFilterColumn_32f_C1R)};
    {
        WithThreads one(1);
        check(twoD, Config{1795, 1757, 3, 3, 1, 1}, 31);
    }
    WithThreads two(2);
    check(twoD, Config{1797, 1755, 5, 5, 2, 2}, 32);
    check(colF, Config{1793, 1759, 1, 7, 0, 3}, 33);
}

TEST(Filter, RoundingModes) {
    const std::vector<int> modes = {0, 1, 2};
    sweep(Form<Rok8u, Rok8u, Rok16s>{"Round16s 8u C1", 1, 1, Shape::TwoD, true, F2_RDIV(rokiFilter_Round16s_8u_C1R),
                                     rokiFilterRoundGetBufSize16s_8u_C1R}, kDivisors, modes);
    sweep(Form<Rok8u, Rok8u, Rok16s>{"Round16s 8u AC4", 4, 3, Shape::TwoD, true, F2_RDIV(rokiFilter_Round16s_8u_AC4R),
                                     rokiFilterRoundGetBufSize16s_8u_AC4R}, kDivisors, modes);
    sweep(Form<Rok16s, Rok16s, Rok32s>{"Round32s 16s C3", 3, 3, Shape::TwoD, true, F2_RDIV(rokiFilter_Round32s_16s_C3R),
                                       rokiFilterRoundGetBufSize32s_16s_C3R}, kDivisors, modes);
    sweep(Form<Rok16u, Rok16u, Rok32s>{"Round32s 16u C4", 4, 4, Shape::TwoD, true, F2_RDIV(rokiFilter_Round32s_16u_C4R),
                                       rokiFilterRoundGetBufSize32s_16u_C4R}, kDivisors, modes);
    sweep(Form<Rok8u, Rok8u, Rok32f>{"Round32f 8u C3", 3, 3, Shape::TwoD, true, F2_RF(rokiFilter_Round32f_8u_C3R),
                                     rokiFilterRoundGetBufSize32f_8u_C3R}, {1}, modes);
    sweep(Form<Rok16s, Rok16s, Rok32f>{"Round32f 16s AC4", 4, 3, Shape::TwoD, true, F2_RF(rokiFilter_Round32f_16s_AC4R),
                                       rokiFilterRoundGetBufSize32f_16s_AC4R}, {1}, modes);
}

// ---- the finishing rules at their ties and saturation ---------------------

// A 1x1 kernel {c} turns each source sample v into the sum c * v.
template <class T, class Fn>
std::vector<T> one_by_one(Fn fn, std::vector<T> values) {
    std::vector<T> out(values.size());
    const int n = int(values.size());
    EXPECT_EQ(fn(values.data(), n * int(sizeof(T)), out.data(), n * int(sizeof(T)), RokiSize{n, 1}), rokStatusOk);
    return out;
}

TEST(FilterRules, DivisorTiesAndSaturation8u) {
    auto plain = [](Rok32s c, int d) {
        return [c, d](const Rok8u* s, int ss, Rok8u* o, int ds, RokiSize r) {
            return rokiFilter_8u_C1R(s, ss, o, ds, r, &c, {1, 1}, {0, 0}, d);
        };
    };
    EXPECT_EQ(one_by_one<Rok8u>(plain(1, 2), {1, 3, 5, 7}), (std::vector<Rok8u>{0, 2, 2, 4}));
    EXPECT_EQ(one_by_one<Rok8u>(plain(2, 1), {100, 150, 127, 128}), (std::vector<Rok8u>{200, 255, 254, 255}));
    EXPECT_EQ(one_by_one<Rok8u>(plain(-1, 1), {0, 5, 255}), (std::vector<Rok8u>{0, 0, 0}));
    // 0.1f * 5, 15, 25, 35: exact halves after the float multiply, to even.
    EXPECT_EQ(one_by_one<Rok8u>(plain(1, 10), {5, 15, 25, 35, 6}), (std::vector<Rok8u>{0, 2, 2, 4, 1}));
    EXPECT_EQ(one_by_one<Rok8u>(plain(255, 3), {3, 4, 255}), (std::vector<Rok8u>{255, 255, 255}));
    EXPECT_EQ(one_by_one<Rok8u>(plain(3, -3), {7}), (std::vector<Rok8u>{0}));
}

TEST(FilterRules, DivisorTiesAndSaturation16s) {
    auto plain = [](Rok32s c, int d) {
        return [c, d](const Rok16s* s, int ss, Rok16s* o, int ds, RokiSize r) {
            return rokiFilter_16s_C1R(s, ss, o, ds, r, &c, {1, 1}, {0, 0}, d);
        };
    };
    EXPECT_EQ(one_by_one<Rok16s>(plain(1, 2), {-1, -3, -5, 3}), (std::vector<Rok16s>{0, -2, -2, 2}));
    EXPECT_EQ(one_by_one<Rok16s>(plain(3, 1), {20000, -20000}), (std::vector<Rok16s>{32767, -32768}));
    EXPECT_EQ(one_by_one<Rok16s>(plain(-1, 10), {-5, -15, 25}), (std::vector<Rok16s>{0, 2, -2}));
}

TEST(FilterRules, RoundingModesAtTies) {
    struct Row {
        int mode, divisor;
        std::vector<Rok8u> in, want;
    };
    const Row rows[] = {
        {2, 4, {2, 6, 1}, {1, 2, 0}}, {1, 4, {2, 6, 1}, {0, 2, 0}}, {0, 4, {2, 7, 3}, {0, 1, 0}},
        {2, 3, {1, 2, 255}, {0, 1, 85}}, {1, 6, {3, 9, 15}, {0, 2, 2}}, {0, 3, {2, 5, 8}, {0, 1, 2}},
    };
    for (const Row& r : rows) {
        int bytes = 0;
        ASSERT_EQ(rokiFilterRoundGetBufSize16s_8u_C1R({1, 1}, int(r.in.size()), &bytes), rokStatusOk);
        std::vector<Rok8u> buf(std::size_t(bytes), 0);
        const Rok16s one = 1;
        auto fn = [&](const Rok8u* s, int ss, Rok8u* o, int ds, RokiSize roi) {
            return rokiFilter_Round16s_8u_C1R(s, ss, o, ds, roi, &one, {1, 1}, {0, 0}, r.divisor, r.mode, buf.data());
        };
        EXPECT_EQ(one_by_one<Rok8u>(fn, r.in), r.want) << "mode " << r.mode << " divisor " << r.divisor;
    }
    // Signed data: halves away from zero in mode 2, toward zero in mode 0.
    const Rok32s minusOne = -1;
    std::vector<Rok8u> buf(4096);
    auto signedFn = [&](int mode, int divisor) {
        return [&, mode, divisor](const Rok16s* s, int ss, Rok16s* o, int ds, RokiSize roi) {
            return rokiFilter_Round32s_16s_C1R(s, ss, o, ds, roi, &minusOne, {1, 1}, {0, 0}, divisor, mode, buf.data());
        };
    };
    EXPECT_EQ(one_by_one<Rok16s>(signedFn(2, 4), {2, 6, -2}), (std::vector<Rok16s>{-1, -2, 1}));
    EXPECT_EQ(one_by_one<Rok16s>(signedFn(0, 4), {7, -7}), (std::vector<Rok16s>{-1, 1}));
    EXPECT_EQ(one_by_one<Rok16s>(signedFn(2, 3), {-30000 * 0 + 3 * 2 + 0, 9}), (std::vector<Rok16s>{-2, -3}));
}

TEST(FilterRules, FlipAndAnchor) {
    // A single 1 at stored (0, 0) of a 3x3 kernel with anchor (1, 1) picks
    // the pixel one right and one below.
    Rok8u src[5 * 5];
    for (int i = 0; i < 25; ++i) src[i] = Rok8u(i * 7);
    const Rok32s k[9] = {1, 0, 0, 0, 0, 0, 0, 0, 0};
    Rok8u dst[3 * 3] = {};
    ASSERT_EQ(rokiFilter_8u_C1R(src + 6, 5, dst, 3, {3, 3}, k, {3, 3}, {1, 1}, 1), rokStatusOk);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x) EXPECT_EQ(dst[y * 3 + x], src[(y + 2) * 5 + (x + 2)]) << x << "," << y;
}

// ---- one-channel 8u kernels of 3x3 and 5x5 in byte pairs ---------------------

// Binomial rows' outer product with one coefficient raised, as a smoothing
// kernel would be: 3x3 sums to 17, 5x5 to 257 (the largest magnitude whose
// sums still fit 16 bits).
std::vector<int> smoothing(int n) {
    const std::vector<int> row = n == 3 ? std::vector<int>{1, 2, 1} : std::vector<int>{1, 4, 6, 4, 1};
    std::vector<int> k;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) k.push_back(row[std::size_t(i)] * row[std::size_t(j)] + (i == n - 1 && j == 0));
    return k;
}

// 3x3 and 5x5: widths that reach every tail of the 32-sample blocks, every
// anchor in the kernel and some outside, heights that leave passes of fewer
// rows, kernels at the ends of the byte-pair range and just past them (which
// take the other paths), and images large enough for the 16-bit finishes,
// at one and two threads.
TEST(Filter, BytePairShapes8u) {
    const Form<Rok8u, Rok8u, Rok32s> f{"Filter 8u C1", 1, 1, Shape::TwoD, false, F2_DIV(rokiFilter_8u_C1R)};
    std::uint32_t seed = 100;
    for (int n : {3, 5}) {
        for (int w = 1; w <= 70; ++w) {
            const int a = w % (n * n);
            check(f, Config{w, 3, n, n, a % n, a / n, kDivisors[std::size_t(w) % kDivisors.size()]}, seed++,
                  w % 2 ? rokt::Guard::After : rokt::Guard::Before);
        }
        for (int ax : {-2, n}) check(f, Config{45, 4, n, n, ax, n - 1 - ax, 7}, seed++, rokt::Guard::Before);
    }
    // Stored kernels; the flip puts the last stored coefficient at the
    // neighbourhood's top left, so the pairs are formed from the stored rows
    // read right to left.
    std::vector<int> pair128(9, 0), pair129(9, 0), ends(9, 0), big(9, 0), wide(smoothing(5));
    pair128[1] = 64, pair128[2] = 64, pair128[8] = -1;  // a pair of 64 + 64, one negative
    pair129 = pair128, pair129[1] = 65;                    // one past the pair bound
    ends[0] = 127, ends[4] = -127, ends[8] = 3;            // the byte range's ends
    big = ends, big[4] = -128;                             // one past it
    wide[12] += 1;                                         // magnitudes summing to 258
    const std::vector<int> sharpen = {0, -1, 0, -1, 5, -1, 0, -1, 0};
    struct Case {
        int w, h, n;
        std::vector<int> kernel;
        int divisor;
    };
    const Case cases[] = {
        {40, 5, 3, pair128, 3},      {40, 5, 3, pair129, 3},    {40, 5, 3, ends, 5},   {40, 5, 3, big, 5},
        {40, 5, 5, smoothing(5), 257}, {40, 5, 5, wide, 258},   {33, 6, 5, smoothing(5), 1},
        {33, 6, 3, smoothing(3), 16},
        // Large enough for the 16-bit finishes: sums of 0..4590, of
        // -255..32640, of 0..65535 and of -1020..1275.
        {200, 200, 3, smoothing(3), 17}, {213, 190, 3, smoothing(3), 3}, {600, 450, 3, pair128, 3},
        {600, 450, 3, pair128, 45},      {1024, 520, 5, smoothing(5), 257}, {1024, 520, 5, smoothing(5), 255},
        {1024, 520, 5, smoothing(5), 10}, {1024, 520, 5, smoothing(5), -3}, {1024, 520, 5, smoothing(5), 256},
        {1024, 520, 5, smoothing(5), 1},  {400, 300, 3, sharpen, 1},        {400, 300, 3, sharpen, 2},
        {400, 300, 3, pair128, 16},
    };
    for (const Case& c : cases)
        for (int threads : {1, 2}) {
            WithThreads with(threads);
            Config cfg{c.w, c.h, c.n, c.n, c.n / 2, c.n / 2, c.divisor};
            cfg.kernel = c.kernel;
            check(f, cfg, seed++, threads == 1 ? rokt::Guard::After : rokt::Guard::Before);
        }
    // Other shapes finish each row of pair sums straight into the
    // destination the same way (images large enough for the 16-bit forms,
    // and one too small for them).
    struct Other {
        int w, h, kw, kh, lo, hi, divisor;
    };
    const Other others[] = {{400, 300, 7, 7, 1, 1, 49}, {300, 300, 4, 3, 0, 3, 16},  {520, 480, 2, 2, -20, 30, 1},
                            {70, 9, 7, 7, -2, 2, -7},   {500, 340, 9, 1, 0, 9, 45},  {33, 40, 6, 2, -9, 9, 8}};
    for (const Other& o : others) {
        Config cfg{o.w, o.h, o.kw, o.kh, o.kw / 2, o.kh / 2, o.divisor, 1, o.lo, o.hi};
        check(f, cfg, seed++, o.w % 2 ? rokt::Guard::After : rokt::Guard::Before);
    }
}

// One-column kernels on C1 and every kernel on C3, C4 and AC4 pair their
// taps in summing order, any two (the bytes interleaved): every tail,
// anchors, lone last taps, the pair bound and one past it, and images large
// enough for the 16-bit finishes.
TEST(Filter, AnyBytePairs8u) {
    using F = Form<Rok8u, Rok8u, Rok32s>;
    const F col{"FilterColumn 8u C1", 1, 1, Shape::Column, false, COL_DIV(rokiFilterColumn_8u_C1R)};
    const F c3{"Filter 8u C3", 3, 3, Shape::TwoD, false, F2_DIV(rokiFilter_8u_C3R)};
    const F c4{"Filter 8u C4", 4, 4, Shape::TwoD, false, F2_DIV(rokiFilter_8u_C4R)};
    const F row3{"FilterRow 8u C3", 3, 3, Shape::Row, false, ROW_DIV(rokiFilterRow_8u_C3R)};
    const F ac4{"Filter 8u AC4", 4, 3, Shape::TwoD, false, F2_DIV(rokiFilter_8u_AC4R)};
    std::uint32_t seed = 700;
    for (int w = 1; w <= 70; ++w) {
        const int divisor = kDivisors[std::size_t(w) % kDivisors.size()];
        const rokt::Guard g = w % 2 ? rokt::Guard::After : rokt::Guard::Before;
        check(col, Config{w, 2, 1, 3 + w % 3, 0, w % 5, divisor}, seed++, g);
        check(c3, Config{w, 2, 3, 3, w % 3, (w / 3) % 3, divisor}, seed++, g);
        check(c4, Config{w, 2, 2 + w % 4, 2, w % 2, 1, divisor}, seed++, g);
        check(row3, Config{w, 2, 4 + w % 2, 1, w % 4, 0, divisor}, seed++, g);
        check(ac4, Config{w, 2, 3, 2, w % 3, w % 2, divisor}, seed++, g);
    }
    // The first taps summed are the last stored.
    std::vector<int> limit(9, 0), past(9, 0);
    limit[8] = 64, limit[7] = 64, limit[0] = -1;  // a pair of 64 + 64
    past = limit, past[7] = 65;                   // one past the bound
    struct Case {
        const F* form;
        int w, h, kw, kh;
        std::vector<int> kernel;
        int divisor;
    };
    const std::vector<int> column5 = {1, 4, 6, 4, 1};
    const Case cases[] = {
        {&c3, 40, 4, 3, 3, limit, 3},           {&c3, 40, 4, 3, 3, past, 3},
        {&c3, 400, 300, 3, 3, smoothing(3), 17}, {&c4, 600, 250, 5, 5, smoothing(5), 257},
        {&col, 300, 200, 1, 5, column5, 16},     {&c3, 300, 200, 3, 3, limit, 1},
        {&ac4, 300, 200, 3, 3, smoothing(3), 17}, {&ac4, 45, 5, 3, 3, past, 5},
    };
    for (const Case& c : cases)
        for (int threads : {1, 2}) {
            WithThreads with(threads);
            Config cfg{c.w, c.h, c.kw, c.kh, c.kw / 2, c.kh / 2, c.divisor};
            cfg.kernel = c.kernel;
            check(*c.form, cfg, seed++, threads == 1 ? rokt::Guard::After : rokt::Guard::Before);
        }
}

// The rounding-mode forms take the byte-pair paths where a 16-bit finish
// holds (toward zero and ties away always, ties to even with odd divisors)
// and the other paths elsewhere: every mode at divisors 1, 16, 17 and 10
// on images large enough for the check.
TEST(Filter, BytePairRoundingModes8u) {
    using F = Form<Rok8u, Rok8u, Rok16s>;
    const F c1{"Round16s 8u C1", 1, 1, Shape::TwoD, true, F2_RDIV(rokiFilter_Round16s_8u_C1R),
               rokiFilterRoundGetBufSize16s_8u_C1R};
    const F c3{"Round16s 8u C3", 3, 3, Shape::TwoD, true, F2_RDIV(rokiFilter_Round16s_8u_C3R),
               rokiFilterRoundGetBufSize16s_8u_C3R};
    const F ac4{"Round16s 8u AC4", 4, 3, Shape::TwoD, true, F2_RDIV(rokiFilter_Round16s_8u_AC4R),
                rokiFilterRoundGetBufSize16s_8u_AC4R};
    std::uint32_t seed = 800;
    for (int mode : {0, 1, 2})
        for (int divisor : {1, 16, 17, 10}) {
            Config cfg{600, 500, 3, 3, 1, 1, divisor, mode};
            cfg.kernel = smoothing(3);
            check(c1, cfg, seed++);
            cfg.w = 350, cfg.h = 300;
            check(c3, cfg, seed++, rokt::Guard::Before);
            cfg.w = 300, cfg.h = 250;
            check(ac4, cfg, seed++);
        }
}

// The 16-bit finishes, wherever they are offered, equal the rule for every
// sum they may meet; and they are offered for the common smoothing divisors.
TEST(FilterRules, BytePairFixedFinish) {
    using rok::kernels::Form16;
    using rok::kernels::IntFinish;
    // The rule of divisor d and mode (-1: the plain filter's).
    auto rule_for = [](int d, int mode = -1) {
        rok::kernels::IntRule rule;
        rule.divisor = d;
        if (d == 1) {
            rule.kind = IntFinish::Saturate;
        } else if (power_of_two(d)) {
            rule.shift = __builtin_ctz(unsigned(d));
            rule.kind = mode == 0 ? IntFinish::TruncShift : mode == 2 ? IntFinish::HalfAwayShift : IntFinish::ShiftEven;
        } else {
            rule.kind = mode < 0    ? IntFinish::Reciprocal
                        : mode == 0 ? IntFinish::TruncDivide
                        : mode == 1 ? IntFinish::DoubleEven
                                    : IntFinish::HalfAwayDivide;
            rule.reciprocal = 1.0f / float(d);
        }
        return rule;
    };
    struct Range {
        int lowest, highest;
    };
    const Range ranges[] = {{0, 4590},      {0, 65535}, {-255, 32640}, {-65535, 0},
                            {-30000, 35535}, {-10, 10},  {-1020, 2040}, {-4080, 8160}};
    int offered[3] = {};
    for (int mode : {-1, 0, 1, 2})
        for (int d : {1, 2, 4, 16, 256, 1024, 32768, 3, 5, 7, 17, 45, 100, 255, 257, 1000, 32767, 65535, 65537, 100000,
                      -3, -17, -16, 10, 6})
            for (const Range& r : ranges) {
                const auto f = rok::kernels::byte_pair_finish(rule_for(d, mode), r.lowest, r.highest);
                if (f.form == Form16::None) continue;
                ++offered[int(f.form)];
                for (int s = r.lowest; s <= r.highest; ++s) {
                    const unsigned v = std::min(unsigned(s - r.lowest), unsigned(f.hi));
                    unsigned q;
                    if (f.form == Form16::Multiply)
                        q = (((v + f.add) & 0xFFFFu) * f.mul >> 16) >> f.shift;
                    else
                        q = ((v + f.add + (((v >> f.shift) ^ f.parity) & f.odd)) & 0xFFFFu) >> f.shift;
                    const int r16 = std::int16_t(std::uint16_t(q - std::uint16_t(f.sub)));
                    const int got = r16 < 0 ? 0 : r16 > 255 ? 255 : r16;
                    ASSERT_EQ(got, finish_int<Rok8u>(s, d, mode)) << "divisor " << d << " mode " << mode << " sum " << s;
                }
            }
    EXPECT_GT(offered[int(Form16::Multiply)], 80);
    EXPECT_GT(offered[int(Form16::Shift)], 80);
    for (int d : {1, 16, 17, 256, 257})
        EXPECT_NE(rok::kernels::byte_pair_finish(rule_for(d), 0, 255 * std::min(d, 257)).form, Form16::None) << d;
}

// ---- threads, checks, buffer sizes, decimation ----------------------------

TEST(Filter, SameResultsAtOneAndTwoThreads) {
    const Config c{100, 70, 5, 5, 2, 2, 25};
    {
        WithThreads two(2);
        check(Form<Rok8u, Rok8u, Rok32s>{"Filter 8u C1", 1, 1, Shape::TwoD, false, F2_DIV(rokiFilter_8u_C1R)}, c, 3);
        check(Form<Rok32f, Rok32f, Rok32f>{"Filter 32f C3", 3, 3, Shape::TwoD, false, F2_PLAIN(rokiFilter_32f_C3R)}, c, 4);
        Config r = c;
        r.mode = 2;
        check(Form<Rok16s, Rok16s, Rok32s>{"Round32s 16s AC4", 4, 3, Shape::TwoD, true,
                                           F2_RDIV(rokiFilter_Round32s_16s_AC4R), rokiFilterRoundGetBufSize32s_16s_AC4R},
              r, 5);
    }
    // Byte-for-byte equality between thread counts on a larger image.
    GuardedImage<Rok8u> src(204, 131, 3);
    rokt::fill_random(src, 11);
    const Rok32s k[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
    std::vector<std::uint8_t> results[2];
    for (int t = 1; t <= 2; ++t) {
        WithThreads with(t);
        GuardedImage<Rok8u> dst(200, 127, 3);
        ASSERT_EQ(rokiFilter_8u_C3R(&src.at(2, 2), src.step(), dst.data(), dst.step(), {200, 127}, k, {3, 3}, {0, 0}, 16),
                  rokStatusOk);
        results[t - 1] = dst.bytes();
    }
    EXPECT_EQ(results[0], results[1]);
}

TEST(Filter, ChecksInOrderWriteNothing) {
    GuardedImage<Rok8u> src(12, 6, 1);
    GuardedImage<Rok8u> dst(10, 4, 1);
    dst.fill_bytes(0x3C);
    const auto before = dst.bytes();
    const Rok32s k[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    const Rok16s k16[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    std::vector<Rok8u> buf(4096);
    const Rok8u* s = src.data();
    Rok8u* d = dst.data();
    const RokiSize roi{10, 4}, ks{3, 3};
    const RokiPoint a{1, 1};
    const int ss = 12, ds = 10;
    const RokStatus got[][2] = {
        {rokStatusNullPtr, rokiFilter_8u_C1R(s, ss, d, ds, roi, nullptr, {0, 0}, a, 0)},
        {rokStatusNullPtr, rokiFilter_8u_C1R(nullptr, ss, d, ds, roi, k, ks, a, 1)},
        {rokStatusBadSize, rokiFilter_8u_C1R(s, ss, d, ds, {10, 0}, k, ks, a, 0)},
        {rokStatusBadSize, rokiFilter_8u_C1R(s, ss, d, ds, roi, k, {3, 0}, a, 0)},
        {rokStatusBadSize, rokiFilterRow_8u_C1R(s, ss, d, ds, roi, k, 0, 0, 0)},
        {rokStatusBadFilterDivisor, rokiFilter_8u_C1R(s, 0, d, ds, roi, k, ks, a, 0)},
        {rokStatusBadStep, rokiFilter_8u_C1R(s, ss - 1, d, ds, roi, k, ks, a, 1)},
        {rokStatusBadStep, rokiFilter_8u_C1R(s, ss, d, ds - 1, roi, k, ks, a, 1)},
        {rokStatusBadStep, rokiFilter_8u_C3R(s, 3 * (10 + 3 - 1) - 1, d, 30, {10, 1}, k, ks, a, 1)},
        {rokStatusBadStep, rokiFilter_Round16s_8u_C1R(s, ss - 1, d, ds, roi, k16, ks, a, 1, 3, nullptr)},
        {rokStatusBadRoundMode, rokiFilter_Round16s_8u_C1R(s, ss, d, ds, roi, k16, ks, a, 1, 3, nullptr)},
        {rokStatusBadRoundMode, rokiFilter_Round16s_8u_C1R(s, ss, d, ds, roi, k16, ks, a, 1, -1, buf.data())},
        {rokStatusNullPtr, rokiFilter_Round16s_8u_C1R(s, ss, d, ds, roi, k16, ks, a, 1, 2, nullptr)},
        {rokStatusBadFilterDivisor, rokiFilter_Round16s_8u_C1R(s, ss, d, ds, roi, k16, ks, a, 0, 3, nullptr)},
        {rokStatusBadDecimation, rokiDecimateFilterRow_8u_C1R(s, ss, {10, 4}, d, ds, k, 3, 1, 1, 1)},
        {rokStatusBadFilterDivisor, rokiDecimateFilterColumn_8u_C1R(s, ss, {10, 4}, d, ds, k, 3, 1, 0, 1)},
        {rokStatusBadStep, rokiDecimateFilterRow_8u_C1R(s, 11, {10, 4}, d, ds, k, 3, 1, 1, 2)},
    };
    for (std::size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i][1], got[i][0]) << "check " << i;
    EXPECT_EQ(dst.bytes(), before);
}

TEST(Filter, RoundBufferSizesScaleWithThreads) {
    using Fn = RokStatus (*)(RokiSize, int, int*);
    struct Row {
        Fn fn;
        long long perThread;  // kernel 3x5, width 100
    };
    const long long kk = 15, w = 100;
    const Row rows[] = {
        {rokiFilterRoundGetBufSize16s_8u_C1R, (4 * kk + w) * 4 + 15},
        {rokiFilterRoundGetBufSize16s_8u_C3R, (4 * kk + 3 * w) * 4 + 15},
        {rokiFilterRoundGetBufSize16s_8u_C4R, (kk + w) * 16 + 15},
        {rokiFilterRoundGetBufSize16s_8u_AC4R, (kk + w) * 16 + 15},
        {rokiFilterRoundGetBufSize32s_16s_C1R, (4 * kk + w) * 4 + 31},
        {rokiFilterRoundGetBufSize32s_16u_C3R, (4 * kk + 3 * w) * 4 + 31},
        {rokiFilterRoundGetBufSize32s_16u_AC4R, (kk + w) * 16 + 31},
        {rokiFilterRoundGetBufSize32f_8u_C1R, (4 * kk + w) * 4 + 15},
        {rokiFilterRoundGetBufSize32f_16s_C3R, (4 * kk + 3 * w) * 4 + 15},
        {rokiFilterRoundGetBufSize32f_8u_C4R, (4 * kk + 8 * w) * 4 + 15},
        {rokiFilterRoundGetBufSize32f_16u_AC4R, (4 * kk + 8 * w) * 4 + 15},
    };
    for (int t : {1, 2, 3}) {
        WithThreads with(t);
        for (const Row& r : rows) {
            int size = -1;
            ASSERT_EQ(r.fn({3, 5}, 100, &size), rokStatusOk);
            EXPECT_EQ(size, r.perThread * t) << t << " threads";
        }
    }
    int size = 77;
    EXPECT_EQ(rokiFilterRoundGetBufSize16s_8u_C1R({3, 5}, 0, &size), rokStatusBadSize);
    EXPECT_EQ(rokiFilterRoundGetBufSize16s_8u_C1R({0, 5}, 10, &size), rokStatusBadSize);
    EXPECT_EQ(rokiFilterRoundGetBufSize16s_8u_C1R({3, 5}, 10, nullptr), rokStatusNullPtr);
    // Sizes whose products pass 2^63 on the way are refused, not wrapped.
    EXPECT_EQ(rokiFilterRoundGetBufSize32f_8u_C1R({1 << 30, 1 << 30}, 1 << 30, &size), rokStatusBadSize);
    EXPECT_EQ(rokiFilterRoundGetBufSize16s_8u_C4R({1 << 15, 1 << 15}, INT_MAX, &size), rokStatusBadSize);
    EXPECT_EQ(size, 77);
    EXPECT_EQ(rokiFilterGetBufSize_64f_C1R({3, 5}, 10, &size), rokStatusOk);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(rokiFilterGetBufSize_64f_C1R({3, -1}, 10, &size), rokStatusBadSize);
}

TEST(Filter, DecimationKeepsEveryFactorthFilteredPixel) {
    const Rok32s k[5] = {1, 3, 5, 2, 1};
    for (int factor : {2, 3, 5}) {
        for (int w : {1, 7, 33, 50}) {
            const int h = 9;
            // Row form: full rows of w + 4 samples.
            GuardedImage<Rok8u> src(w + 4, h + 4, 1, 1);
            rokt::fill_random(src, unsigned(w * factor));
            const int dw = (w + factor - 1) / factor, dh = (h + factor - 1) / factor;
            GuardedImage<Rok8u> rowDst(dw, h, 1);
            ASSERT_EQ(rokiDecimateFilterRow_8u_C1R(&src.at(3, 0), src.step(), {w, h}, rowDst.data(), rowDst.step(), k, 5,
                                                   1, 12, factor),
                      rokStatusOk);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < dw; ++x) {
                    std::int64_t s = 0;
                    for (int i = 0; i < 5; ++i) s += k[i] * src.at(3 + x * factor + 1 - i, y);
                    EXPECT_EQ(rowDst.at(x, y), finish_int<Rok8u>(s, 12, -1)) << "row form " << x << "," << y;
                }
            GuardedImage<Rok8u> colDst(w, dh, 1);
            ASSERT_EQ(rokiDecimateFilterColumn_8u_C1R(&src.at(0, 3), src.step(), {w, h}, colDst.data(), colDst.step(), k,
                                                      5, 1, 16, factor),
                      rokStatusOk);
            for (int y = 0; y < dh; ++y)
                for (int x = 0; x < w; ++x) {
                    std::int64_t s = 0;
                    for (int j = 0; j < 5; ++j) s += k[j] * src.at(x, 3 + y * factor + 1 - j);
                    EXPECT_EQ(colDst.at(x, y), finish_int<Rok8u>(s, 16, -1)) << "column form " << x << "," << y;
                }
        }
    }
}

}  // namespace

namespace {

// Every member, one small case each with a tail past the vector block: the
// layouts' channel counts and alpha handling, the types and the wiring of
// each export.
template <class S, class D, class K>
void each(const char* name, int nc, int processed, Shape shape, bool rounding, FilterFn<S, D, K> fn,
          RokStatus (*bufsize)(RokiSize, int, int*) = nullptr) {
    const Form<S, D, K> f{name, nc, processed, shape, rounding, std::move(fn), bufsize};
    check(f, Config{21, 3, 3, 2, 1, 0, 3, 2}, 77);
    check(f, Config{18, 2, 2, 3, 0, 2, 4, 0}, 78, rokt::Guard::Before);
}

#define FOUR(W, SHAPE, ROUND, fam, T, S, D, K)                                       \
    each<S, D, K>(#fam "_" #T "_C1R", 1, 1, SHAPE, ROUND, W(fam##_##T##_C1R));   \
    each<S, D, K>(#fam "_" #T "_C3R", 3, 3, SHAPE, ROUND, W(fam##_##T##_C3R));   \
    each<S, D, K>(#fam "_" #T "_C4R", 4, 4, SHAPE, ROUND, W(fam##_##T##_C4R));   \
    each<S, D, K>(#fam "_" #T "_AC4R", 4, 3, SHAPE, ROUND, W(fam##_##T##_AC4R))
#define THREE(W, fam, T, S, D, K)                                                      \
    each<S, D, K>(#fam "_" #T "_C1R", 1, 1, Shape::TwoD, false, W(fam##_##T##_C1R)); \
    each<S, D, K>(#fam "_" #T "_C3R", 3, 3, Shape::TwoD, false, W(fam##_##T##_C3R)); \
    each<S, D, K>(#fam "_" #T "_C4R", 4, 4, Shape::TwoD, false, W(fam##_##T##_C4R))
#define FOUR_ROUND(W, fam, T, S, K, kind)                                                                          \
    each<S, S, K>(#fam "_" #T "_C1R", 1, 1, Shape::TwoD, true, W(fam##_##T##_C1R),                                \
                  rokiFilterRoundGetBufSize##kind##_##T##_C1R);                                                    \
    each<S, S, K>(#fam "_" #T "_C3R", 3, 3, Shape::TwoD, true, W(fam##_##T##_C3R),                                \
                  rokiFilterRoundGetBufSize##kind##_##T##_C3R);                                                    \
    each<S, S, K>(#fam "_" #T "_C4R", 4, 4, Shape::TwoD, true, W(fam##_##T##_C4R),                                \
                  rokiFilterRoundGetBufSize##kind##_##T##_C4R);                                                    \
    each<S, S, K>(#fam "_" #T "_AC4R", 4, 3, Shape::TwoD, true, W(fam##_##T##_AC4R),                              \
                  rokiFilterRoundGetBufSize##kind##_##T##_AC4R)

TEST(Filter, EveryMemberOnASmallCase) {
    FOUR(F2_DIV, Shape::TwoD, false, rokiFilter, 8u, Rok8u, Rok8u, Rok32s);
    FOUR(F2_DIV, Shape::TwoD, false, rokiFilter, 16s, Rok16s, Rok16s, Rok32s);
    FOUR(F2_DIV, Shape::TwoD, false, rokiFilter, 16u, Rok16u, Rok16u, Rok32s);
    FOUR(F2_PLAIN, Shape::TwoD, false, rokiFilter, 32f, Rok32f, Rok32f, Rok32f);
    each<Rok64f, Rok64f, Rok64f>("rokiFilter_64f_C1R", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter_64f_C1R));
    FOUR(F2_PLAIN, Shape::TwoD, false, rokiFilter32f, 8u, Rok8u, Rok8u, Rok32f);
    FOUR(F2_PLAIN, Shape::TwoD, false, rokiFilter32f, 16s, Rok16s, Rok16s, Rok32f);
    FOUR(F2_PLAIN, Shape::TwoD, false, rokiFilter32f, 16u, Rok16u, Rok16u, Rok32f);
    THREE(F2_PLAIN, rokiFilter32f, 32s, Rok32s, Rok32s, Rok32f);
    THREE(F2_PLAIN, rokiFilter32f, 8s, Rok8s, Rok8s, Rok32f);
    THREE(F2_PLAIN, rokiFilter32f, 8u16s, Rok8u, Rok16s, Rok32f);
    THREE(F2_PLAIN, rokiFilter32f, 8s16s, Rok8s, Rok16s, Rok32f);
    FOUR_ROUND(F2_RDIV, rokiFilter_Round16s, 8u, Rok8u, Rok16s, 16s);
    FOUR_ROUND(F2_RDIV, rokiFilter_Round32s, 16s, Rok16s, Rok32s, 32s);
    FOUR_ROUND(F2_RDIV, rokiFilter_Round32s, 16u, Rok16u, Rok32s, 32s);
    FOUR_ROUND(F2_RF, rokiFilter_Round32f, 8u, Rok8u, Rok32f, 32f);
    FOUR_ROUND(F2_RF, rokiFilter_Round32f, 16s, Rok16s, Rok32f, 32f);
    FOUR_ROUND(F2_RF, rokiFilter_Round32f, 16u, Rok16u, Rok32f, 32f);
}

TEST(Filter, EveryOneDimensionalMemberOnASmallCase) {
    FOUR(ROW_DIV, Shape::Row, false, rokiFilterRow, 8u, Rok8u, Rok8u, Rok32s);
    FOUR(ROW_DIV, Shape::Row, false, rokiFilterRow, 16s, Rok16s, Rok16s, Rok32s);
    FOUR(ROW_DIV, Shape::Row, false, rokiFilterRow, 16u, Rok16u, Rok16u, Rok32s);
    FOUR(ROW_PLAIN, Shape::Row, false, rokiFilterRow, 32f, Rok32f, Rok32f, Rok32f);
    each<Rok64f, Rok64f, Rok64f>("rokiFilterRow_64f_C1R", 1, 1, Shape::Row, false, ROW_PLAIN(rokiFilterRow_64f_C1R));
    FOUR(COL_DIV, Shape::Column, false, rokiFilterColumn, 8u, Rok8u, Rok8u, Rok32s);
    FOUR(COL_DIV, Shape::Column, false, rokiFilterColumn, 16s, Rok16s, Rok16s, Rok32s);
    FOUR(COL_DIV, Shape::Column, false, rokiFilterColumn, 16u, Rok16u, Rok16u, Rok32s);
    FOUR(COL_PLAIN, Shape::Column, false, rokiFilterColumn, 32f, Rok32f, Rok32f, Rok32f);
    each<Rok64f, Rok64f, Rok64f>("rokiFilterColumn_64f_C1R", 1, 1, Shape::Column, false,
                                 COL_PLAIN(rokiFilterColumn_64f_C1R));
    FOUR(ROW_PLAIN, Shape::Row, false, rokiFilterRow32f, 8u, Rok8u, Rok8u, Rok32f);
    FOUR(ROW_PLAIN, Shape::Row, false, rokiFilterRow32f, 16s, Rok16s, Rok16s, Rok32f);
    FOUR(ROW_PLAIN, Shape::Row, false, rokiFilterRow32f, 16u, Rok16u, Rok16u, Rok32f);
    FOUR(COL_PLAIN, Shape::Column, false, rokiFilterColumn32f, 8u, Rok8u, Rok8u, Rok32f);
    FOUR(COL_PLAIN, Shape::Column, false, rokiFilterColumn32f, 16s, Rok16s, Rok16s, Rok32f);
    FOUR(COL_PLAIN, Shape::Column, false, rokiFilterColumn32f, 16u, Rok16u, Rok16u, Rok32f);
}

}  // namespace

namespace {

// A float destination larger than the core's cache takes streaming stores
// (after an ordinary head up to the first 32-byte boundary).
TEST(Filter, LargeFloatDestinations) {
    check(Form<Rok32f, Rok32f, Rok32f>{"Filter 32f C1", 1, 1, Shape::TwoD, false, F2_PLAIN(rokiFilter_32f_C1R)},
          Config{1029, 1030, 3, 3, 1, 1}, 41);
    check(Form<Rok32f, Rok32f, Rok32f>{"FilterRow 32f C3", 3, 3, Shape::Row, false, ROW_PLAIN(rokiFilterRow_32f_C3R)},
          Config{1025, 300, 7, 1, 3, 0}, 42);
}

}  // namespace
