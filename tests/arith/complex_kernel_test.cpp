// The vector bodies of the complex products and quotients and of the 32-bit
// part sums, against references written from the rules in wide arithmetic:
// every length 1..70, destinations at every 4-byte offset within a vector
// (so also complex samples that never align), misaligned sources, in place,
// rows against protected pages, every scale factor across the range and
// beyond, the overflow corners of the parts, and zero divisors.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "guarded.h"
#include "kernels/arith/arith.h"
#include "reference.h"

namespace {

using rok::kernels::ArithOp;
using rok::kernels::arith_row;
using rokt::ref::Wide;

// ---- references -------------------------------------------------------------

// b 2^-sf / a for the exact rational num / den (den > 0), rounded by mode
// (0 truncate, 1 half to even, 2 half away), saturated to 16 bits.
Rok16s ref_quotient(Wide num, Wide den, int sf, int mode) {
    if (num == 0) return 0;
    if (sf < 0) num *= Wide(1) << std::min(-sf, 80);
    else den <<= std::min(sf, 80);
    const bool neg = num < 0;
    const Wide m = neg ? -num : num;
    Wide q = m / den;
    const Wide r = m % den;
    if ((mode == 1 && (2 * r > den || (2 * r == den && q % 2 == 1))) || (mode == 2 && 2 * r >= den)) ++q;
    return rokt::ref::saturate<Rok16s>(neg ? -q : q);
}

Rok16sc ref_mul16(Rok16sc a, Rok16sc b, int sf) {
    const Wide ar = a.re, ai = a.im, br = b.re, bi = b.im;
    return {rokt::ref::scale<Rok16s>(ar * br - ai * bi, sf), rokt::ref::scale<Rok16s>(ar * bi + ai * br, sf)};
}

// b / a; a zero divisor gives each part of b saturated to its sign.
Rok16sc ref_div16(Rok16sc a, Rok16sc b, int sf, int mode) {
    const Wide ar = a.re, ai = a.im, br = b.re, bi = b.im, den = ar * ar + ai * ai;
    if (den == 0) return {rokt::ref::saturate<Rok16s>(br * 100000), rokt::ref::saturate<Rok16s>(bi * 100000)};
    return {ref_quotient(br * ar + bi * ai, den, sf, mode), ref_quotient(bi * ar - br * ai, den, sf, mode)};
}

// The float rules, operation by operation: products and sums in the stated
// order, and the quotient from the processor's reciprocal estimate refined
// once; a zero divisor gives infinity with the dividend's sign, or the
// pattern 0x7FBFFFFF for a zero or NaN dividend.
float ref_fdiv(float num, float den) {
    if (den == 0.0f) {
        if (num == 0.0f || std::isnan(num)) return std::bit_cast<float>(0x7FBFFFFFu);
        return num < 0 ? -std::numeric_limits<float>::infinity() : std::numeric_limits<float>::infinity();
    }
    volatile float r0 = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(den)));
    volatile float q0 = num * r0;
    volatile float dr = den * r0;
    volatile float e = 1.0f - dr;
    volatile float q0e = q0 * e;
    volatile float s = q0e + q0;
    volatile float se = s * e;
    return q0 + se;
}

Rok32fc ref_mul32fc(Rok32fc a, Rok32fc b) {
    volatile float p1 = a.re * b.re, p2 = a.im * b.im, p3 = a.re * b.im, p4 = a.im * b.re;
    return {p1 - p2, p3 + p4};
}

Rok32fc ref_div32fc(Rok32fc a, Rok32fc b) {
    volatile float s1 = a.re * a.re, s2 = a.im * a.im;
    const float den = s1 + s2;
    volatile float n1 = b.re * a.re, n2 = b.im * a.im, n3 = b.im * a.re, n4 = b.re * a.im;
    return {ref_fdiv(n1 + n2, den), ref_fdiv(n3 - n4, den)};
}

// Bit-identical, except that any NaN matches any NaN where no divisor was
// zero (which NaN of two propagates is the hardware's operand order).
bool same_float(float got, float want, bool pattern) {
    if (std::isnan(want) && !pattern) return std::isnan(got);
    return std::bit_cast<std::uint32_t>(got) == std::bit_cast<std::uint32_t>(want);
}

// ---- inputs ----------------------------------------------------------------

