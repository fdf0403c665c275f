// The finishing rules of the two-stage engine at every rounding boundary:
// the Nearest rule must give the exact nearest integer of sum / d for every
// sum the fixed filters can form.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "kernels/filter/separable.h"

namespace {

using namespace rok::kernels::sep;

// Sums s = d * q + r for every q in range and r at the rounding boundary
// (r = (d - 1) / 2 rounds down, (d + 1) / 2 up), through the 32-bit row
// stage with a single weight of 1.
template <class D>
void boundaries(int d, std::int64_t lo, std::int64_t hi, bool wide) {
    std::vector<std::int32_t> mid;
    std::vector<std::int64_t> want;
    const std::int64_t dd = d;
    for (std::int64_t q = lo / dd; q <= hi / dd; ++q)
        for (std::int64_t r : {-(dd + 1) / 2, -(dd - 1) / 2, dd * 0, (dd - 1) / 2, (dd + 1) / 2}) {
            const std::int64_t s = dd * q + r;
            if (s < lo || s > hi) continue;
            mid.push_back(std::int32_t(s));
            const std::int64_t twice = 2 * r >= d ? q + 1 : 2 * r <= -d ? q - 1 : q;  // nearest of s / d
            want.push_back(twice);
        }
    const std::int32_t* mids[1] = {mid.data()};
    Weights w{};
    w.n = 1;
    w.w[0] = 1;
    FinishRule f;
    f.kind = Finish::Nearest;
    f.c = 1.0 / d;
    f.wide = wide;
    std::vector<D> out(mid.size());
    row_sums(mids, w, f, int(mid.size()), out.data());
    for (std::size_t i = 0; i < mid.size(); ++i) {
        const std::int64_t sat = want[i] < std::numeric_limits<D>::min()   ? std::numeric_limits<D>::min()
                                 : want[i] > std::numeric_limits<D>::max() ? std::numeric_limits<D>::max()
                                                                           : want[i];
        ASSERT_EQ(out[i], D(sat)) << "sum " << mid[i] << " / " << d;
    }
}

TEST(SeparableKernels, NearestIsExactForEveryReachableSum) {
    // Lowpass 3x3 and 5x5 and Gauss 5x5 on 16-bit data; the engine takes
    // single precision below 2^22 and double precision above.
    boundaries<Rok16u>(9, 0, 9 * 65535, false);
    boundaries<Rok16s>(9, -9 * 32768, 9 * 32767, false);
    boundaries<Rok16u>(25, 0, 25 * 65535, false);
    boundaries<Rok16s>(25, -25 * 32768, 25 * 32767, false);
    boundaries<Rok16u>(571, 0, 571 * 65535, true);
    boundaries<Rok16s>(571, -571 * 32768, 571 * 32767, true);
    // 8-bit data: Gauss 5x5 reaches 571 * 255 in single precision.
    boundaries<Rok16u>(571, 0, 571 * 255, false);
}

}  // namespace
