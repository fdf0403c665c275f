// Sqrt, Ln and Exp. Integers: every sample value at scale factors across
// each cut-off against exact references (integer square-root bounds,
// extended-precision ln and e^x); single precision: the stated 1 ulp over a
// sweep of the whole float range with denormals, infinities and NaN, the
// square root exact. Every export over widths 1..70 and wider rows, odd
// steps, guarded buffers, AC4 alpha, in place; warnings 7 and 8 and their
// precedence; the check orders.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "guarded.h"
#include "pixel_support.h"
#include "threads.h"
#include "unary_cases.h"

namespace rokt::pixel {
namespace {

#define LAYOUTS_C1C3(M, F, OP, t) M(F, OP, t, C1, 1, false) M(F, OP, t, C3, 3, false)
#define LAYOUTS_SQRT(M, F, OP, t) M(F, OP, t, C1, 1, false) M(F, OP, t, C3, 3, false) M(F, OP, t, AC4, 4, true)
#define INT_TYPES(LAY, F, OP) LAY(ROKT_UNARY_SFS, F, OP, 8u) LAY(ROKT_UNARY_SFS, F, OP, 16u) LAY(ROKT_UNARY_SFS, F, OP, 16s)

void register_math() {
    static bool done = false;
    if (done) return;
    done = true;
    INT_TYPES(LAYOUTS_SQRT, Sqrt, Unary::Sqrt) LAYOUTS_SQRT(ROKT_UNARY, Sqrt, Unary::Sqrt, 32f)
    ROKT_UNARY_IR(Sqrt, Unary::Sqrt, 32f, C4, 4, false)
    INT_TYPES(LAYOUTS_C1C3, Ln, Unary::Ln) LAYOUTS_C1C3(ROKT_UNARY, Ln, Unary::Ln, 32f)
    INT_TYPES(LAYOUTS_C1C3, Exp, Unary::Exp) LAYOUTS_C1C3(ROKT_UNARY, Exp, Unary::Exp, 32f)
}

using Wide = __int128;

template <class T>
T saturate_ld(long double y) {
    if (y <= std::numeric_limits<T>::min()) return std::numeric_limits<T>::min();
    if (y >= std::numeric_limits<T>::max()) return std::numeric_limits<T>::max();
    return T(y);
}

// The integer nearest sqrt(x) 2^-sf, ties to even, from exact integer
// bounds: r is nearest to sqrt(A) / B when ((2r - 1) B)^2 <= 4A <= ((2r + 1) B)^2.
template <class T>
T sqrt_ref(T x, int sf) {
    if (x <= 0) return 0;
    if (sf > 40) return 0;
    if (sf < -40) return std::numeric_limits<T>::max();
    const Wide a = sf < 0 ? Wide(x) << (-2 * sf) : Wide(x), b = sf > 0 ? Wide(1) << sf : Wide(1);
    Wide r = Wide(std::floor(std::sqrt(static_cast<long double>(a)) / static_cast<long double>(b) + 0.5L));
    auto below = [&](Wide c) { return ((2 * c + 1) * b) * ((2 * c + 1) * b) < 4 * a; };   // r = c is too small
    auto above = [&](Wide c) { return c > 0 && ((2 * c - 1) * b) * ((2 * c - 1) * b) > 4 * a; };
    while (below(r)) ++r;
    while (above(r)) --r;
    // A tie with a neighbour goes to the even one.
    if (r % 2 == 1 && ((2 * r - 1) * b) * ((2 * r - 1) * b) == 4 * a) --r;
    else if (r % 2 == 1 && ((2 * r + 1) * b) * ((2 * r + 1) * b) == 4 * a) ++r;
    return r > Wide(std::numeric_limits<T>::max()) ? std::numeric_limits<T>::max() : T(r);
}

// ln in extended precision; no integer above 1 has a logarithm at a tie.
long double ln_of(long long x) {
    static const std::vector<long double> table = [] {
        std::vector<long double> t(65536);
        for (int v = 1; v < 65536; ++v) t[v] = std::log(static_cast<long double>(v));
        return t;
    }();
    return table[std::size_t(x)];
}
template <class T>
T ln_ref(T x, int sf) {
    if (x == 0) return std::numeric_limits<T>::min();
    if (x < 0) return 0;
    const long double y = std::ldexp(ln_of(x), -std::clamp(sf, -100, 100));
    return saturate_ld<T>(std::floor(y + 0.5L));
}

// e^x 2^-sf in extended precision through the logarithm of the result, so
// large arguments do not overflow; e^0 2^-sf is a power of two and rounds
// half to even (2^-1 gives 0), no other argument gives a tie.
template <class T>
T exp_ref(T x, int sf) {
    const long double log_result = static_cast<long double>(x) - static_cast<long double>(sf) * std::log(2.0L);
    if (log_result > 12.0L) return std::numeric_limits<T>::max();
    if (log_result < -2.0L) return 0;
    if (x == 0 && sf == 1) return 0;
    return saturate_ld<T>(std::floor(std::exp(log_result) + 0.5L));
}

template <class T>
T int_ref(Unary op, T x, int sf) {
    return op == Unary::Sqrt ? sqrt_ref(x, sf) : op == Unary::Ln ? ln_ref(x, sf) : exp_ref(x, sf);
}

// Every value of the type at once in one row, each scale factor.
template <class T>
void every_value(Unary op, RokStatus (*fn)(const T*, int, T*, int, RokiSize, int)) {
    std::vector<T> all;
    for (long long v = std::numeric_limits<T>::min(); v <= std::numeric_limits<T>::max(); ++v) all.push_back(T(v));
    const int n = int(all.size());
    std::vector<T> out(n + 16);
    // Every scale factor from saturating everything to rounding everything to
    // 0 for 8u; for 16 bits those around each type's cut-offs.
    std::vector<int> sfs = {-3000, -41, -40, -39, 39, 40, 41, 3000};
    if (sizeof(T) == 1)
        for (int sf = -20; sf <= 16; ++sf) sfs.push_back(sf);
    else
        sfs.insert(sfs.end(), {-17, -16, -15, -9, -8, -3, -1, 0, 1, 2, 4, 8, 9, 10, 16});
    for (int sf : sfs)
        for (int offset : {sf & 1}) {  // the destination on both alignments, in turn
            const RokStatus st = fn(all.data(), n * int(sizeof(T)), out.data() + offset, n * int(sizeof(T)), {n, 1}, sf);
            if (op == Unary::Ln) EXPECT_EQ(st, std::is_signed_v<T> ? rokStatusLnNegArg : rokStatusLnZeroArg);
            else EXPECT_EQ(st, rokStatusOk);
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(out[i + offset], int_ref(op, all[i], sf)) << "x=" << +all[i] << " sf=" << sf;
        }
}

TEST(Math, IntegerSqrtEveryValue) {
    every_value<Rok8u>(Unary::Sqrt, rokiSqrt_8u_C1RSfs);
    every_value<Rok16u>(Unary::Sqrt, rokiSqrt_16u_C1RSfs);
    every_value<Rok16s>(Unary::Sqrt, rokiSqrt_16s_C1RSfs);
}
TEST(Math, IntegerLnEveryValue) {
    every_value<Rok8u>(Unary::Ln, rokiLn_8u_C1RSfs);
    every_value<Rok16u>(Unary::Ln, rokiLn_16u_C1RSfs);
    every_value<Rok16s>(Unary::Ln, rokiLn_16s_C1RSfs);
}
TEST(Math, IntegerExpEveryValue) {
    every_value<Rok8u>(Unary::Exp, rokiExp_8u_C1RSfs);
    every_value<Rok16u>(Unary::Exp, rokiExp_16u_C1RSfs);
    every_value<Rok16s>(Unary::Exp, rokiExp_16s_C1RSfs);
}

// The distance from the exact value in units of the last place of a float
// at that value (denormal spacing below the smallest normal).
double ulps(float got, double exact) {
    const double a = std::fabs(exact);
    int e = 0;
    std::frexp(a, &e);
    const double ulp = a < std::ldexp(1.0, -126) ? std::ldexp(1.0, -149) : std::ldexp(1.0, e - 24);
    return std::fabs(double(got) - exact) / ulp;
}

// The float result against the double one: NaN for NaN, equal infinities,
// otherwise within `limit` ulps (a result whose exact value overflows may
// also be the largest float, within 1 ulp of it).
::testing::AssertionResult within(float x, float got, double exact, double limit) {
    if (std::isnan(exact)) return std::isnan(got) ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << "want NaN";
    if (std::isinf(float(exact)) || std::isinf(got)) {
        if (got == float(exact)) return ::testing::AssertionSuccess();
        if (std::isinf(float(exact)) && std::fabs(got) == std::numeric_limits<float>::max()) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "x=" << x << " got " << got << " want " << exact;
    }
    const double e = ulps(got, exact);
    if (e <= limit) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "x=" << std::hexfloat << x << " got " << got << " want " << exact << std::defaultfloat << " (" << e << " ulp)";
}

// A sweep of every bit pattern in steps of a prime (65,000 values with every
// exponent and both signs), the denormals at the edges, and the specials.
std::vector<float> float_sweep() {
    std::vector<float> v;
    for (std::uint64_t b = 0; b < (1ull << 32); b += 65521) v.push_back(std::bit_cast<float>(std::uint32_t(b)));
    for (std::uint32_t b : {0x00000001u, 0x00000002u, 0x000FFFFFu, 0x007FFFFFu, 0x00800000u, 0x80000001u, 0x807FFFFFu,
                            0x7F7FFFFFu, 0xFF7FFFFFu, 0x7F800000u, 0xFF800000u, 0x7FC00000u, 0xFFC00000u, 0x7F800001u,
                            0x3F800000u, 0x3F800001u, 0x3F7FFFFFu, 0x00000000u, 0x80000000u})
        v.push_back(std::bit_cast<float>(b));
    // Exp's largest error (0.983 ulp) is at -0x1.d27d14p+4.
    for (float x : {88.7228317f, 88.7228394f, 88.72284f, -87.3365479f, -103.278931f, -103.972084f, -104.0f, -150.0f, 1e-30f, -1e-30f,
                    -0x1.d27d14p+4f})
        v.push_back(x);
    return v;
}

TEST(Math, FloatAccuracyOverTheWholeRange) {
    const std::vector<float> xs = float_sweep();
    const int n = int(xs.size());
    std::vector<float> out(n);
    ASSERT_EQ(rokiExp_32f_C1R(xs.data(), n * 4, out.data(), n * 4, {n, 1}), rokStatusOk);
    for (int i = 0; i < n; ++i) ASSERT_TRUE(within(xs[i], out[i], std::exp(double(xs[i])), 0.99)) << "exp";
    EXPECT_EQ(rokiLn_32f_C1R(xs.data(), n * 4, out.data(), n * 4, {n, 1}), rokStatusLnNegArg);
    for (int i = 0; i < n; ++i) ASSERT_TRUE(within(xs[i], out[i], std::log(double(xs[i])), 0.79)) << "ln";
    ASSERT_EQ(rokiSqrt_32f_C1R(xs.data(), n * 4, out.data(), n * 4, {n, 1}), rokStatusOk);
    for (int i = 0; i < n; ++i) {
        const float want = std::sqrt(xs[i]);
        ASSERT_TRUE(std::isnan(want) ? std::isnan(out[i]) : same_bits(out[i], want)) << xs[i];
    }
}

// Ln where its reduction changes table entry: every float within 48 of the
// bit patterns that start an interval (0.71875 times 2^(i/8) in bits, the
// mantissa's top three bits after the offset), at small, unit and large
// exponents and among the denormals, and the 6,000 floats around 1.
TEST(Math, FloatLnAtTheEdgesOfItsIntervals) {
    std::vector<float> xs;
    for (std::int64_t e : {-126, -100, -1, 0, 1, 60, 127})
        for (std::int64_t i = 0; i <= 8; ++i)
            for (std::int64_t d = -48; d <= 48; ++d) {
                const std::int64_t b = 0x3F380000 + (i << 20) + (e << 23) + d;
                if (b > 0 && b < 0x7F800000) xs.push_back(std::bit_cast<float>(std::uint32_t(b)));
            }
    for (std::int64_t d = -3000; d <= 3000; ++d) xs.push_back(std::bit_cast<float>(std::uint32_t(0x3F800000 + d)));
    const int n = int(xs.size());
    std::vector<float> out(n);
    ASSERT_EQ(rokiLn_32f_C1R(xs.data(), n * 4, out.data(), n * 4, {n, 1}), rokStatusOk);
    for (int i = 0; i < n; ++i) ASSERT_TRUE(within(xs[i], out[i], std::log(double(xs[i])), 0.79)) << i;
}

// A sample's result does not depend on its neighbours, which decide whether
// its vector takes the path for ordinary values or the one for special ones
// (NaN, 0, denormals, overflow), nor on its place in the row.
TEST(Math, FloatResultsDoNotDependOnNeighbours) {
    std::mt19937 rng(19);
    const int n = 203;
    std::vector<float> xs(n);
    for (float& x : xs) x = std::uniform_real_distribution<float>(-80.0f, 80.0f)(rng);
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), 0.0f, -1.0f, 1e-40f, 100.0f, -100.0f};
    for (auto fn : {rokiExp_32f_C1R, rokiLn_32f_C1R}) {
        std::vector<float> plain(n), mixed(n + 1);
        fn(xs.data(), n * 4, plain.data(), n * 4, {n, 1});
        for (int phase = 0; phase < 8; ++phase) {
            std::vector<float> in = xs;
            for (int i = phase; i < n; i += 8) in[i] = specials[i % 6];
            for (int shift : {0, 1}) {  // and one sample further along the destination
                fn(in.data(), n * 4, mixed.data() + shift, n * 4, {n, 1});
                for (int i = 0; i < n; ++i) {
                    if (i % 8 == phase) continue;
                    ASSERT_TRUE(same_bits(mixed[i + shift], plain[i])) << "x=" << xs[i];
                }
            }
        }
    }
}