template <class P>
P edgy_int(std::mt19937& rng) {
    constexpr P lo = std::numeric_limits<P>::min(), hi = std::numeric_limits<P>::max();
    const P edges[] = {lo, lo, P(lo + 1), P(0), P(1), P(-1), P(hi - 1), hi, P(2), P(-2)};
    if (rng() % 3 == 0) return edges[rng() % 10];
    return P(std::uniform_int_distribution<std::int64_t>(lo, hi)(rng));
}

template <class T>
T edgy_complex(std::mt19937& rng) {
    using P = decltype(T{}.re);
    if (rng() % 16 == 0) return {std::numeric_limits<P>::min(), std::numeric_limits<P>::min()};  // the corner
    if (rng() % 8 == 0) return {0, 0};
    if (rng() % 8 == 0) {  // small parts: quotients near 1 with ties
        const int r = int(rng() % 7) - 3, i = int(rng() % 7) - 3;
        return {P(r), P(i)};
    }
    return {edgy_int<P>(rng), edgy_int<P>(rng)};
}

template <>
Rok32fc edgy_complex<Rok32fc>(std::mt19937& rng) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const float specials[] = {0.0f, -0.0f, inf, -inf, nan, 1e-30f, -3e-25f, 1e30f, -2e25f, 1e-40f, 1.0f, -1.0f};
    auto part = [&]() {
        if (rng() % 5 == 0) return specials[rng() % 12];
        return float(std::uniform_real_distribution<double>(-100.0, 100.0)(rng));
    };
    if (rng() % 10 == 0) return {rng() % 2 ? 0.0f : -0.0f, rng() % 2 ? 0.0f : -0.0f};
    return {part(), part()};
}

template <class T>
std::vector<T> edgy_row(std::mt19937& rng, int n) {
    std::vector<T> v(n);
    for (auto& x : v) x = edgy_complex<T>(rng);
    return v;
}

bool zero_complex(Rok16sc a) { return a.re == 0 && a.im == 0; }
bool zero_complex(Rok32sc a) { return a.re == 0 && a.im == 0; }
bool zero_complex(Rok32fc a) { return a.re * a.re + a.im * a.im == 0.0f; }

template <class T>
::testing::AssertionResult same(T got, T want, bool zero_divisor) {
    bool ok;
    if constexpr (std::is_same_v<T, Rok32fc>) ok = same_float(got.re, want.re, zero_divisor) && same_float(got.im, want.im, zero_divisor);
    else ok = got.re == want.re && got.im == want.im;
    if (ok) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got (" << +got.re << ", " << +got.im << ") want (" << +want.re << ", " << +want.im << ")";
}

// ---- the sweep ---------------------------------------------------------------

