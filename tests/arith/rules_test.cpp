// Fixed examples of the arithmetic rules, the order of the argument checks,
// and thread-count independence.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "rokcore.h"
#include "roki.h"
#include "threads.h"

namespace {

Rok8u add8(Rok8u a, Rok8u b, int sf) {
    Rok8u d = 77;
    EXPECT_EQ(rokiAdd_8u_C1RSfs(&a, 1, &b, 1, &d, 1, {1, 1}, sf), rokStatusOk);
    return d;
}

TEST(ArithRules, AddScaleFactorExamples) {
    struct { Rok8u a, b; int sf; Rok8u want; } rows[] = {
        {1, 2, 1, 2}, {2, 3, 1, 2}, {1, 0, 1, 0}, {3, 2, 1, 2}, {255, 255, 10, 0}, {255, 255, 9, 1},
        {1, 0, -8, 255}, {0, 0, -8, 0}, {1, 0, -7, 128}, {1, 1, -7, 255}, {200, 100, 0, 255}, {3, 3, 2, 2},
    };
    for (auto r : rows) EXPECT_EQ(add8(r.a, r.b, r.sf), r.want) << int(r.a) << "+" << int(r.b) << " sf " << r.sf;
}

// The most negative and most positive factors, on rows long enough for the
// vector bodies: every non-zero result saturates, or every result is 0.
TEST(ArithRules, ExtremeScaleFactors) {
    constexpr int n = 70;
    std::vector<Rok8u> a(n), b(n), d(n);
    std::vector<Rok16s> p(n), q(n), r(n);
    for (int i = 0; i < n; ++i) {
        a[i] = Rok8u(i % 5);
        b[i] = Rok8u(i % 3);
        p[i] = Rok16s(i % 7 - 3);
        q[i] = Rok16s(i % 4 + 1);
    }
    for (int sf : {std::numeric_limits<int>::min(), std::numeric_limits<int>::min() + 1, -1000}) {
        ASSERT_EQ(rokiAdd_8u_C1RSfs(a.data(), n, b.data(), n, d.data(), n, {n, 1}, sf), rokStatusOk);
        for (int i = 0; i < n; ++i) EXPECT_EQ(d[i], a[i] + b[i] ? 255 : 0) << sf << " at " << i;
        ASSERT_EQ(rokiMul_16s_C1RSfs(p.data(), 2 * n, q.data(), 2 * n, r.data(), 2 * n, {n, 1}, sf), rokStatusOk);
        for (int i = 0; i < n; ++i) EXPECT_EQ(r[i], p[i] > 0 ? 32767 : p[i] < 0 ? -32768 : 0) << sf << " at " << i;
        ASSERT_EQ(rokiDiv_16s_C1RSfs(q.data(), 2 * n, p.data(), 2 * n, r.data(), 2 * n, {n, 1}, sf), rokStatusOk);
        for (int i = 0; i < n; ++i) EXPECT_EQ(r[i], p[i] > 0 ? 32767 : p[i] < 0 ? -32768 : 0) << sf << " at " << i;
    }
    ASSERT_EQ(rokiAdd_8u_C1RSfs(a.data(), n, b.data(), n, d.data(), n, {n, 1}, std::numeric_limits<int>::max()),
              rokStatusOk);
    for (int i = 0; i < n; ++i) EXPECT_EQ(d[i], 0);
    // Complex products: each part saturates to the sign of its exact value.
    std::vector<Rok32sc> c(n, Rok32sc{3, -2}), e(n, Rok32sc{1, 0}), f(n);
    std::vector<Rok16sc> g(n, Rok16sc{-3, 2}), h(n, Rok16sc{1, 0}), k(n);
    for (int sf : {std::numeric_limits<int>::min(), -100}) {
        ASSERT_EQ(rokiMul_32sc_C1RSfs(c.data(), 8 * n, e.data(), 8 * n, f.data(), 8 * n, {n, 1}, sf), rokStatusOk);
        ASSERT_EQ(rokiMul_16sc_C1RSfs(g.data(), 4 * n, h.data(), 4 * n, k.data(), 4 * n, {n, 1}, sf), rokStatusOk);
        for (int i = 0; i < n; ++i) {
            EXPECT_TRUE(f[i].re == INT32_MAX && f[i].im == INT32_MIN) << sf << " at " << i;
            EXPECT_TRUE(k[i].re == -32768 && k[i].im == 32767) << sf << " at " << i;
        }
    }
}

TEST(ArithRules, OperandOrder) {
    Rok8u s1 = 10, s2 = 3, d = 0;
    ASSERT_EQ(rokiSub_8u_C1RSfs(&s1, 1, &s2, 1, &d, 1, {1, 1}, 0), rokStatusOk);
    EXPECT_EQ(d, 0);
    ASSERT_EQ(rokiSub_8u_C1RSfs(&s2, 1, &s1, 1, &d, 1, {1, 1}, 0), rokStatusOk);
    EXPECT_EQ(d, 7);
    Rok16s a = 4, b = 20, q = 0;
    ASSERT_EQ(rokiDiv_16s_C1RSfs(&a, 2, &b, 2, &q, 2, {1, 1}, 0), rokStatusOk);
    EXPECT_EQ(q, 5);
    Rok16s srcDst = 20;
    ASSERT_EQ(rokiDiv_16s_C1IRSfs(&a, 2, &srcDst, 2, {1, 1}, 0), rokStatusOk);
    EXPECT_EQ(srcDst, 5);
    Rok16s x = 20, y = 0;
    ASSERT_EQ(rokiSubC_16s_C1RSfs(&x, 2, 30, &y, 2, {1, 1}, 0), rokStatusOk);
    EXPECT_EQ(y, -10);
}

TEST(ArithRules, DivisionByZero) {
    Rok8u divisor = 0, dividend = 7, d = 1;
    EXPECT_EQ(rokiDiv_8u_C1RSfs(&divisor, 1, &dividend, 1, &d, 1, {1, 1}, 0), rokStatusDivByZero);
    EXPECT_EQ(d, 255);
    dividend = 0;
    EXPECT_EQ(rokiDiv_8u_C1RSfs(&divisor, 1, &dividend, 1, &d, 1, {1, 1}, 0), rokStatusDivByZero);
    EXPECT_EQ(d, 0);
    // The warning comes after the whole ROI: a zero in the first row, the rest still computed.
    Rok8u a[4] = {0, 2, 3, 4}, b[4] = {9, 8, 9, 8}, o[4] = {};
    EXPECT_EQ(rokiDiv_8u_C1RSfs(a, 2, b, 2, o, 2, {2, 2}, 0), rokStatusDivByZero);
    EXPECT_EQ(o[0], 255);
    EXPECT_EQ(o[1], 4);
    EXPECT_EQ(o[2], 3);
    EXPECT_EQ(o[3], 2);
    // Beyond the cut-offs: sf above 8 gives 0 except at zero divisors, below -15 saturates.
    Rok8u z[2] = {0, 1}, n[2] = {5, 255}, r[2] = {};
    EXPECT_EQ(rokiDiv_8u_C1RSfs(z, 2, n, 2, r, 2, {2, 1}, 9), rokStatusDivByZero);
    EXPECT_EQ(r[0], 255);
    EXPECT_EQ(r[1], 0);
    Rok8u big[2] = {255, 255}, one[2] = {1, 0};
    EXPECT_EQ(rokiDiv_8u_C1RSfs(big, 2, one, 2, r, 2, {2, 1}, -16), rokStatusOk);
    EXPECT_EQ(r[0], 255);
    EXPECT_EQ(r[1], 0);
}

TEST(ArithRules, FloatDivisionZeroPatterns) {
    const float divisors[] = {-0.0f, 0.0f, -0.0f, 0.0f, 0.0f};
    const float dividends[] = {1.0f, -2.0f, 0.0f, std::numeric_limits<float>::quiet_NaN(), -0.0f};
    const std::uint32_t want[] = {0x7F800000u, 0xFF800000u, 0x7FBFFFFFu, 0x7FBFFFFFu, 0x7FBFFFFFu};
    for (int i = 0; i < 5; ++i) {
        float d = 1;
        EXPECT_EQ(rokiDiv_32f_C1R(&divisors[i], 4, &dividends[i], 4, &d, 4, {1, 1}), rokStatusDivByZero);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(d), want[i]) << i;
    }
}

