// The vector bodies of the row kernels against the rules, at every length
// 1..70, every destination offset within a vector, every scale factor from
// beyond the saturating end to beyond the zero cut-off, in place included,
// and on rows that touch a protected page.
#include <gtest/gtest.h>

#include <cstdint>
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

// Random samples with the range ends and the values next to 0 over-represented,
// where saturation and rounding go wrong first.
template <class P>
P edgy(std::mt19937& rng) {
    constexpr P lo = std::numeric_limits<P>::min(), hi = std::numeric_limits<P>::max();
    const P edges[] = {lo, P(lo + 1), P(0), P(1), P(2), P(hi - 1), hi, P(std::is_signed_v<P> ? -1 : 3)};
    if (rng() % 3 == 0) return edges[rng() % 8];
    return P(std::uniform_int_distribution<std::int64_t>(lo, hi)(rng));
}

template <class P>
P ref_op(ArithOp op, P a, P b, int sf) {
    switch (op) {
        case ArithOp::Add: return rokt::ref::scale<P>(Wide(a) + b, sf);
        case ArithOp::Sub: return rokt::ref::scale<P>(Wide(b) - a, sf);
        default: return rokt::ref::scale<P>(Wide(a) * b, sf);
    }
}

// b * 2^-sf / a rounded by mode (0 truncate, 1 half to even, 2 half away),
// saturated; a zero divisor gives the saturated sign of b.
template <class P>
P ref_div(P a, P b, int sf, int mode = 1) {
    constexpr P lo = std::numeric_limits<P>::min(), hi = std::numeric_limits<P>::max();
    if (a == 0) return b > 0 ? hi : b < 0 ? lo : P(0);
    Wide num = b, den = a;
    if (den < 0) num = -num, den = -den;
    if (sf < 0) num *= Wide(1) << std::min(-sf, 40);
    else den <<= std::min(sf, 40);
    const bool neg = num < 0;
    Wide q = (neg ? -num : num) / den, r = (neg ? -num : num) % den;
    if ((mode == 1 && (2 * r > den || (2 * r == den && q % 2 == 1))) || (mode == 2 && 2 * r >= den)) ++q;
    return rokt::ref::saturate<P>(neg ? -q : q);
}

Rok16s ref_div16s(Rok16s a, Rok16s b, int sf) { return ref_div<Rok16s>(a, b, sf); }

template <class P>
std::vector<P> edgy_row(std::mt19937& rng, int n) {
    std::vector<P> v(n);
    for (auto& x : v) x = edgy<P>(rng);
    return v;
}

template <class P>
void scaled_every_length_offset_and_scale() {
    std::mt19937 rng(7 + sizeof(P));
    constexpr int bits = 8 * sizeof(P), lanes = 32 / sizeof(P);
    const auto a = edgy_row<P>(rng, 100), b = edgy_row<P>(rng, 100);
    std::vector<P> d(120), in_place(140);
    for (ArithOp op : {ArithOp::Add, ArithOp::Sub, ArithOp::Mul})
        for (int sf = -bits - 2; sf <= (op == ArithOp::Mul ? 2 * bits + 2 : bits + 3); ++sf)
            for (int off = 0; off < lanes; off += 3)
                for (int n = 1; n <= 70; ++n) {
                    const auto kernel = op == ArithOp::Add ? arith_row<ArithOp::Add, P>
                                        : op == ArithOp::Sub ? arith_row<ArithOp::Sub, P> : arith_row<ArithOp::Mul, P>;
                    kernel(a.data() + 1, b.data() + 2, d.data() + off, n, sf, 1);
                    std::copy(b.begin(), b.end(), in_place.begin() + off);
                    kernel(a.data() + 3, in_place.data() + off + 2, in_place.data() + off + 2, n, sf, 1);
                    for (int i = 0; i < n; ++i) {
                        ASSERT_EQ(d[off + i], ref_op<P>(op, a[1 + i], b[2 + i], sf))
                            << "op " << int(op) << " sf " << sf << " off " << off << " n " << n << " i " << i;
                        ASSERT_EQ(in_place[off + 2 + i], ref_op<P>(op, a[3 + i], b[2 + i], sf))
                            << "in place, op " << int(op) << " sf " << sf << " n " << n << " i " << i;
                    }
                    ASSERT_EQ(in_place[off + 2 + n], b[2 + n]) << "written past the row, n " << n;
                }
}

