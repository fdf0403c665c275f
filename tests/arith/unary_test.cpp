// Abs, Sqr and Complement: every export against the rule in wide arithmetic
// over widths 1..70 and wider rows, odd steps, guarded buffers, AC4 alpha and
// padding untouched, in place, Sqr's scale factors across the cut-offs; the
// check orders; the edge values.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>

#include "guarded.h"
#include "pixel_support.h"
#include "reference.h"
#include "unary_cases.h"

namespace rokt::pixel {
namespace {

#define LAYOUTS4(M, F, OP, t) M(F, OP, t, C1, 1, false) M(F, OP, t, C3, 3, false) M(F, OP, t, C4, 4, false) M(F, OP, t, AC4, 4, true)

void register_unary() {
    static bool done = false;
    if (done) return;
    done = true;
    LAYOUTS4(ROKT_UNARY, Abs, Unary::Abs, 16s) LAYOUTS4(ROKT_UNARY, Abs, Unary::Abs, 32f)
    LAYOUTS4(ROKT_UNARY_SFS, Sqr, Unary::Sqr, 8u) LAYOUTS4(ROKT_UNARY_SFS, Sqr, Unary::Sqr, 16u)
    LAYOUTS4(ROKT_UNARY_SFS, Sqr, Unary::Sqr, 16s) LAYOUTS4(ROKT_UNARY, Sqr, Unary::Sqr, 32f)
    ROKT_UNARY_IR(Complement, Unary::Complement, 32s, C1, 1, false)
}

template <class T>
T unary_ref(Unary op, T x, int sf) {
    if constexpr (std::is_same_v<T, Rok32f>) {
        if (op == Unary::Abs) return std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) & 0x7FFFFFFFu);
        return x * x;
    } else if constexpr (std::is_same_v<T, Rok32s>) {
        if (x >= 0) return x;
        const std::int64_t magnitude = -std::int64_t(x);  // 2^31 for the minimum: its bit 31 is the sign
        return std::bit_cast<Rok32s>(std::uint32_t(0x80000000u | std::uint64_t(magnitude)));
    } else {
        if (op == Unary::Abs) return ref::saturate<T>(x < 0 ? -ref::Wide(x) : ref::Wide(x));
        return ref::scale<T>(ref::Wide(x) * x, sf);
    }
}

template <class T>
void run_unary(const UnaryCase<T>& c, Roi roi, int sf, std::mt19937& rng) {
    GuardedImage<T> s(roi.width, roi.height, c.channels, 3, Guard::Before), d(roi.width, roi.height, c.channels, 1);
    fill_edgy(s, rng);
    d.fill_bytes(0x2D);
    const auto before = d.bytes();
    ASSERT_EQ(c.fn(s.data(), s.step(), d.data(), d.step(), {roi.width, roi.height}, sf), rokStatusOk) << c.name;
    ASSERT_TRUE(check_image(d, before, c.ac4, [&](int x, int y, int k) { return unary_ref(c.op, s.at(x, y, k), sf); }))
        << c.name << " sf " << sf << " " << roi.width << "x" << roi.height;
}

template <class T>
void run_every_unary_export() {
    register_unary();
    std::mt19937 rng(31);
    int found = 0;
    for (const auto& c : unary_cases<T>()) {
        if (c.op != Unary::Abs && c.op != Unary::Sqr && c.op != Unary::Complement) continue;
        ++found;
        for (Roi roi : tail_rois()) run_unary(c, roi, c.scaled ? 1 : 0, rng);
        if (!c.scaled) continue;
        const int bits = 8 * sizeof(T);
        for (int sf : {0, 2, -1, -3, bits - 1, bits, 2 * bits - 1, 2 * bits, 2 * bits + 1, -bits, 3000, -3000})
            run_unary(c, {45, 2}, sf, rng);
    }
    EXPECT_GT(found, 0);
}

TEST(Unary, Every8uExport) { run_every_unary_export<Rok8u>(); }
TEST(Unary, Every16uExport) { run_every_unary_export<Rok16u>(); }
TEST(Unary, Every16sExport) { run_every_unary_export<Rok16s>(); }
TEST(Unary, Every32sExport) { run_every_unary_export<Rok32s>(); }
TEST(Unary, Every32fExport) { run_every_unary_export<Rok32f>(); }

TEST(Unary, CheckOrder) {
    Rok16s s[2] = {}, d[2] = {9, 9};
    Rok32s c[2] = {9, 9};
    struct Row { const char* what; std::function<RokStatus()> call; RokStatus want; };
    const Row rows[] = {
        {"abs null", [&] { return rokiAbs_16s_C1R(nullptr, 0, d, 2, {0, 0}); }, rokStatusNullPtr},
        {"abs size before step", [&] { return rokiAbs_16s_C1R(s, 0, d, 2, {0, 1}); }, rokStatusBadSize},
        {"abs step", [&] { return rokiAbs_16s_C1R(s, -2, d, 2, {1, 1}); }, rokStatusBadStep},
        {"abs in place step", [&] { return rokiAbs_16s_AC4IR(d, 0, {1, 1}); }, rokStatusBadStep},
        {"sqr null", [&] { return rokiSqr_16s_C1RSfs(s, 2, nullptr, 2, {1, 1}, 0); }, rokStatusNullPtr},
        {"sqr size before step", [&] { return rokiSqr_16s_C1RSfs(s, 0, d, 0, {1, 0}, 0); }, rokStatusBadSize},
        {"sqr step", [&] { return rokiSqr_16s_C3IRSfs(d, 0, {1, 1}, 40); }, rokStatusBadStep},
        {"complement null", [&] { return rokiComplement_32s_C1IR(nullptr, 0, {0, 0}); }, rokStatusNullPtr},
        {"complement step before size", [&] { return rokiComplement_32s_C1IR(c, 0, {0, 0}); }, rokStatusBadStep},
        {"complement size", [&] { return rokiComplement_32s_C1IR(c, 4, {2, 0}); }, rokStatusBadSize},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.call(), r.want) << r.what;
        ASSERT_EQ(d[0], 9) << r.what << ": written";
        ASSERT_EQ(d[1], 9) << r.what << ": written";
        ASSERT_EQ(c[0], 9) << r.what << ": written";
    }
}

}  // namespace
}  // namespace rokt::pixel