TEST(ArithRules, DivCZeroConstantWritesNothing) {
    rokt::GuardedImage<Rok16s> img(9, 3, 1);
    img.fill_bytes(0x33);
    const auto before = img.bytes();
    EXPECT_EQ(rokiDivC_16s_C1RSfs(img.data(), img.step(), 0, img.data(), img.step(), {9, 3}, 0), rokStatusDivByZeroErr);
    const Rok16s three[3] = {1, 0, 2};
    EXPECT_EQ(rokiDivC_16s_C3IRSfs(three, img.data(), img.step(), {3, 3}, 0), rokStatusDivByZeroErr);
    const Rok32fc tiny = {1e-30f, 0.0f};  // re^2 underflows to 0
    Rok32fc x = {1, 1};
    EXPECT_EQ(rokiDivC_32fc_C1IR(tiny, &x, 8, {1, 1}), rokStatusDivByZeroErr);
    EXPECT_EQ(img.bytes(), before);
    // Far above the cut-off the ROI is zero; far below, the sign saturates.
    Rok16s v[3] = {-5, 0, 7}, o[3] = {};
    EXPECT_EQ(rokiDivC_16s_C1RSfs(v, 6, 3, o, 6, {3, 1}, 16), rokStatusOk);
    EXPECT_EQ(o[0] | o[1] | o[2], 0);
    EXPECT_EQ(rokiDivC_16s_C1RSfs(v, 6, -3, o, 6, {3, 1}, -31), rokStatusOk);
    EXPECT_EQ(o[0], 32767);
    EXPECT_EQ(o[1], 0);
    EXPECT_EQ(o[2], -32768);
}