// One kernel over every length and destination offset, out of place with
// sources at odd element offsets and in place, then on rows that start right
// after or end right before a protected page. `want(a, b)` is the reference,
// `divides` whether a zero divisor must be reported.
template <class T>
void sweep(std::uint32_t seed, const std::function<RokStatus(const T*, const T*, T*, int)>& kernel,
           const std::function<T(T, T)>& want, bool divides) {
    std::mt19937 rng(seed);
    const auto a = edgy_row<T>(rng, 100), b = edgy_row<T>(rng, 100);
    std::vector<T> d(120), in_place(140);
    auto row_status = [&](const T* x, int n) {
        bool zero = false;
        for (int i = 0; i < n; ++i) zero |= zero_complex(x[i]);
        return divides && zero ? rokStatusDivByZero : rokStatusOk;
    };
    for (int off4 = 0; off4 < 8; ++off4)  // destination offsets of 4 bytes
        for (int n = 1; n <= 70; ++n) {
            // Offsets in bytes through a byte buffer, so complex samples of 8
            // bytes also start at 4-byte offsets.
            std::vector<unsigned char> raw(sizeof(T) * 80 + 32 + 64);
            auto* base = raw.data() + (32 - reinterpret_cast<std::uintptr_t>(raw.data()) % 32);
            T* dst = reinterpret_cast<T*>(base + 4 * off4);
            std::memset(base, 0xA5, sizeof(T) * 80 + 32);
            const RokStatus st = kernel(a.data() + 1, b.data() + 2, dst, n);
            for (int i = 0; i < n; ++i)
                ASSERT_TRUE(same(dst[i], want(a[1 + i], b[2 + i]), zero_complex(a[1 + i])))
                    << "off " << 4 * off4 << " n " << n << " i " << i;
            ASSERT_EQ(st, row_status(a.data() + 1, n)) << "n " << n;
            const auto* after = reinterpret_cast<const unsigned char*>(dst + n);
            for (int k = 0; k < 32; ++k) ASSERT_EQ(after[k], 0xA5) << "written past the row, n " << n;

            std::copy(b.begin(), b.end(), in_place.begin() + off4);
            T* io = in_place.data() + off4 + 3;
            const RokStatus st2 = kernel(a.data() + 5, io, io, n);
            for (int i = 0; i < n; ++i)
                ASSERT_TRUE(same(io[i], want(a[5 + i], b[3 + i]), zero_complex(a[5 + i]))) << "in place, n " << n << " i " << i;
            ASSERT_EQ(st2, row_status(a.data() + 5, n));
            ASSERT_TRUE(std::memcmp(io + n, b.data() + 3 + n, sizeof(T)) == 0) << "in place, written past the row, n " << n;
        }
    for (int n = 1; n <= 70; ++n) {
        rokt::GuardedImage<T> x(n, 1, 1, 0, rokt::Guard::Before), y(n, 1, 1, 0, rokt::Guard::After), z(n, 1, 1);
        for (int i = 0; i < n; ++i) x.data()[i] = edgy_complex<T>(rng), y.data()[i] = edgy_complex<T>(rng);
        kernel(x.data(), y.data(), z.data(), n);
        for (int i = 0; i < n; ++i) ASSERT_TRUE(same(z.data()[i], want(x.data()[i], y.data()[i]), zero_complex(x.data()[i]))) << n;
        const std::vector<T> before(y.data(), y.data() + n);
        kernel(x.data(), y.data(), y.data(), n);
        for (int i = 0; i < n; ++i) ASSERT_TRUE(same(y.data()[i], want(x.data()[i], before[i]), zero_complex(x.data()[i]))) << n;
    }
}

TEST(ArithComplexKernels, Mul32fcBitIdentical) {
    sweep<Rok32fc>(31, [](const Rok32fc* a, const Rok32fc* b, Rok32fc* d, int n) { return arith_row<ArithOp::Mul, Rok32fc>(a, b, d, n, 0, 0); },
                   ref_mul32fc, false);
}

TEST(ArithComplexKernels, Div32fcBitIdenticalWithZeroDivisorPatterns) {
    sweep<Rok32fc>(37, [](const Rok32fc* a, const Rok32fc* b, Rok32fc* d, int n) { return arith_row<ArithOp::Div, Rok32fc>(a, b, d, n, 0, 0); },
                   ref_div32fc, true);
}

TEST(ArithComplexKernels, Mul16scEveryScaleFactor) {
    for (int sf = -20; sf <= 34; ++sf) {
        SCOPED_TRACE(sf);
        sweep<Rok16sc>(41 + sf, [sf](const Rok16sc* a, const Rok16sc* b, Rok16sc* d, int n) { return arith_row<ArithOp::Mul, Rok16sc>(a, b, d, n, sf, 1); },
                       [sf](Rok16sc a, Rok16sc b) { return ref_mul16(a, b, sf); }, false);
    }
}

TEST(ArithComplexKernels, Div16scEveryScaleFactorAndMode) {
    for (int mode : {0, 1, 2})
        for (int sf : {-70, -64, -50, -47, -46, -33, -31, -17, -16, -15, -8, -2, -1, 0, 1, 2, 3, 7, 8, 15, 16, 17, 30, 31, 32, 33, 39, 40, 41, 45}) {
            SCOPED_TRACE(::testing::Message() << "sf " << sf << " mode " << mode);
            sweep<Rok16sc>(43 + sf, [sf, mode](const Rok16sc* a, const Rok16sc* b, Rok16sc* d, int n) { return arith_row<ArithOp::Div, Rok16sc>(a, b, d, n, sf, mode); },
                           [sf, mode](Rok16sc a, Rok16sc b) { return ref_div16(a, b, sf, mode); }, true);
        }
}