TEST(ArithKernels, Scaled8uEveryLengthOffsetAndScale) { scaled_every_length_offset_and_scale<Rok8u>(); }
TEST(ArithKernels, Scaled16uEveryLengthOffsetAndScale) { scaled_every_length_offset_and_scale<Rok16u>(); }
TEST(ArithKernels, Scaled16sEveryLengthOffsetAndScale) { scaled_every_length_offset_and_scale<Rok16s>(); }

// Sources start right after a protected page and the destination ends right
// before one, so a vector read or write past either end faults.
template <class P>
void scaled_on_guarded_rows() {
    std::mt19937 rng(11);
    for (int n = 1; n <= 70; ++n) {
        rokt::GuardedImage<P> a(n, 1, 1, 0, rokt::Guard::Before), b(n, 1, 1, 0, rokt::Guard::After), d(n, 1, 1);
        for (int i = 0; i < n; ++i) a.data()[i] = edgy<P>(rng), b.data()[i] = edgy<P>(rng);
        for (int sf : {0, 1, 2, 5, -1, -3, -8 * int(sizeof(P))}) {
            arith_row<ArithOp::Add, P>(a.data(), b.data(), d.data(), n, sf, 1);
            for (int i = 0; i < n; ++i) ASSERT_EQ(d.data()[i], ref_op<P>(ArithOp::Add, a.data()[i], b.data()[i], sf)) << n;
            arith_row<ArithOp::Mul, P>(b.data(), a.data(), d.data(), n, sf, 1);
            for (int i = 0; i < n; ++i) ASSERT_EQ(d.data()[i], ref_op<P>(ArithOp::Mul, b.data()[i], a.data()[i], sf)) << n;
            const std::vector<P> before(b.data(), b.data() + n);
            arith_row<ArithOp::Sub, P>(a.data(), b.data(), b.data(), n, sf, 1);
            for (int i = 0; i < n; ++i) ASSERT_EQ(b.data()[i], ref_op<P>(ArithOp::Sub, a.data()[i], before[i], sf)) << n;
        }
    }
}

TEST(ArithKernels, Scaled8uGuardedRows) { scaled_on_guarded_rows<Rok8u>(); }
TEST(ArithKernels, Scaled16uGuardedRows) { scaled_on_guarded_rows<Rok16u>(); }
TEST(ArithKernels, Scaled16sGuardedRows) { scaled_on_guarded_rows<Rok16s>(); }

// MulScale: p = a * b mapped by (p + 1 + (p >> bits)) >> bits, every length
// and destination offset, in place, and on rows against protected pages.
template <class P>
void mul_scale_every_length() {
    std::mt19937 rng(19);
    constexpr int bits = 8 * sizeof(P), lanes = 32 / sizeof(P);
    auto want = [](P x, P y) {
        const Wide p = Wide(x) * y;
        return P((p + 1 + (p >> bits)) >> bits);
    };
    const auto a = edgy_row<P>(rng, 100), b = edgy_row<P>(rng, 100);
    std::vector<P> d(120), in_place(140);
    for (int off = 0; off < lanes; ++off)
        for (int n = 1; n <= 70; ++n) {
            arith_row<ArithOp::MulScale, P>(a.data() + 1, b.data() + 2, d.data() + off, n, 0, 0);
            std::copy(b.begin(), b.end(), in_place.begin() + off);
            arith_row<ArithOp::MulScale, P>(a.data(), in_place.data() + off, in_place.data() + off, n, 0, 0);
            for (int i = 0; i < n; ++i) {
                ASSERT_EQ(d[off + i], want(a[1 + i], b[2 + i])) << "off " << off << " n " << n << " i " << i;
                ASSERT_EQ(in_place[off + i], want(a[i], b[i])) << "in place, off " << off << " n " << n << " i " << i;
            }
            ASSERT_EQ(in_place[off + n], b[n]) << "written past the row, n " << n;
        }
    for (int n = 1; n <= 70; ++n) {
        rokt::GuardedImage<P> x(n, 1, 1, 0, rokt::Guard::Before), y(n, 1, 1), z(n, 1, 1);
        for (int i = 0; i < n; ++i) x.data()[i] = edgy<P>(rng), y.data()[i] = edgy<P>(rng);
        arith_row<ArithOp::MulScale, P>(x.data(), y.data(), z.data(), n, 0, 0);
        for (int i = 0; i < n; ++i) ASSERT_EQ(z.data()[i], want(x.data()[i], y.data()[i])) << n;
    }
}