TEST(ArithRules, DivRoundModes) {
    struct { Rok16s a, b; int mode; Rok16s want; } rows[] = {
        {2, 5, 0, 2}, {2, 5, 1, 2}, {2, 5, 2, 3}, {2, 7, 1, 4}, {2, -5, 0, -2}, {2, -5, 1, -2},
        {2, -5, 2, -3}, {3, 5, 0, 1}, {3, 5, 1, 2}, {4, 10, 1, 2},
    };
    for (auto r : rows) {
        Rok16s d = 0;
        ASSERT_EQ(rokiDiv_Round_16s_C1RSfs(&r.a, 2, &r.b, 2, &d, 2, {1, 1}, r.mode, 0), rokStatusOk);
        EXPECT_EQ(d, r.want) << r.b << "/" << r.a << " mode " << r.mode;
    }
    Rok8u a = 1, b = 1, d = 9;
    EXPECT_EQ(rokiDiv_Round_8u_C1RSfs(&a, 1, &b, 1, &d, 1, {1, 1}, 3, 0), rokStatusBadRoundMode);
    EXPECT_EQ(d, 9);
}

TEST(ArithRules, MulScaleExamples) {
    Rok8u a[3] = {255, 128, 255}, b[3] = {128, 1, 255}, d[3] = {};
    ASSERT_EQ(rokiMulScale_8u_C1R(a, 3, b, 3, d, 3, {3, 1}), rokStatusOk);
    EXPECT_EQ(d[0], 128);
    EXPECT_EQ(d[1], 0);
    EXPECT_EQ(d[2], 255);
    Rok16u x = 65535, y = 1234, z = 0;
    ASSERT_EQ(rokiMulCScale_16u_C1R(&x, 2, y, &z, 2, {1, 1}), rokStatusOk);
    EXPECT_EQ(z, 1234);
}