// Images from 12 MiB of output are written past the cache: the same bits
// as row by row (too small to stream), aligned or not, and in place.
TEST(Math, FloatLargeImagesMatchRowByRow) {
    const int w = 2048, h = 1536, n = w * h;
    std::mt19937 rng(23);
    std::vector<float> xs(n + 1), whole(n + 1), rows(n + 1);
    for (float& x : xs) x = std::uniform_real_distribution<float>(-20.0f, 20.0f)(rng);
    using Fn = RokStatus (*)(const Rok32f*, int, Rok32f*, int, RokiSize);
    for (Fn fn : {Fn(rokiExp_32f_C1R), Fn(rokiLn_32f_C1R), Fn(rokiSqrt_32f_C1R)})
        for (int shift : {0, 1}) {
            fn(xs.data(), w * 4, whole.data() + shift, w * 4, {w, h});
            for (int y = 0; y < h; ++y) fn(xs.data() + y * w, w * 4, rows.data() + shift + y * w, w * 4, {w, 1});
            ASSERT_EQ(std::memcmp(whole.data() + shift, rows.data() + shift, std::size_t(n) * 4), 0) << shift;
        }
    std::vector<float> inPlace(xs.begin(), xs.begin() + n);
    rokiExp_32f_C1IR(inPlace.data(), w * 4, {w, h});
    rokiExp_32f_C1R(xs.data(), w * 4, whole.data(), w * 4, {w, h});
    EXPECT_EQ(std::memcmp(inPlace.data(), whole.data(), std::size_t(n) * 4), 0);
}

