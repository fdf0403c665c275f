// The shared scale-factor and saturation helpers against the independent
// reference, over exact results and scale factors wider than any family uses.
#include <gtest/gtest.h>

#include <cstdint>

#include "kernels/rules.h"
#include "reference.h"

namespace {

template <class T>
void check_type() {
    const std::int64_t xs[] = {0, 1, -1, 2, 3, 5, -3, -5, 127, 128, 255, 256, 510, 511, -32768, 32767,
                               65535, 65536, 131070, -65536, 2147483647LL, -2147483648LL, 4294967295LL,
                               (1LL << 40) + 3, -(1LL << 40) - 3, 4611686018427387903LL / 2};
    for (std::int64_t x : xs)
        for (int sf = -70; sf <= 70; ++sf)
            ASSERT_EQ(rok::kernels::scale_saturate<T>(x, sf), rokt::ref::scale<T>(x, sf)) << x << " sf " << sf;
}

TEST(Rules, ScaleSaturateMatchesReference) {
    check_type<std::uint8_t>();
    check_type<std::int16_t>();
    check_type<std::uint16_t>();
    check_type<std::int32_t>();
}

TEST(Rules, TiesRoundToEven) {
    // 3/2 -> 2, 1/2 -> 0, 5/2 -> 2, -3/2 -> -2, -1/2 -> 0.
    EXPECT_EQ(rok::kernels::scale_saturate<std::int16_t>(3, 1), 2);
    EXPECT_EQ(rok::kernels::scale_saturate<std::int16_t>(1, 1), 0);
    EXPECT_EQ(rok::kernels::scale_saturate<std::int16_t>(5, 1), 2);
    EXPECT_EQ(rok::kernels::scale_saturate<std::int16_t>(-3, 1), -2);
    EXPECT_EQ(rok::kernels::scale_saturate<std::int16_t>(-1, 1), 0);
    EXPECT_EQ(rok::kernels::scale_saturate<std::uint8_t>(300, 0), 255);
    EXPECT_EQ(rok::kernels::scale_saturate<std::uint8_t>(-1, 0), 0);
    EXPECT_EQ(rok::kernels::scale_saturate<std::uint8_t>(1, -8), 255);
    EXPECT_EQ(rok::kernels::scale_saturate<std::uint8_t>(1, -7), 128);
}

}  // namespace