// Each family's checks in its order: with every argument bad, the first
// check's status wins; nothing is written.
TEST(ArithRules, CheckOrder) {
    Rok8u p[4] = {1, 1, 1, 1}, q[4] = {9, 9, 9, 9};
    const RokiSize bad{0, 1}, ok{1, 1};
    EXPECT_EQ(rokiAdd_8u_C1RSfs(nullptr, 1, p, 1, q, 1, bad, 0), rokStatusNullPtr);
    EXPECT_EQ(rokiAdd_8u_C1RSfs(p, -1, p, 0, q, -5, bad, 0), rokStatusBadSize);
    EXPECT_EQ(rokiAdd_8u_C1RSfs(p, 0, p, 0, q, 0, ok, 0), rokStatusOk);  // zero steps accepted
    EXPECT_EQ(rokiDiv_8u_C1RSfs(p, 0, p, 1, q, 1, bad, 0), rokStatusBadSize);
    EXPECT_EQ(rokiDiv_8u_C1RSfs(p, 1, p, 1, q, 0, ok, 0), rokStatusBadStep);
    EXPECT_EQ(rokiDiv_Round_8u_C1RSfs(p, 0, p, 1, q, 1, ok, 7, 0), rokStatusBadStep);
    EXPECT_EQ(rokiDiv_Round_8u_C1RSfs(p, 1, p, 1, q, 1, bad, 7, 0), rokStatusBadSize);
    EXPECT_EQ(rokiDivC_8u_C1RSfs(p, 0, 0, q, 1, ok, 0), rokStatusBadStep);
    EXPECT_EQ(rokiDivC_8u_C1RSfs(p, 1, 0, q, 1, bad, 0), rokStatusBadSize);
    EXPECT_EQ(rokiMulScale_8u_C1R(p, 0, p, 1, q, 1, bad), rokStatusBadStep);  // step before size
    EXPECT_EQ(rokiMulCScale_8u_C1R(p, 1, 3, q, 1, bad), rokStatusBadSize);
    EXPECT_EQ(q[0], 2);  // only the accepted zero-step Add wrote: 1 + 1
    EXPECT_EQ(q[1], 9);
}

// The threaded members and the threaded division kernels give the same
// bytes at 1 and 2 threads.
TEST(ArithRules, ThreadCountDoesNotChangeResults) {
    int saved = 1;
    rokGetNumThreads(&saved);
    auto run = [](int threads, auto&& call) {
        rokSetNumThreads(threads);
        return call();
    };
    const int w = 5000, h = 7;
    rokt::GuardedImage<Rok8u> a(w, h, 1, 3), b(w, h, 1, 1);
    rokt::fill_random(a, 1);
    rokt::fill_random(b, 2);
    for (int i = 0; i < w; i += 97) a.at(i, 3) = 0;
    rokt::GuardedImage<Rok32f> fa(w, h, 1), fb(w, h, 1);
    rokt::fill_random(fa, 3);
    rokt::fill_random(fb, 4);
    fa.at(4999, 6) = 0.0f;
    for (int sf : {0, 3, -2}) {
        auto add = [&] {
            rokt::GuardedImage<Rok8u> d(w, h, 1);
            EXPECT_EQ(rokiAdd_8u_C1RSfs(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), {w, h}, sf), rokStatusOk);
            return d.bytes();
        };
        EXPECT_EQ(run(1, add), run(2, add));
        auto div = [&] {
            rokt::GuardedImage<Rok8u> d(w, h, 1);
            EXPECT_EQ(rokiDiv_8u_C1RSfs(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), {w, h}, sf), rokStatusDivByZero);
            return d.bytes();
        };
        EXPECT_EQ(run(1, div), run(2, div));
    }
    auto fdiv = [&] {
        rokt::GuardedImage<Rok32f> d(w, h, 1);
        EXPECT_EQ(rokiDiv_32f_C1R(fa.data(), fa.step(), fb.data(), fb.step(), d.data(), d.step(), {w, h}), rokStatusDivByZero);
        return d.bytes();
    };
    EXPECT_EQ(run(1, fdiv), run(2, fdiv));
    auto mulc = [&] {
        rokt::GuardedImage<Rok32f> d(w / 3, h, 3);
        const float v[3] = {1.5f, -2.0f, 0.25f};
        EXPECT_EQ(rokiMulC_32f_C3R(fb.data(), fb.step(), v, d.data(), d.step(), {w / 3, h}), rokStatusOk);
        return d.bytes();
    };
    EXPECT_EQ(run(1, mulc), run(2, mulc));
    rokSetNumThreads(saved);
}