// Streamed rows go in chunks of a 4 KiB page with the pages ahead (in the
// row or the ROI rows after it) prefetched: lengths around the chunk and
// the prefetch distance (one row each, odd steps over several rows), and
// images large enough to be written past the cache, whole and with padded
// rows, all between protected pages, each sample within the stated bound
// and nothing written around the ROI.
TEST(Math, FloatLongRowsBetweenProtectedPages) {
    struct Shape { int w, h, pad; };
    const Shape shapes[] = {{1023, 1, 0}, {1024, 1, 0}, {1041, 1, 0}, {8189, 1, 0}, {9225, 1, 0}, {9286, 1, 0},
                            {9217, 3, 1}, {4099, 2, 3}, {4096, 800, 0}, {4097, 800, 5}};
    using Fn = RokStatus (*)(const Rok32f*, int, Rok32f*, int, RokiSize);
    struct Op { const char* name; Fn fn; float lo, hi; double (*ref)(double); double bound; };
    const Op ops[] = {{"exp", rokiExp_32f_C1R, -100.0f, 90.0f, [](double x) { return std::exp(x); }, 0.99},
                      {"ln", rokiLn_32f_C1R, 0.0f, 1e6f, [](double x) { return std::log(x); }, 0.79}};
    std::mt19937 rng(31);
    for (const Shape& sh : shapes) {
        GuardedImage<Rok32f> s(sh.w, sh.h, 1, sh.pad, Guard::Before), d(sh.w, sh.h, 1, sh.pad + 1);
        for (const Op& op : ops) {
            std::uniform_real_distribution<float> dist(op.lo, op.hi);
            for (int y = 0; y < sh.h; ++y)
                for (int x = 0; x < sh.w; ++x) s.at(x, y) = dist(rng) * (x % 5 == 0 ? 1e-3f : 1.0f);
            d.fill_bytes(0x5C);
            const auto before = d.bytes();
            ASSERT_GE(op.fn(s.data(), s.step(), d.data(), d.step(), {sh.w, sh.h}), rokStatusOk);
            const auto after = d.bytes();
            for (int y = 0; y < sh.h; ++y) {
                for (int x = 0; x < sh.w; ++x) {
                    ASSERT_TRUE(within(s.at(x, y), d.at(x, y), op.ref(double(s.at(x, y))), op.bound)) << op.name << " " << sh.w << "x" << sh.h;
                }
                if (y + 1 < sh.h) {  // the padding between rows stays as it was
                    for (std::size_t b = std::size_t(d.step()) * y + std::size_t(sh.w) * 4; b < std::size_t(d.step()) * (y + 1); ++b)
                        ASSERT_EQ(after[b], before[b]) << op.name << " " << sh.w << "x" << sh.h;
                }
            }
        }
    }
}

