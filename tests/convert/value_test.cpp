// Widening, saturating narrowing and sign change against a wide-arithmetic
// reference, every layout, widths 1..70, guarded buffers.
#include <cstdint>
#include <limits>
#include <type_traits>

#include "harness.h"
#include "random.h"

namespace {

using convt::check_form;

// Every type edge and saturation edge that fits S, mixed with uniform values.
template <class S>
convt::Fill<S> edge_fill() {
    std::vector<S> pool;
    const std::int64_t edges[] = {0, 1, -1, 126, 127, 128, 129, -127, -128, -129, 254, 255, 256, 32766, 32767,
                                  32768, -32767, -32768, -32769, 65534, 65535, 65536, 2147483647LL, -2147483648LL,
                                  4294967295LL, 16777217, -16777217};
    for (std::int64_t e : edges)
        if (e >= std::int64_t(std::numeric_limits<S>::min()) && e <= std::int64_t(std::numeric_limits<S>::max()))
            pool.push_back(S(e));
    return convt::pool_fill<S>(pool, double(std::numeric_limits<S>::min()), double(std::numeric_limits<S>::max()));
}

// The value kept, or saturated to D's range (computed in 64-bit arithmetic).
template <class S, class D>
D kept(S x) {
    if constexpr (std::is_floating_point_v<D>) {
        return D(x);
    } else {
        const std::int64_t v = std::int64_t(x);
        const std::int64_t lo = std::numeric_limits<D>::min(), hi = std::int64_t(std::numeric_limits<D>::max());
        return D(v < lo ? lo : (v > hi ? hi : v));
    }
}

template <class S, class D>
void four_layouts(const char* name, RokStatus (*c1)(const S*, int, D*, int, RokiSize),
                  RokStatus (*c3)(const S*, int, D*, int, RokiSize), RokStatus (*c4)(const S*, int, D*, int, RokiSize),
                  RokStatus (*ac4)(const S*, int, D*, int, RokiSize)) {
    SCOPED_TRACE(name);
    check_form<S, D>("C1R", 1, false, c1, kept<S, D>, edge_fill<S>());
    check_form<S, D>("C3R", 3, false, c3, kept<S, D>, edge_fill<S>());
    check_form<S, D>("C4R", 4, false, c4, kept<S, D>, edge_fill<S>());
    check_form<S, D>("AC4R", 4, true, ac4, kept<S, D>, edge_fill<S>());
}

#define ROK_FOUR(T) \
    four_layouts(#T, rokiConvert_##T##_C1R, rokiConvert_##T##_C3R, rokiConvert_##T##_C4R, rokiConvert_##T##_AC4R)

TEST(ConvertValue, WideningAllLayouts) {
    ROK_FOUR(8u16u);
    ROK_FOUR(8u16s);
    ROK_FOUR(8u32s);
    ROK_FOUR(8u32f);
    ROK_FOUR(8s32s);
    ROK_FOUR(8s32f);
    ROK_FOUR(16u32s);
    ROK_FOUR(16u32f);
    ROK_FOUR(16s32s);
    ROK_FOUR(16s32f);
}

TEST(ConvertValue, WideningSingleLayout) {
    check_form<Rok8s, Rok16s>("8s16s", 1, false, rokiConvert_8s16s_C1R, kept<Rok8s, Rok16s>, edge_fill<Rok8s>());
    check_form<Rok16u, Rok32u>("16u32u", 1, false, rokiConvert_16u32u_C1R, kept<Rok16u, Rok32u>, edge_fill<Rok16u>());
    check_form<Rok32s, Rok32f>("32s32f", 1, false, rokiConvert_32s32f_C1R, kept<Rok32s, Rok32f>, edge_fill<Rok32s>());
    check_form<Rok32u, Rok32f>("32u32f", 1, false, rokiConvert_32u32f_C1R, kept<Rok32u, Rok32f>, edge_fill<Rok32u>());
}

TEST(ConvertValue, NarrowingSaturates) {
    ROK_FOUR(16u8u);
    ROK_FOUR(16s8u);
    ROK_FOUR(32s8u);
    ROK_FOUR(32s8s);
}

TEST(ConvertValue, SignChangeSendsNegativesToZero) {
    check_form<Rok8s, Rok8u>("8s8u", 1, false, rokiConvert_8s8u_C1Rs, kept<Rok8s, Rok8u>, edge_fill<Rok8s>());
    check_form<Rok8s, Rok16u>("8s16u", 1, false, rokiConvert_8s16u_C1Rs, kept<Rok8s, Rok16u>, edge_fill<Rok8s>());
    check_form<Rok8s, Rok32u>("8s32u", 1, false, rokiConvert_8s32u_C1Rs, kept<Rok8s, Rok32u>, edge_fill<Rok8s>());
    check_form<Rok16s, Rok16u>("16s16u", 1, false, rokiConvert_16s16u_C1Rs, kept<Rok16s, Rok16u>, edge_fill<Rok16s>());
    check_form<Rok16s, Rok32u>("16s32u", 1, false, rokiConvert_16s32u_C1Rs, kept<Rok16s, Rok32u>, edge_fill<Rok16s>());
    check_form<Rok32s, Rok32u>("32s32u", 1, false, rokiConvert_32s32u_C1Rs, kept<Rok32s, Rok32u>, edge_fill<Rok32s>());
}

TEST(ConvertValue, SpotValues) {
    const Rok16s s16[4] = {-32768, -1, 255, 256};
    Rok8u d8[4] = {9, 9, 9, 9};
    ASSERT_EQ(rokiConvert_16s8u_C1R(s16, 8, d8, 4, RokiSize{4, 1}), rokStatusOk);
    EXPECT_EQ(d8[0], 0);
    EXPECT_EQ(d8[1], 0);
    EXPECT_EQ(d8[2], 255);
    EXPECT_EQ(d8[3], 255);
    const Rok32s s32[3] = {-2147483647 - 1, 200, 2147483647};
    Rok8s d8s[3];
    ASSERT_EQ(rokiConvert_32s8s_C1R(s32, 12, d8s, 3, RokiSize{3, 1}), rokStatusOk);
    EXPECT_EQ(d8s[0], -128);
    EXPECT_EQ(d8s[1], 127);
    EXPECT_EQ(d8s[2], 127);
    const Rok32s neg[2] = {-5, 2147483647};
    Rok32u du[2];
    ASSERT_EQ(rokiConvert_32s32u_C1Rs(neg, 8, du, 8, RokiSize{2, 1}), rokStatusOk);
    EXPECT_EQ(du[0], 0u);
    EXPECT_EQ(du[1], 2147483647u);
}

// The forms that check no step follow the pointer arithmetic of a negative
// step: the images are walked bottom-up.
TEST(ConvertValue, NegativeStepsWhereUnchecked) {
    rokt::GuardedImage<Rok16s> src(37, 5, 1, 3);
    rokt::GuardedImage<Rok32s> dst(37, 5, 1, 1);
    rokt::fill_random(src, 11);
    ASSERT_EQ(rokiConvert_16s32s_C1R(src.bottom_up(), -src.step(), dst.bottom_up(), -dst.step(), RokiSize{37, 5}),
              rokStatusOk);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 37; ++x) ASSERT_EQ(dst.at(x, y), src.at(x, y));
}

}  // namespace