// Rows long enough for the division kernels to split over two threads, with
// the only zero divisor in the second half: its warning must come back, and
// the results must equal one thread's. AC4 halves end on pixel boundaries.
TEST(ArithRules, SplitDivisionRowsKeepResultsAndWarning) {
    const int w = 1501, h = 2;  // 6004 samples: the halves split a pixel
    rokt::GuardedImage<Rok8u> a(w, h, 4, 1), b(w, h, 4);
    rokt::GuardedImage<Rok32f> fa(w, h, 4), fb(w, h, 4, 3);
    rokt::fill_random(a, 5);
    rokt::fill_random(b, 6);
    rokt::fill_random(fa, 7);
    rokt::fill_random(fb, 8);
    for (int y = 0; y < h; ++y)
        for (int i = 0; i < 4 * w; ++i) {
            if (a.row(y)[i] == 0) a.row(y)[i] = 1;
            if (fa.row(y)[i] == 0.0f) fa.row(y)[i] = 1.0f;
        }
    a.at(1400, 1, 2) = 0;
    fa.at(1333, 0, 1) = 0.0f;
    a.at(10, 0, 3) = 0;  // alpha divisors never warn
    fa.at(10, 1, 3) = 0.0f;
    struct Call { const char* name; std::function<RokStatus(void*, int)> fn; bool is8u; };
    const Call calls[] = {
        {"Div_8u_AC4", [&](void* d, int ds) { return rokiDiv_8u_AC4RSfs(a.data(), a.step(), b.data(), b.step(), static_cast<Rok8u*>(d), ds, {w, h}, 1); }, true},
        {"Div_Round_8u_AC4", [&](void* d, int ds) { return rokiDiv_Round_8u_AC4RSfs(a.data(), a.step(), b.data(), b.step(), static_cast<Rok8u*>(d), ds, {w, h}, rokRoundHalfAway, -1); }, true},
        {"Div_Round_8u_C4", [&](void* d, int ds) { return rokiDiv_Round_8u_C4RSfs(a.data(), a.step(), b.data(), b.step(), static_cast<Rok8u*>(d), ds, {w, h}, rokRoundTruncate, 2); }, true},
        {"Div_32f_AC4", [&](void* d, int ds) { return rokiDiv_32f_AC4R(fa.data(), fa.step(), fb.data(), fb.step(), static_cast<Rok32f*>(d), ds, {w, h}); }, false},
    };
    for (const auto& c : calls) {
        auto once = [&](int threads) {
            rokt::WithThreads scope(threads);
            std::vector<std::uint8_t> out;
            if (c.is8u) {
                rokt::GuardedImage<Rok8u> d(w, h, 4);
                d.fill_bytes(0xA5);
                EXPECT_EQ(c.fn(d.data(), d.step()), rokStatusDivByZero) << c.name << " threads " << threads;
                out = d.bytes();
            } else {
                rokt::GuardedImage<Rok32f> d(w, h, 4);
                d.fill_bytes(0xA5);
                EXPECT_EQ(c.fn(d.data(), d.step()), rokStatusDivByZero) << c.name << " threads " << threads;
                out = d.bytes();
            }
            return out;
        };
        EXPECT_EQ(once(1), once(2)) << c.name;
    }
}

}  // namespace
