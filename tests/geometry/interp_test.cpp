// The shared interpolation kernels against their formulas: the Lanczos
// table, the cubics (exact at the knots of the interpolating ones) and the
// tap weights.
#include <gtest/gtest.h>

#include <cmath>

#include "geometry/interp.h"
#include "resize_reference.h"

namespace {

namespace g = rok::geometry;

TEST(Interpolation, LanczosTableHoldsTheNearestFloats) {
    const float* table = g::lanczos_table();
    const auto& want = rref::lanczos_table();
    for (int i = 0; i <= 300; ++i) EXPECT_EQ(table[i], want[std::size_t(i)]) << i;
    EXPECT_EQ(table[301], 0.0f);
    // Between entries the kernel interpolates linearly; from 3 on it is 0.
    EXPECT_DOUBLE_EQ(g::lanczos_kernel(0.505), table[50] + (double(table[51]) - table[50]) * 0.5);
    EXPECT_EQ(g::lanczos_kernel(3.0), 0.0);
    EXPECT_EQ(g::lanczos_kernel(7.5), 0.0);
}

TEST(Interpolation, CubicKernelsFollowTheirFormulas) {
    for (int method : {4, 5, 6, 7}) {
        for (double a = 0; a < 2.5; a += 1.0 / 64)
            EXPECT_NEAR(g::cubic_kernel(method, a), rref::cubic(method, a), 1e-14) << method << " at " << a;
    }
    // The interpolating kernels pass through the samples exactly.
    for (int method : {4, 6}) {
        EXPECT_EQ(g::cubic_kernel(method, 0), 1.0) << method;
        EXPECT_EQ(g::cubic_kernel(method, 1), 0.0) << method;
        EXPECT_EQ(g::cubic_kernel(method, 2), 0.0) << method;
    }
}

TEST(Interpolation, TapWeights) {
    double w[6];
    g::tap_weights(g::kLinear, 0.25, w);
    EXPECT_EQ(w[0], 0.75);
    EXPECT_EQ(w[1], 0.25);
    for (double t : {0.0, 0.3, 0.5, 0.99}) {
        g::tap_weights(g::kLanczos, t, w);
        double sum = 0;
        for (double v : w) sum += v;
        EXPECT_NEAR(sum, 1.0, 1e-15) << t;
        EXPECT_NEAR(w[3] * g::lanczos_kernel(t), w[2] * g::lanczos_kernel(1 - t), 1e-15) << t;
        g::tap_weights(g::kCatmullRom, t, w);
        EXPECT_NEAR(w[0], rref::cubic(6, 1 + t), 1e-15) << t;
        EXPECT_NEAR(w[1] + w[2] + w[0] + w[3], 1.0, 1e-15) << t;
    }
    g::tap_weights(g::kLanczos, 0.0, w);
    EXPECT_TRUE(w[0] == 0 && w[1] == 0 && w[2] == 1 && w[3] == 0 && w[4] == 0 && w[5] == 0);
}

}  // namespace