TEST(ArithKernels, MulScale8uEveryLength) { mul_scale_every_length<Rok8u>(); }
TEST(ArithKernels, MulScale16uEveryLength) { mul_scale_every_length<Rok16u>(); }

// Divisors where ties are common (small and powers of two), the range ends,
// and zero.
template <class P>
P divisor(std::mt19937& rng) {
    const int picks[] = {1, -1, 2, -2, 3, -3, 4, 6, -8, 7, 10, -32768, 32767, 0, 255, -256, 65535, 200};
    const int v = picks[rng() % 18];
    if (rng() % 2 && v >= std::numeric_limits<P>::min() && v <= std::numeric_limits<P>::max()) return P(v);
    return edgy<P>(rng);
}

template <class P>
void divide_every_length_offset_scale_and_mode() {
    std::mt19937 rng(13);
    std::vector<P> a(100), b(100), d(120);
    for (int i = 0; i < 100; ++i) a[i] = divisor<P>(rng), b[i] = edgy<P>(rng);
    a[40] = 0;  // at least one zero divisor in the longer rows
    std::vector<int> sfs = {-70, -48, -40, -34, 18, 24, 31, 32, 33, 39, 40, 41, 70};
    for (int sf = -33; sf <= 17; ++sf) sfs.push_back(sf);
    for (int mode : {0, 1, 2})
        for (int sf : sfs)
            for (int off = 0; off < 32 / int(sizeof(P)); off += 5)
                for (int n = 1; n <= 70; ++n) {
                    const RokStatus st = arith_row<ArithOp::Div, P>(a.data() + 1, b.data(), d.data() + off, n, sf, mode);
                    bool zero = false;
                    for (int i = 0; i < n; ++i) {
                        zero |= a[1 + i] == 0;
                        ASSERT_EQ(d[off + i], ref_div<P>(a[1 + i], b[i], sf, mode))
                            << "mode " << mode << " sf " << sf << " n " << n << " i " << i << " " << +b[i] << "/" << +a[1 + i];
                    }
                    ASSERT_EQ(st, zero ? rokStatusDivByZero : rokStatusOk) << "sf " << sf << " n " << n;
                }
}

TEST(ArithKernels, Divide8uEveryLengthOffsetScaleAndMode) { divide_every_length_offset_scale_and_mode<Rok8u>(); }
TEST(ArithKernels, Divide16uEveryLengthOffsetScaleAndMode) { divide_every_length_offset_scale_and_mode<Rok16u>(); }
TEST(ArithKernels, Divide16sEveryLengthOffsetScaleAndMode) { divide_every_length_offset_scale_and_mode<Rok16s>(); }

