// Checks a data-movement call against a reference that names, for each
// destination sample, the value it must hold. The whole destination buffer
// (padding included) must equal its old bytes with exactly those samples
// replaced, so writes to untouched channels, alpha or padding are caught.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "roki.h"

namespace rokt::copy {

// Read-only view of an image as it was before the call.
template <class T>
struct View {
    const std::uint8_t* base;
    int step, channels;
    bool flipped = false;  // rows addressed bottom-up
    int height = 0;
    T operator()(int x, int y, int c = 0) const {
        T v;
        const int r = flipped ? height - 1 - y : y;
        std::memcpy(&v, base + std::size_t(step) * r + (std::size_t(x) * channels + c) * sizeof(T), sizeof(T));
        return v;
    }
};

struct Geometry {
    int sw, sh, sc;  // source size and channels
    int dw, dh, dc;  // destination size and channels
};

// A random value, or "no value" (the sample keeps its old content).
template <class T>
struct Expect {
    bool write;
    T value;
};

// call(srcPtr, srcStep, dstPtr, dstStep) -> status; ref(src, oldDst, x, y, c)
// -> Expect. With flipSrc the source is passed bottom-up (last row, negative
// step) and src(x, y) in the reference reads image row height-1-y.
template <class T, class Call, class Ref>
void check_call(const Geometry& g, int pad, bool flipSrc, Guard guard, std::uint32_t seed, Call&& call, Ref&& ref,
                const std::string& what) {
    GuardedImage<T> src(g.sw, g.sh, g.sc, pad, guard), dst(g.dw, g.dh, g.dc, (pad + 1) % 3, guard);
    fill_random(src, seed);
    fill_random(dst, seed + 1);
    const std::vector<std::uint8_t> srcBefore = src.bytes(), before = dst.bytes();
    const View<T> sv{srcBefore.data(), src.step(), g.sc, flipSrc, g.sh};
    const View<T> ov{before.data(), dst.step(), g.dc};
    T* sp = flipSrc ? src.bottom_up() : src.data();
    const int ss = flipSrc ? -src.step() : src.step();
    const RokStatus st = call(sp, ss, dst.data(), dst.step());
    ASSERT_EQ(st, rokStatusOk) << what;
    std::vector<std::uint8_t> expected = before;
    for (int y = 0; y < g.dh; ++y)
        for (int x = 0; x < g.dw; ++x)
            for (int c = 0; c < g.dc; ++c) {
                const Expect<T> e = ref(sv, ov, x, y, c);
                if (e.write)
                    std::memcpy(expected.data() + std::size_t(dst.step()) * y + (std::size_t(x) * g.dc + c) * sizeof(T),
                                &e.value, sizeof(T));
            }
    const std::vector<std::uint8_t> after = dst.bytes();
    if (after != expected) {
        std::size_t i = 0;
        while (after[i] == expected[i]) ++i;
        const int y = int(i / dst.step()), x = int(i % dst.step() / (g.dc * sizeof(T)));
        ADD_FAILURE() << what << ": first wrong byte at row " << y << " pixel " << x << " (dst " << g.dw << "x" << g.dh
                      << ", pad " << pad << (flipSrc ? ", source bottom-up" : "") << ")";
    }
    EXPECT_EQ(src.bytes(), srcBefore) << what << ": source changed";
}

// Widths 1..70 at heights 1 and 3 (plus a bottom-up source at height 3),
// odd and zero pads, guard pages after and before the buffers. `geometry`
// maps (w, h) to the call's geometry.
template <class T, class Geo, class Call, class Ref>
void sweep(Geo&& geometry, Call&& call, Ref&& ref, const std::string& what, bool allowFlip = true,
           std::initializer_list<int> heights = {1, 3}, int minWidth = 1) {
    for (int w = minWidth; w <= 70; ++w)
        for (int h : heights) {
            const Geometry g = geometry(w, h);
            const int pad = w % 3;
            const Guard guard = w % 2 ? Guard::After : Guard::Before;
            check_call<T>(g, pad, false, guard, std::uint32_t(w * 7 + h), call, ref, what + " w=" + std::to_string(w));
            if (h == 3 && allowFlip && w % 5 == 0)
                check_call<T>(g, pad, true, guard, std::uint32_t(w * 11), call, ref, what + " bottom-up w=" + std::to_string(w));
            if (::testing::Test::HasFailure()) return;
        }
}

// Mask bytes in 16-byte runs that are all zero, all set or mixed, varying by
// row, so each kind of block meets every pixel size and every tail.
inline std::uint8_t mask_byte(int x, int y) {
    const int kind = (x / 16 + y) % 3;
    const std::uint32_t h = std::uint32_t(x * 2654435761u ^ y * 40503u) >> 7;
    if (kind == 0) return 0;
    if (kind == 1) return std::uint8_t(1 + h % 255);
    return (h & 1) ? std::uint8_t(1 + h % 200) : 0;
}

// Fills `bytes` with 0xA5, runs fn, and checks that nothing changed.
template <class Fn>
void expect_untouched(std::vector<std::uint8_t>& bytes, Fn&& fn, RokStatus want, const std::string& what) {
    std::fill(bytes.begin(), bytes.end(), 0xA5);
    const std::vector<std::uint8_t> before = bytes;
    EXPECT_EQ(fn(), want) << what;
    EXPECT_EQ(bytes, before) << what << ": written on error";
}

}  // namespace rokt::copy