// Products of 32-bit parts: up to 63 exact bits, 2^63 at the INT32_MIN
// corner of the imaginary part.
TEST(ArithComplexKernels, Mul32scEveryScaleFactor) {
    for (int sf = -35; sf <= 66; sf += (sf < -3 || (sf > 3 && sf < 29) || (sf > 35 && sf < 60)) ? 4 : 1) {
        SCOPED_TRACE(sf);
        sweep<Rok32sc>(
            61 + sf, [sf](const Rok32sc* a, const Rok32sc* b, Rok32sc* d, int n) { return arith_row<ArithOp::Mul, Rok32sc>(a, b, d, n, sf, 1); },
            [sf](Rok32sc a, Rok32sc b) {
                const Wide ar = a.re, ai = a.im, br = b.re, bi = b.im;
                return Rok32sc{rokt::ref::scale<Rok32s>(ar * br - ai * bi, sf), rokt::ref::scale<Rok32s>(ar * bi + ai * br, sf)};
            },
            false);
    }
}

// Quotients at and next to the rounding points: b / a with a = (1, 1) is
// b (1 - i) / 2, so odd parts give ties, and scale factors move the ties
// across the range; (-32768, -32768) divisors and dividends reach the 2^31
// corners of numerator and divisor.
TEST(ArithComplexKernels, Div16scTiesAndCorners) {
    std::vector<Rok16sc> a(64), b(64), d(64);
    for (Rok16sc v : {Rok16sc{1, 1}, Rok16sc{-1, 1}, Rok16sc{2, 0}, Rok16sc{-32768, -32768}, Rok16sc{3, 4}, Rok16sc{-32768, 0}})
        for (int mode : {0, 1, 2})
            for (int sf : {-16, -2, -1, 0, 1, 2, 14, 15, 16}) {
                std::mt19937 rng(sf + 100 * mode);
                for (int i = 0; i < 64; ++i) {
                    a[i] = v;
                    b[i] = i % 4 == 0 ? Rok16sc{-32768, -32768} : Rok16sc{Rok16s(int(rng() % 41) - 20), Rok16s(edgy_int<Rok16s>(rng))};
                }
                ASSERT_EQ((arith_row<ArithOp::Div, Rok16sc>(a.data(), b.data(), d.data(), 64, sf, mode)), rokStatusOk);
                for (int i = 0; i < 64; ++i) ASSERT_TRUE(same(d[i], ref_div16(a[i], b[i], sf, mode), false)) << i << " sf " << sf << " mode " << mode;
            }
}

// 32-bit parts: exact sums of up to 33 bits, every scale factor from the
// saturating end to beyond the zero cut-off, INT32_MIN and INT32_MAX parts.
TEST(ArithComplexKernels, AddSub32scEveryScaleFactor) {
    for (ArithOp op : {ArithOp::Add, ArithOp::Sub})
        for (int sf = -35; sf <= 42; ++sf) {
            SCOPED_TRACE(::testing::Message() << "sf " << sf << " op " << int(op));
            auto kernel = [sf, op](const Rok32sc* a, const Rok32sc* b, Rok32sc* d, int n) {
                return op == ArithOp::Add ? arith_row<ArithOp::Add, Rok32sc>(a, b, d, n, sf, 1) : arith_row<ArithOp::Sub, Rok32sc>(a, b, d, n, sf, 1);
            };
            auto want = [sf, op](Rok32sc a, Rok32sc b) {
                const Wide s = op == ArithOp::Add ? Wide(a.re) + b.re : Wide(b.re) - a.re;
                const Wide t = op == ArithOp::Add ? Wide(a.im) + b.im : Wide(b.im) - a.im;
                return Rok32sc{rokt::ref::scale<Rok32s>(s, sf), rokt::ref::scale<Rok32s>(t, sf)};
            };
            std::mt19937 rng(53 + sf);
            const auto a = edgy_row<Rok32sc>(rng, 100), b = edgy_row<Rok32sc>(rng, 100);
            std::vector<Rok32s> d(240);
            for (int off = 0; off < 8; ++off)  // 4-byte offsets: half the complex samples never align to 8
                for (int n = 1; n <= 70; n += (n < 20 ? 1 : 7)) {
                    Rok32sc* dst = reinterpret_cast<Rok32sc*>(d.data() + off);
                    ASSERT_EQ(kernel(a.data() + 1, b.data(), dst, n), rokStatusOk);
                    for (int i = 0; i < n; ++i) ASSERT_EQ(dst[i].re, want(a[1 + i], b[i]).re) << "n " << n << " i " << i;
                    for (int i = 0; i < n; ++i) ASSERT_EQ(dst[i].im, want(a[1 + i], b[i]).im) << "n " << n << " i " << i;
                }
        }
}

}  // namespace
