// Every arithmetic export against scalar references written from the rules
// in 128-bit arithmetic: widths 1..70 (vector bodies and tails), odd steps,
// guarded buffers, untouched AC4 alpha, in-place forms and scale factors
// across each type's range, cut-offs included.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <type_traits>

#include "arith_cases.h"
#include "guarded.h"
#include "random.h"
#include "reference.h"

namespace rokt::arith {
namespace {

using ref::Wide;

template <class T> struct Part { using type = T; static constexpr bool complex = false; };
template <> struct Part<Rok16sc> { using type = Rok16s; static constexpr bool complex = true; };
template <> struct Part<Rok32sc> { using type = Rok32s; static constexpr bool complex = true; };
template <> struct Part<Rok32fc> { using type = Rok32f; static constexpr bool complex = true; };

// round(num / den * 2^-sf) by mode (0 truncate, 1 half even, 2 half away),
// saturated; den == 0 gives the saturated sign of num.
template <class P>
P ref_divide(Wide num, Wide den, int sf, int mode) {
    if (den == 0) return num > 0 ? std::numeric_limits<P>::max() : num < 0 ? std::numeric_limits<P>::min() : P(0);
    if (den < 0) num = -num, den = -den;
    if (sf < 0) num *= Wide(1) << -sf;  // callers keep sf >= -40
    else den *= Wide(1) << sf;          // and sf <= 40
    const bool neg = num < 0;
    const Wide n = neg ? -num : num;
    Wide q = n / den, r = n % den;
    if ((mode == 1 && (2 * r > den || (2 * r == den && q % 2 == 1))) || (mode == 2 && 2 * r >= den)) ++q;
    return ref::saturate<P>(neg ? -q : q);
}

template <class P>
P ref_int(Op op, P a, P b, int sf, int mode) {
    switch (op) {
        case Op::Add: return ref::scale<P>(Wide(a) + b, sf);
        case Op::Sub: return ref::scale<P>(Wide(b) - a, sf);
        case Op::Mul: return ref::scale<P>(Wide(a) * b, sf);
        case Op::MulScale: {
            const Wide p = Wide(a) * b, bits = 8 * sizeof(P);
            return P((p + 1 + (p >> bits)) >> bits);
        }
        default: return ref_divide<P>(b, a, sf, op == Op::Div ? 1 : mode);
    }
}

template <class T>
T ref_sample(Op op, T a, T b, int sf, int mode) {
    using P = typename Part<T>::type;
    if constexpr (std::is_floating_point_v<T>) {
        return op == Op::Add ? a + b : op == Op::Sub ? b - a : op == Op::Mul ? a * b : b / a;
    } else if constexpr (std::is_same_v<T, Rok32fc>) {
        if (op == Op::Add) return {a.re + b.re, a.im + b.im};
        if (op == Op::Sub) return {b.re - a.re, b.im - a.im};
        const double ar = a.re, ai = a.im, br = b.re, bi = b.im;
        if (op == Op::Mul) return {float(ar * br - ai * bi), float(ar * bi + ai * br)};
        const double den = ar * ar + ai * ai;
        if (den == 0) return {std::bit_cast<float>(0x7FBFFFFFu), std::bit_cast<float>(0x7FBFFFFFu)};
        return {float((br * ar + bi * ai) / den), float((bi * ar - br * ai) / den)};
    } else if constexpr (Part<T>::complex) {
        const Wide ar = a.re, ai = a.im, br = b.re, bi = b.im;
        if (op == Op::Add) return {ref::scale<P>(ar + br, sf), ref::scale<P>(ai + bi, sf)};
        if (op == Op::Sub) return {ref::scale<P>(br - ar, sf), ref::scale<P>(bi - ai, sf)};
        if (op == Op::Mul) return {ref::scale<P>(ar * br - ai * bi, sf), ref::scale<P>(ar * bi + ai * br, sf)};
        const Wide den = ar * ar + ai * ai;
        if (den == 0) return {ref_divide<P>(br, 0, sf, 1), ref_divide<P>(bi, 0, sf, 1)};
        return {ref_divide<P>(br * ar + bi * ai, den, sf, 1), ref_divide<P>(bi * ar - br * ai, den, sf, 1)};
    } else {
        return ref_int<T>(op, a, b, sf, mode);
    }
}

template <class T>
bool zero_divisor(T v) {
    if constexpr (Part<T>::complex) return v.re == 0 && v.im == 0;
    else return v == 0;
}

bool close(float got, float want) {
    if (std::isnan(want)) return std::bit_cast<std::uint32_t>(got) == 0x7FBFFFFFu;  // 0/0 pattern
    if (std::isinf(want)) return got == want;
    return std::fabs(double(got) - want) <= 4e-6 * std::fabs(double(want)) + 1e-30;
}

template <class T>
::testing::AssertionResult same(Op op, T got, T want) {
    bool ok;
    if constexpr (std::is_same_v<T, Rok32f>) ok = op == Op::Div ? close(got, want) : std::bit_cast<std::uint32_t>(got) == std::bit_cast<std::uint32_t>(want);
    else if constexpr (std::is_same_v<T, Rok32fc>) {
        const double mag = std::hypot(double(want.re), double(want.im)) * 4e-6 + 1e-3;
        if (std::isnan(want.re)) ok = close(got.re, want.re) && close(got.im, want.im);
        else ok = op == Op::Add || op == Op::Sub ? got.re == want.re && got.im == want.im
                                                 : std::fabs(got.re - want.re) <= mag && std::fabs(got.im - want.im) <= mag;
    } else if constexpr (Part<T>::complex) ok = got.re == want.re && got.im == want.im;
    else ok = got == want;
    if (ok) return ::testing::AssertionSuccess();
    if constexpr (Part<T>::complex) return ::testing::AssertionFailure() << "got (" << double(got.re) << "," << double(got.im) << ") want (" << double(want.re) << "," << double(want.im) << ")";
    else return ::testing::AssertionFailure() << "got " << double(got) << " want " << double(want);
}

// Scale factors worth trying: around 0, around each cut-off, and far out.
template <class T>
std::vector<int> scale_factors(const Case<T>& c) {
    if (!c.scaled) return {0};
    using P = typename Part<T>::type;
    const int bits = 8 * sizeof(P);
    std::vector<int> sfs = {0, 1, 2, -1, -3, bits - 1, bits, bits + 1, bits + 2, -bits + 1, -bits, -bits - 1, 2 * bits + 1, 2 * bits + 2, 3000, -3000};
    if (c.op == Op::Div || c.op == Op::DivRound) {
        for (int& s : sfs) s = std::clamp(s, -40, 40);  // the reference's shifting range; beyond is the same constant
        sfs.push_back(-bits - 16);
    }
    return sfs;
}

template <class T>
void fill_operand(GuardedImage<T>& img, std::mt19937& rng, bool zeros) {
    std::uniform_int_distribution<int> pick(0, 9);
    for (int y = 0; y < img.height(); ++y)
        for (int i = 0; i < img.width() * img.channels(); ++i) {
            if constexpr (Part<T>::complex) img.row(y)[i] = {random_value<typename Part<T>::type>(rng), random_value<typename Part<T>::type>(rng)};
            else img.row(y)[i] = random_value<T>(rng);
            if (zeros && pick(rng) == 0) img.row(y)[i] = T{};
        }
}

// One call on a width x height ROI; checks every processed sample, that AC4
// alpha and padding stay as they were, and the returned status.
template <class T>
void run_one(const Case<T>& c, int width, int height, int sf, int mode, std::mt19937& rng, bool bottom_up, bool packed = false) {
    const int ch = c.channels;
    // Packed images (no row padding anywhere) let rows run into each other.
    GuardedImage<T> s1(width, height, ch, packed ? 0 : 1), s2(width, height, ch, packed ? 0 : 3, Guard::Before), d(width, height, ch, 0);
    fill_operand(s1, rng, c.op == Op::Div || c.op == Op::DivRound);
    fill_operand(s2, rng, true);
    T values[4];
    for (int k = 0; k < 4; ++k) {
        values[k] = s1.row(0)[k % (width * ch)];
    }
    if (c.constant) {
        std::uniform_int_distribution<int> v(1, 100);
        for (int k = 0; k < 4; ++k) if (zero_divisor(values[k])) { if constexpr (Part<T>::complex) values[k] = {typename Part<T>::type(v(rng)), 0}; else values[k] = T(v(rng)); }
    }
    d.fill_bytes(0x5A);
    const auto before = d.bytes();
    const int processed = c.ac4 ? 3 : ch;
    const T* a = c.constant ? values : (bottom_up ? s1.bottom_up() : s1.data());
    const int as = bottom_up ? -s1.step() : s1.step();
    const RokStatus st = c.fn(a, as, bottom_up ? s2.bottom_up() : s2.data(), bottom_up ? -s2.step() : s2.step(),
                              bottom_up ? d.bottom_up() : d.data(), bottom_up ? -d.step() : d.step(), {width, height}, sf, mode);
    const bool checks_steps = c.op == Op::Div || c.op == Op::DivRound || c.op == Op::MulScale;
    if (bottom_up && checks_steps) {  // these families reject a step below 1 before writing
        EXPECT_EQ(st, rokStatusBadStep) << c.name;
        if (c.name.find("IR") == std::string::npos) {  // in place: the wrapper copied srcDst in
            EXPECT_EQ(d.bytes(), before) << c.name;
        }
        return;
    }
    bool zero = false;
    const auto* raw = reinterpret_cast<const std::uint8_t*>(d.data());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int k = 0; k < ch; ++k) {
                const int i = x * ch + k;
                if (k >= processed) {
                    const std::size_t off = std::size_t(y) * d.step() + i * sizeof(T);
                    for (std::size_t bi = 0; bi < sizeof(T); ++bi) ASSERT_EQ(raw[off + bi], before[off + bi]) << c.name << " alpha written";
                    continue;
                }
                const T av = c.constant ? values[k] : s1.row(y)[i];
                zero |= zero_divisor(av);
                ASSERT_TRUE(same(c.op, d.row(y)[i], ref_sample<T>(c.op, av, s2.row(y)[i], sf, mode)))
                    << c.name << " w=" << width << " y=" << y << " x=" << x << " ch=" << k << " sf=" << sf << " mode=" << mode;
            }
    const bool divides = c.op == Op::Div || c.op == Op::DivRound;
    EXPECT_EQ(st, divides && zero ? rokStatusDivByZero : rokStatusOk) << c.name << " w=" << width;
}

template <class T>
void run_all() {
    register_all();
    std::mt19937 rng(1234);
    ASSERT_FALSE(cases<T>().empty());
    for (const auto& c : cases<T>()) {
        for (int w = 1; w <= 70; ++w) run_one(c, w, 1, c.scaled ? 1 : 0, 1, rng, false);
        for (int sf : scale_factors(c))
            for (int w : {5, 37}) {
                run_one(c, w, 3, sf, 1, rng, false);
                if (c.op == Op::DivRound) {
                    run_one(c, w, 2, sf, 0, rng, false);
                    run_one(c, w, 2, sf, 2, rng, false);
                }
            }
        run_one(c, 41, 4, c.scaled ? 2 : 0, 1, rng, true);
        for (int w : {3, 37}) run_one(c, w, 35, c.scaled ? 1 : 0, 1, rng, false, true);
    }
}

TEST(Arith, Every8uExport) { run_all<Rok8u>(); }
TEST(Arith, Every16uExport) { run_all<Rok16u>(); }
TEST(Arith, Every16sExport) { run_all<Rok16s>(); }
TEST(Arith, Every16scExport) { run_all<Rok16sc>(); }
TEST(Arith, Every32scExport) { run_all<Rok32sc>(); }
TEST(Arith, Every32fExport) { run_all<Rok32f>(); }
TEST(Arith, Every32fcExport) { run_all<Rok32fc>(); }

TEST(Arith, ExportCount) {
    register_all();
    const std::size_t n = cases<Rok8u>().size() + cases<Rok16u>().size() + cases<Rok16s>().size() + cases<Rok16sc>().size() +
                          cases<Rok32sc>().size() + cases<Rok32f>().size() + cases<Rok32fc>().size();
    EXPECT_EQ(n, 456u);
}

}  // namespace
}  // namespace rokt::arith
