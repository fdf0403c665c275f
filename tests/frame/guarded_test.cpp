// The test images themselves: the guard page really faults, steps and padding
// come out as asked.
#include <gtest/gtest.h>

#include <cstdint>

#include "guarded.h"
#include "random.h"

namespace {

TEST(GuardedImage, LastByteAbutsTheGuardPage) {
    rokt::GuardedImage<std::uint16_t> img(5, 3, 3, 1);
    EXPECT_EQ(img.step(), (5 * 3 + 1) * 2);
    volatile std::uint16_t* last = &img.at(4, 2, 2);
    *last = 7;  // the last sample is writable
    EXPECT_DEATH({ last[1] = 1; }, "");
}

TEST(GuardedImage, FirstByteFollowsTheGuardPageWhenAskedBefore) {
    rokt::GuardedImage<std::uint8_t> img(4, 2, 1, 0, rokt::Guard::Before);
    volatile std::uint8_t* first = img.data();
    *first = 1;
    EXPECT_DEATH({ first[-1] = 1; }, "");
}

TEST(GuardedImage, RandomFillIsReproducibleAndLeavesPadding) {
    rokt::GuardedImage<std::int16_t> a(9, 4, 1, 3), b(9, 4, 1, 3);
    a.fill_bytes(0xEE);
    b.fill_bytes(0xEE);
    rokt::fill_random(a, 42);
    rokt::fill_random(b, 42);
    EXPECT_EQ(a.bytes(), b.bytes());
    EXPECT_EQ(std::uint16_t(a.row(0)[9]), 0xEEEE);  // padding untouched
}

}  // namespace