template <class T>
T math_ref(Unary op, T x, int sf) {
    if constexpr (std::is_same_v<T, Rok32f>) {
        (void)sf;
        return op == Unary::Sqrt ? std::sqrt(x) : op == Unary::Ln ? float(std::log(double(x))) : float(std::exp(double(x)));
    } else {
        return int_ref(op, x, sf);
    }
}

// Every export over the tail widths: integers exactly, floats within 1 ulp.
template <class T>
void run_every_math_export() {
    register_math();
    std::mt19937 rng(37);
    int found = 0;
    for (const auto& c : unary_cases<T>()) {
        if (c.op != Unary::Sqrt && c.op != Unary::Ln && c.op != Unary::Exp) continue;
        ++found;
        int k = 0;
        for (Roi roi : tail_rois()) {
            const int sf = c.scaled ? (k++ % 5) - 2 : 0;
            GuardedImage<T> s(roi.width, roi.height, c.channels, 1, Guard::Before), d(roi.width, roi.height, c.channels, 2);
            fill_edgy(s, rng);
            if constexpr (!std::is_floating_point_v<T>)  // Exp varies in a narrow window around the scale factor's point
                if (c.op == Unary::Exp)
                    for (int y = 0; y < roi.height; ++y)
                        for (int i = 0; i < roi.width * c.channels; i += 2) s.row(y)[i] = T(int(rng() % 24) - 6);
            d.fill_bytes(0x5C);
            const auto before = d.bytes();
            const RokStatus st = c.fn(s.data(), s.step(), d.data(), d.step(), {roi.width, roi.height}, sf);
            ASSERT_GE(st, rokStatusOk) << c.name;
            if constexpr (std::is_floating_point_v<T>) {
                if (c.op != Unary::Sqrt) {  // checked in ulps below
                    for (int y = 0; y < roi.height; ++y)
                        for (int x = 0; x < roi.width; ++x)
                            for (int ch = 0; ch < (c.ac4 ? 3 : c.channels); ++ch) {
                                const float in = s.at(x, y, ch);
                                ASSERT_TRUE(within(in, d.at(x, y, ch), c.op == Unary::Ln ? std::log(double(in)) : std::exp(double(in)),
                                                       c.op == Unary::Ln ? 0.79 : 0.99)) << c.name;
                            }
                    continue;
                }
            }
            ASSERT_TRUE(check_image(d, before, c.ac4, [&](int x, int y, int ch) { return math_ref(c.op, s.at(x, y, ch), sf); }))
                << c.name << " sf " << sf << " " << roi.width << "x" << roi.height;
        }
    }
    EXPECT_GT(found, 0);
}

