// The AC4 block helper: channels 0..2 come from the kernel for every pixel,
// across block boundaries, and the destination alpha is never written.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "frame/ac4.h"
#include "guarded.h"

namespace {

template <class T>
void check_width(int pixels) {
    rokt::GuardedImage<T> dst(pixels, 1, 4);
    dst.fill_bytes(0xC3);
    rok::ac4_row(dst.data(), pixels, [](T* block, int first, int n) {
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < 4; ++c) block[4 * i + c] = T((first + i) * 4 + c + 1);
    });
    T alpha;
    std::memset(&alpha, 0xC3, sizeof alpha);
    for (int x = 0; x < pixels; ++x) {
        for (int c = 0; c < 3; ++c) ASSERT_EQ(dst.at(x, 0, c), T(x * 4 + c + 1)) << pixels << " px, x=" << x;
        ASSERT_EQ(std::memcmp(&dst.at(x, 0, 3), &alpha, sizeof alpha), 0) << "alpha written at x=" << x;
    }
}

TEST(Ac4Row, WritesChannels0To2AcrossBlocksAndKeepsAlpha) {
    for (int pixels : {1, 2, 3, 5, 70, 255, 256, 257, 511, 512, 513, 1000}) {
        check_width<std::uint8_t>(pixels);
        check_width<std::int16_t>(pixels);
        check_width<float>(pixels);
        check_width<double>(pixels);
    }
}

}  // namespace