// Every dividend against divisors chosen for ties and extremes, in place,
// in every rounding mode, at scale factors across the range the vector body
// takes and either side.
template <class P>
void divide_every_dividend(std::initializer_list<int> divisors) {
    constexpr int lo = std::numeric_limits<P>::min(), count = 1 << (8 * sizeof(P));
    std::vector<P> a(count), b(count), d(count);
    for (int i = 0; i < count; ++i) b[i] = P(lo + i);
    for (int v : divisors)
        for (int mode : {0, 1, 2})
            for (int sf : {0, 1, 2, 7, 8, -1, -2, -15, -30, -31}) {
                std::fill(a.begin(), a.end(), P(v));
                d = b;
                const RokStatus st = arith_row<ArithOp::Div, P>(a.data(), d.data(), d.data(), count, sf, mode);
                ASSERT_EQ(st, rokStatusOk);
                for (int i = 0; i < count; ++i)
                    ASSERT_EQ(d[i], ref_div<P>(P(v), b[i], sf, mode)) << +b[i] << " / " << v << " sf " << sf << " mode " << mode;
            }
}

TEST(ArithKernels, Divide16sEveryDividend) { divide_every_dividend<Rok16s>({1, -1, 2, -2, 3, 5, -6, 7, 12, 100, -1000, 4096, 32767, -32768}); }
TEST(ArithKernels, Divide16uEveryDividend) { divide_every_dividend<Rok16u>({1, 2, 3, 6, 7, 255, 1000, 32768, 65534, 65535}); }
TEST(ArithKernels, Divide8uEveryPair) {
    std::vector<Rok8u> a(65536), b(65536), d(65536);
    for (int i = 0; i < 65536; ++i) a[i] = Rok8u(i >> 8), b[i] = Rok8u(i);
    for (int mode : {0, 1, 2})
        for (int sf = -16; sf <= 9; ++sf) {
            arith_row<ArithOp::Div, Rok8u>(a.data(), b.data(), d.data(), 65536, sf, mode);
            for (int i = 0; i < 65536; ++i)
                ASSERT_EQ(d[i], ref_div<Rok8u>(a[i], b[i], sf, mode)) << +b[i] << " / " << +a[i] << " sf " << sf << " mode " << mode;
        }
}

// Division by one constant: every divisor against dividends chosen for the
// range ends, and every dividend against divisors chosen for ties, across the
// scale factors of the integer body and beyond; lengths and offsets cover the
// scalar head and tail.
TEST(ArithKernels, DivideByConstant16s) {
    using rok::kernels::divide_by_constant;
    std::mt19937 rng(17);
    std::vector<Rok16s> x(65536), d(65536 + 16);
    for (int i = 0; i < 64; ++i) x[i] = edgy<Rok16s>(rng);
    for (int v = -32768; v <= 32767; ++v) {
        if (v == 0) continue;
        for (int sf : {0, 1}) {
            divide_by_constant(x.data(), Rok16s(v), d.data(), 64, sf);
            for (int i = 0; i < 64; ++i)
                ASSERT_EQ(d[i], ref_div16s(Rok16s(v), x[i], sf)) << x[i] << " / " << v << " sf " << sf;
        }
    }
    for (int i = 0; i < 65536; ++i) x[i] = Rok16s(i - 32768);
    for (Rok16s v : {1, -1, 2, -2, 3, -5, 6, 7, 12, 255, -1000, 4096, 32767, -32768})
        for (int sf : {0, 1, 2, 3, 8, 14, 15, 16, -1, -7, -31})
            for (int off : {0, 1, 7}) {
                divide_by_constant(x.data(), v, d.data() + off, 65536 - 16, sf);
                for (int i = 0; i < 65536 - 16; ++i)
                    ASSERT_EQ(d[off + i], ref_div16s(v, x[i], sf)) << x[i] << " / " << v << " sf " << sf;
            }
    for (int n = 1; n <= 70; ++n) {  // in place, every length
        std::vector<Rok16s> row(x.begin() + 1000, x.begin() + 1000 + n);
        divide_by_constant(row.data(), -6, row.data(), n, 1);
        for (int i = 0; i < n; ++i) ASSERT_EQ(row[i], ref_div16s(-6, x[1000 + i], 1)) << n;
    }
}

}  // namespace