TEST(Math, Every8uExport) { run_every_math_export<Rok8u>(); }
TEST(Math, Every16uExport) { run_every_math_export<Rok16u>(); }
TEST(Math, Every16sExport) { run_every_math_export<Rok16s>(); }
TEST(Math, Every32fExport) { run_every_math_export<Rok32f>(); }

TEST(Math, ExportCount) {
    register_math();
    auto count = [](const auto& cases) {
        int n = 0;
        for (const auto& c : cases) n += c.op == Unary::Sqrt || c.op == Unary::Ln || c.op == Unary::Exp;
        return n;
    };
    EXPECT_EQ(count(unary_cases<Rok8u>()) + count(unary_cases<Rok16u>()) + count(unary_cases<Rok16s>()) +
                  count(unary_cases<Rok32f>()),
              57);
}

// 8 wins over 7 wherever each arises; each alone; the whole ROI is written.
TEST(Math, LnWarnings) {
    Rok16s rows[3][4] = {{0, 5, 5, 5}, {5, 5, 5, 5}, {5, 5, -2, 5}}, out[3][4] = {};
    EXPECT_EQ(rokiLn_16s_C1RSfs(&rows[0][0], 8, &out[0][0], 8, {4, 3}, 0), rokStatusLnNegArg);
    EXPECT_EQ(out[0][0], -32768);
    EXPECT_EQ(out[2][2], 0);
    EXPECT_EQ(out[2][3], 2);  // ln 5 = 1.61
    EXPECT_EQ(rokiLn_16s_C1RSfs(&rows[0][0], 8, &out[0][0], 8, {4, 2}, 0), rokStatusLnZeroArg);
    EXPECT_EQ(rokiLn_16s_C1RSfs(&rows[1][0], 8, &out[1][0], 8, {4, 1}, 0), rokStatusOk);
    Rok8u z[3] = {1, 0, 7}, o[3] = {};
    EXPECT_EQ(rokiLn_8u_C3RSfs(z, 3, o, 3, {1, 1}, -2), rokStatusLnZeroArg);
    EXPECT_EQ(o[0], 0);
    EXPECT_EQ(o[1], 0);
    EXPECT_EQ(o[2], 8);  // 4 ln 7 = 7.78
    const float f[4] = {-0.0f, 2.0f, -1e-40f, 1.0f};
    float g[4];
    EXPECT_EQ(rokiLn_32f_C1R(f, 16, g, 16, {2, 1}), rokStatusLnZeroArg);  // -0.0 is zero, not negative
    EXPECT_EQ(rokiLn_32f_C1R(f, 16, g, 16, {4, 1}), rokStatusLnNegArg);   // a negative denormal
    EXPECT_EQ(rokiLn_32f_C1R(f + 1, 16, g, 16, {1, 1}), rokStatusOk);
}

TEST(Math, SqrtSameAtEveryThreadCount) {
    GuardedImage<Rok32f> s(5000, 3, 1), a(5000, 3, 1), b(5000, 3, 1);
    std::mt19937 rng(8);
    fill_edgy(s, rng);
    {
        WithThreads one(1);
        ASSERT_EQ(rokiSqrt_32f_C1R(s.data(), s.step(), a.data(), a.step(), {5000, 3}), rokStatusOk);
    }
    {
        WithThreads two(2);
        ASSERT_EQ(rokiSqrt_32f_C1R(s.data(), s.step(), b.data(), b.step(), {5000, 3}), rokStatusOk);
    }
    EXPECT_EQ(a.bytes(), b.bytes());
    EXPECT_TRUE(check_image(a, a.bytes(), false, [&](int x, int y, int) { return std::sqrt(s.at(x, y)); }));
}

TEST(Math, CheckOrder) {
    Rok8u s[2] = {}, d[2] = {9, 9};
    Rok32f f[2] = {}, g[2] = {9, 9};
    struct Row { const char* what; std::function<RokStatus()> call; RokStatus want; };
    const Row rows[] = {
        {"sqrt null", [&] { return rokiSqrt_8u_C1RSfs(nullptr, 0, d, 1, {0, 0}, 0); }, rokStatusNullPtr},
        {"sqrt size before step", [&] { return rokiSqrt_8u_C1RSfs(s, 0, d, 1, {0, 1}, 9); }, rokStatusBadSize},
        {"sqrt step before fill", [&] { return rokiSqrt_8u_C1RSfs(s, 1, d, 0, {1, 1}, 9); }, rokStatusBadStep},
        {"ln null", [&] { return rokiLn_32f_C1R(f, 4, nullptr, 4, {1, 1}); }, rokStatusNullPtr},
        {"ln size", [&] { return rokiLn_32f_C1IR(g, 4, {1, 0}); }, rokStatusBadSize},
        {"ln step", [&] { return rokiLn_8u_C3IRSfs(d, -3, {1, 1}, 0); }, rokStatusBadStep},
        {"exp null", [&] { return rokiExp_8u_C1RSfs(nullptr, 1, d, 1, {1, 1}, 0); }, rokStatusNullPtr},
        {"exp step", [&] { return rokiExp_32f_C1R(f, 0, g, 4, {1, 1}); }, rokStatusBadStep},
        {"sqrt c4 in place size", [&] { return rokiSqrt_32f_C4IR(g, 16, {0, 1}); }, rokStatusBadSize},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.call(), r.want) << r.what;
        ASSERT_EQ(d[0], 9) << r.what << ": written";
        ASSERT_EQ(g[0], 9) << r.what << ": written";
    }
}

}  // namespace
}  // namespace rokt::pixel
