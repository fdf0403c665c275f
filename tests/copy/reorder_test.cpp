// rokiMirror, rokiTranspose, rokiSwapChannels and rokiDup against
// per-sample references, through the exported functions.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "harness.h"
#include "kernels/copy/copy_order.h"

namespace {

using namespace rokt::copy;
using rokt::Guard;

template <class T>
using MirrorFn = RokStatus (*)(const T*, int, T*, int, RokiSize, int);
template <class T>
using MirrorIFn = RokStatus (*)(T*, int, RokiSize, int);

// Source pixel that lands on destination (x, y) for a w x h mirror.
inline void mirrored(int axis, int w, int h, int x, int y, int& sx, int& sy) {
    sx = axis == rokFlipAboutHorizontal ? x : w - 1 - x;
    sy = axis == rokFlipAboutVertical ? y : h - 1 - y;
}

template <class T>
void mirror_forms(MirrorFn<T> fn, MirrorIFn<T> ifn, int C, bool ac4, const char* name) {
    for (int axis : {0, 1, 2}) {
        int w = 0, h = 0;
        const auto geo = [&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, C, w, h, C}; };
        const std::string what = std::string(name) + " axis " + std::to_string(axis);
        sweep<T>(geo, [&](const T* s, int ss, T* d, int ds) { return fn(s, ss, d, ds, {w, h}, axis); },
                 [&](const View<T>& src, const View<T>&, int x, int y, int c) {
                     int sx, sy;
                     mirrored(axis, w, h, x, y, sx, sy);
                     return Expect<T>{!(ac4 && c == 3), src(sx, sy, c)};
                 },
                 what, true, {2, 3, 4}, 2);
        // In place, and the R form called with equal pointers and steps.
        for (bool viaR : {false, true})
            sweep<T>(geo,
                     [&](const T*, int, T* d, int ds) { return viaR ? fn(d, ds, d, ds, {w, h}, axis) : ifn(d, ds, {w, h}, axis); },
                     [&](const View<T>&, const View<T>& old, int x, int y, int c) {
                         int sx, sy;
                         mirrored(axis, w, h, x, y, sx, sy);
                         return Expect<T>{!(ac4 && c == 3), old(sx, sy, c)};
                     },
                     what + (viaR ? " R in place" : " IR"), false, {2, 3, 5}, 2);
    }
}

template <class T>
void mirror_errors(MirrorFn<T> fn, MirrorIFn<T> ifn) {
    std::vector<std::uint8_t> buf(512);
    T* d = reinterpret_cast<T*>(buf.data());
    const T s[64] = {};
    const struct { RokiSize roi; int axis; RokStatus want; } cases[] = {
        {{4, 4}, 3, rokStatusBadMirrorAxis},  {{4, 4}, -1, rokStatusBadMirrorAxis},
        {{4, 1}, 0, rokStatusBadSize},        {{4, 1}, 2, rokStatusBadSize},
        {{1, 4}, 1, rokStatusBadSize},        {{1, 4}, 2, rokStatusBadSize},
        {{0, 4}, 3, rokStatusBadSize},        {{4, 1}, 3, rokStatusBadMirrorAxis},
    };
    for (const auto& k : cases) {
        const std::string what = "roi " + std::to_string(k.roi.width) + "x" + std::to_string(k.roi.height) + " axis " + std::to_string(k.axis);
        expect_untouched(buf, [&] { return fn(s, 16, d, 16, k.roi, k.axis); }, k.want, what);
        expect_untouched(buf, [&] { return ifn(d, 16, k.roi, k.axis); }, k.want, what + " IR");
    }
    expect_untouched(buf, [&] { return fn(nullptr, 16, d, 16, {4, 4}, 7); }, rokStatusNullPtr, "null");
    expect_untouched(buf, [&] { return ifn(nullptr, 16, {0, 0}, 7); }, rokStatusNullPtr, "null IR");
    // One row about the vertical axis and one column about the horizontal
    // axis are fine.
    EXPECT_EQ(fn(s, 16, d, 16, {4, 1}, 1), rokStatusOk);
    EXPECT_EQ(ifn(d, 16, {1, 4}, 0), rokStatusOk);
}

template <class T>
using TransposeFn = RokStatus (*)(const T*, int, T*, int, RokiSize);
template <class T>
using TransposeIFn = RokStatus (*)(T*, int, RokiSize);

template <class T>
void transpose_forms(TransposeFn<T> fn, TransposeIFn<T> ifn, int C, const char* name) {
    int w = 0, h = 0;
    sweep<T>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, C, h, w, C}; },
             [&](const T* s, int ss, T* d, int ds) { return fn(s, ss, d, ds, {w, h}); },
             [&](const View<T>& src, const View<T>&, int x, int y, int c) { return Expect<T>{true, src(y, x, c)}; },
             name, true, {1, 3, 67});
    for (bool viaR : {false, true})
        sweep<T>([&](int ww, int) { w = h = ww; return Geometry{w, w, C, w, w, C}; },
                 [&](const T*, int, T* d, int ds) { return viaR ? fn(d, ds, d, ds, {w, w}) : ifn(d, ds, {w, w}); },
                 [&](const View<T>&, const View<T>& old, int x, int y, int c) { return Expect<T>{true, old(y, x, c)}; },
                 std::string(name) + (viaR ? " R in place" : " IR"), false, {1});
    std::vector<std::uint8_t> buf(4096);
    T* d = reinterpret_cast<T*>(buf.data());
    expect_untouched(buf, [&] { return ifn(d, 64, {3, 4}); }, rokStatusBadSize, "IR not square");
    expect_untouched(buf, [&] { return fn(d, 64, d, 64, {4, 3}); }, rokStatusBadSize, "R in place not square");
    expect_untouched(buf, [&] { return fn(d + 64, 64, d, 64, {0, 3}); }, rokStatusBadSize, "R width 0");
    expect_untouched(buf, [&] { return ifn(nullptr, 64, {0, 3}); }, rokStatusNullPtr, "IR null");
}

// The recursive kernel that large images use, at sizes whose halving gives
// uneven tiles.
TEST(Transpose, RecursiveKernelMatchesReference) {
    for (auto [w, h] : {std::pair{200, 150}, std::pair{97, 301}, std::pair{64, 64}}) {
        std::vector<std::uint8_t> src(std::size_t(w) * h * 3), dst(std::size_t(w) * h * 3, 0);
        for (std::size_t i = 0; i < src.size(); ++i) src[i] = std::uint8_t(i * 31 + i / 7);
        rok::kernels::transpose_recursive<3>(src.data(), w * 3, dst.data(), h * 3, w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int b = 0; b < 3; ++b)
                    ASSERT_EQ(dst[(std::size_t(x) * h + y) * 3 + b], src[(std::size_t(y) * w + x) * 3 + b]) << w << "x" << h;
    }
}

// The block kernel for every pixel width (vector tiles for 1, 2, 3, 4 and 8
// bytes; pieces wider than the pixel for 3, 6 and 12), at sizes that leave
// partial 256-bit and 128-bit tiles on both edges, with byte offsets that
// misalign both pointers, odd steps, and each buffer ending at (or starting
// after) a protected page. Padding bytes between rows must keep their values.
template <int PB>
void transpose_kernel_sizes() {
    std::vector<std::pair<int, int>> sizes;
    for (int w = 1; w <= 70; ++w) {
        for (int h : {1, 4, 7, 8, 9, 15, 16, 17, 31, 32, 33, 64, 65, 70}) sizes.emplace_back(w, h);
        sizes.emplace_back(w, (w * 13) % 70 + 1);
    }
    for (std::size_t k = 0; k < sizes.size(); ++k) {
        const auto [w, h] = sizes[k];
        const int lead = int(k % 4), srcPad = int(k % 3) * 3, dstPad = int(k % 5);
        const Guard guard = k % 2 ? Guard::After : Guard::Before;
        const int ss = w * PB + srcPad, ds = h * PB + dstPad;
        rokt::GuardedBuffer src(std::size_t(lead) + std::size_t(ss) * (h - 1) + std::size_t(w) * PB, guard);
        rokt::GuardedBuffer dst(std::size_t(lead) + std::size_t(ds) * (w - 1) + std::size_t(h) * PB, guard);
        for (std::size_t i = 0; i < src.size(); ++i) src.data()[i] = std::uint8_t(i * 131 + i / 251 + k);
        for (std::size_t i = 0; i < dst.size(); ++i) dst.data()[i] = std::uint8_t(i * 7 + 0x5A);
        // Some sources and destinations go bottom-up (last row first,
        // negative step): bytes past a row's end then belong to the row
        // before it, or to nothing for the first row.
        const bool srcUp = k % 3 == 1, dstUp = k % 7 == 3;
        const auto srcRow = [&](int y) { return std::size_t(lead) + std::size_t(srcUp ? h - 1 - y : y) * ss; };
        const auto dstRow = [&](int x) { return std::size_t(lead) + std::size_t(dstUp ? w - 1 - x : x) * ds; };
        std::vector<std::uint8_t> want(dst.data(), dst.data() + dst.size());
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int b = 0; b < PB; ++b)
                    want[dstRow(x) + std::size_t(y) * PB + b] = src.data()[srcRow(y) + std::size_t(x) * PB + b];
        rok::kernels::transpose_block<PB>(src.data() + srcRow(0), srcUp ? -ss : ss, dst.data() + dstRow(0), dstUp ? -ds : ds, w, h);
        ASSERT_TRUE(std::equal(want.begin(), want.end(), dst.data()))
            << "pixel bytes " << PB << ", " << w << "x" << h << " lead " << lead << (srcUp ? " source bottom-up" : "")
            << (dstUp ? " destination bottom-up" : "");
    }
}

TEST(Transpose, BlockKernelEdgesAndPlacement) {
    transpose_kernel_sizes<1>();
    transpose_kernel_sizes<2>();
    transpose_kernel_sizes<3>();
    transpose_kernel_sizes<4>();
    transpose_kernel_sizes<6>();
    transpose_kernel_sizes<8>();
    transpose_kernel_sizes<12>();
    transpose_kernel_sizes<16>();
}

// Images larger than one 64-pixel block in one direction only, so the last
// blocks are partial and the blocks are not square; the destination is
// passed bottom-up as well.
template <class T>
void transpose_tall_and_wide(TransposeFn<T> fn, int C) {
    for (auto [w, h] : {std::pair{65, 130}, std::pair{130, 65}, std::pair{200, 9}})
        for (bool flip : {false, true}) {
            rokt::GuardedImage<T> src(w, h, C, 1, Guard::After), dst(h, w, C, 2, Guard::Before);
            rokt::fill_random(src, std::uint32_t(w + h));
            dst.fill_bytes(0x3C);
            T* d = flip ? dst.bottom_up() : dst.data();
            ASSERT_EQ(fn(src.data(), src.step(), d, flip ? -dst.step() : dst.step(), {w, h}), rokStatusOk);
            for (int y = 0; y < w; ++y)
                for (int x = 0; x < h; ++x)
                    for (int c = 0; c < C; ++c)
                        ASSERT_EQ(dst.at(x, flip ? w - 1 - y : y, c), src.at(y, x, c)) << w << "x" << h << (flip ? " bottom-up" : "");
        }
}

TEST(Transpose, PartialBlocks) {
    transpose_tall_and_wide<Rok8u>(rokiTranspose_8u_C1R, 1);
    transpose_tall_and_wide<Rok8u>(rokiTranspose_8u_C4R, 4);
    transpose_tall_and_wide<Rok16u>(rokiTranspose_16u_C1R, 1);
    transpose_tall_and_wide<Rok16s>(rokiTranspose_16s_C4R, 4);
    transpose_tall_and_wide<Rok32f>(rokiTranspose_32f_C1R, 1);
    transpose_tall_and_wide<Rok32s>(rokiTranspose_32s_C3R, 3);
}

template <class T>
using SwapFn = RokStatus (*)(const T*, int, T*, int, RokiSize, const int*);
template <class T>
using SwapFillFn = RokStatus (*)(const T*, int, T*, int, RokiSize, const int*, T);

template <class T>
void swap_forms(SwapFn<T> c3, SwapFn<T> ac4, SwapFn<T> c4c3, SwapFillFn<T> c3c4) {
    const int orders3[][3] = {{2, 1, 0}, {1, 2, 0}, {0, 0, 2}, {2, 2, 2}};
    int w = 0, h = 0;
    const auto geo = [&](int sc, int dc) { return [&w, &h, sc, dc](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, sc, w, h, dc}; }; };
    for (const auto& o : orders3) {
        sweep<T>(geo(3, 3), [&](const T* s, int ss, T* d, int ds) { return c3(s, ss, d, ds, {w, h}, o); },
                 [&](const View<T>& src, const View<T>&, int x, int y, int c) { return Expect<T>{true, src(x, y, o[c])}; },
                 "C3R", false);
        sweep<T>(geo(4, 4), [&](const T* s, int ss, T* d, int ds) { return ac4(s, ss, d, ds, {w, h}, o); },
                 [&](const View<T>& src, const View<T>&, int x, int y, int c) { return Expect<T>{c < 3, src(x, y, c < 3 ? o[c] : 0)}; },
                 "AC4R", false);
        // C3R with the source equal to the destination works in place.
        sweep<T>(geo(3, 3), [&](const T*, int, T* d, int ds) { return c3(d, ds, d, ds, {w, h}, o); },
                 [&](const View<T>&, const View<T>& old, int x, int y, int c) { return Expect<T>{true, old(x, y, o[c])}; },
                 "C3R in place", false);
    }
    const int orders43[][3] = {{3, 2, 1}, {0, 3, 3}, {1, 0, 2}};
    for (const auto& o : orders43)
        sweep<T>(geo(4, 3), [&](const T* s, int ss, T* d, int ds) { return c4c3(s, ss, d, ds, {w, h}, o); },
                 [&](const View<T>& src, const View<T>&, int x, int y, int c) { return Expect<T>{true, src(x, y, o[c])}; },
                 "C4C3R");
    const T fill = T(std::is_floating_point_v<T> ? 0.25 : 99);
    const int orders34[][4] = {{2, 1, 0, 3}, {2, 1, 0, 4}, {3, 0, 9, 1}, {0, 1, 2, 2}, {5, 4, 3, 3}};
    for (const auto& o : orders34)
        sweep<T>(geo(3, 4), [&](const T* s, int ss, T* d, int ds) { return c3c4(s, ss, d, ds, {w, h}, o, fill); },
                 [&](const View<T>& src, const View<T>&, int x, int y, int c) {
                     return Expect<T>{o[c] <= 3, o[c] < 3 ? src(x, y, o[c]) : fill};
                 },
                 "C3C4R");
    // Checks: pointers, size, steps (C3R, AC4R only), order.
    std::vector<std::uint8_t> buf(256);
    T* d = reinterpret_cast<T*>(buf.data());
    const T s[64] = {};
    const int bad3[3] = {0, 3, 1}, neg3[3] = {0, -1, 1}, ok3[3] = {0, 1, 2}, bad4[4] = {0, 1, -2, 3}, bad43[3] = {4, 0, 1};
    expect_untouched(buf, [&] { return c3(s, 12, d, 12, {1, 1}, bad3); }, rokStatusBadChannelOrder, "C3R 3");
    expect_untouched(buf, [&] { return c3(s, 12, d, 12, {1, 1}, neg3); }, rokStatusBadChannelOrder, "C3R -1");
    expect_untouched(buf, [&] { return c3(s, 0, d, 12, {1, 1}, bad3); }, rokStatusBadStep, "C3R step before order");
    expect_untouched(buf, [&] { return ac4(s, 16, d, -16, {1, 1}, ok3); }, rokStatusBadStep, "AC4R negative step");
    expect_untouched(buf, [&] { return c3(s, 0, d, 0, {0, 1}, ok3); }, rokStatusBadSize, "C3R size before step");
    expect_untouched(buf, [&] { return c3(s, 12, d, 12, {1, 1}, nullptr); }, rokStatusNullPtr, "C3R null order");
    expect_untouched(buf, [&] { return c4c3(s, 16, d, 12, {1, 1}, bad43); }, rokStatusBadChannelOrder, "C4C3R 4");
    expect_untouched(buf, [&] { return c3c4(s, 12, d, 16, {1, 1}, bad4, fill); }, rokStatusBadChannelOrder, "C3C4R negative");
    expect_untouched(buf, [&] { return c3c4(s, 12, d, 16, {0, 1}, bad4, fill); }, rokStatusBadSize, "C3C4R size first");
    // The C4C3R and C3C4R forms accept any step.
    EXPECT_EQ(c4c3(s, 0, d + 32, -12, {2, 2}, ok3), rokStatusOk);
}

#define ROK_REORDER_TESTS(t, T)                                                                                 \
    TEST(Mirror, AllLayouts_##t) {                                                                             \
        mirror_forms<T>(rokiMirror_##t##_C1R, rokiMirror_##t##_C1IR, 1, false, "C1");                          \
        mirror_forms<T>(rokiMirror_##t##_C3R, rokiMirror_##t##_C3IR, 3, false, "C3");                          \
        mirror_forms<T>(rokiMirror_##t##_C4R, rokiMirror_##t##_C4IR, 4, false, "C4");                          \
        mirror_forms<T>(rokiMirror_##t##_AC4R, rokiMirror_##t##_AC4IR, 4, true, "AC4");                        \
        mirror_errors<T>(rokiMirror_##t##_AC4R, rokiMirror_##t##_AC4IR);                                       \
    }                                                                                                           \
    TEST(Transpose, AllLayouts_##t) {                                                                          \
        transpose_forms<T>(rokiTranspose_##t##_C1R, rokiTranspose_##t##_C1IR, 1, "C1");                        \
        transpose_forms<T>(rokiTranspose_##t##_C3R, rokiTranspose_##t##_C3IR, 3, "C3");                        \
        transpose_forms<T>(rokiTranspose_##t##_C4R, rokiTranspose_##t##_C4IR, 4, "C4");                        \
    }                                                                                                           \
    TEST(SwapChannels, AllForms_##t) {                                                                         \
        swap_forms<T>(rokiSwapChannels_##t##_C3R, rokiSwapChannels_##t##_AC4R, rokiSwapChannels_##t##_C4C3R,   \
                      rokiSwapChannels_##t##_C3C4R);                                                           \
    }

ROK_REORDER_TESTS(8u, Rok8u)
ROK_REORDER_TESTS(16s, Rok16s)
ROK_REORDER_TESTS(16u, Rok16u)
ROK_REORDER_TESTS(32s, Rok32s)
ROK_REORDER_TESTS(32f, Rok32f)

TEST(SwapChannels, InPlace8u) {
    int w = 0, h = 0;
    const int o3[3] = {2, 0, 1}, o4[4] = {3, 3, 0, 1};
    sweep<Rok8u>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, 3, w, h, 3}; },
                 [&](const Rok8u*, int, Rok8u* d, int ds) { return rokiSwapChannels_8u_C3IR(d, ds, {w, h}, o3); },
                 [&](const View<Rok8u>&, const View<Rok8u>& old, int x, int y, int c) { return Expect<Rok8u>{true, old(x, y, o3[c])}; },
                 "C3IR", false);
    sweep<Rok8u>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, 4, w, h, 4}; },
                 [&](const Rok8u*, int, Rok8u* d, int ds) { return rokiSwapChannels_8u_C4IR(d, ds, {w, h}, o4); },
                 [&](const View<Rok8u>&, const View<Rok8u>& old, int x, int y, int c) { return Expect<Rok8u>{true, old(x, y, o4[c])}; },
                 "C4IR", false);
    std::vector<std::uint8_t> buf(64);
    const int bad4[4] = {0, 1, 2, 4}, bad3[3] = {3, 0, 1};
    // C4IR tests the step before the size, C3IR the size before the step.
    expect_untouched(buf, [&] { return rokiSwapChannels_8u_C4IR(buf.data(), 0, {0, 1}, o4); }, rokStatusBadStep, "C4IR");
    expect_untouched(buf, [&] { return rokiSwapChannels_8u_C3IR(buf.data(), 0, {0, 1}, o3); }, rokStatusBadSize, "C3IR");
    expect_untouched(buf, [&] { return rokiSwapChannels_8u_C4IR(buf.data(), 16, {1, 1}, bad4); }, rokStatusBadChannelOrder, "C4IR order");
    expect_untouched(buf, [&] { return rokiSwapChannels_8u_C3IR(buf.data(), 0, {1, 1}, bad3); }, rokStatusBadStep, "C3IR step first");
    expect_untouched(buf, [&] { return rokiSwapChannels_8u_C3IR(buf.data(), 12, {1, 1}, bad3); }, rokStatusBadChannelOrder, "C3IR order");
}

TEST(Dup, OneChannelToAll) {
    int w = 0, h = 0;
    for (int C : {3, 4})
        sweep<Rok8u>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, 1, w, h, C}; },
                     [&](const Rok8u* s, int ss, Rok8u* d, int ds) {
                         return (C == 3 ? rokiDup_8u_C1C3R : rokiDup_8u_C1C4R)(s, ss, d, ds, {w, h});
                     },
                     [&](const View<Rok8u>& src, const View<Rok8u>&, int x, int y, int) { return Expect<Rok8u>{true, src(x, y)}; },
                     "Dup C" + std::to_string(C));
    std::vector<std::uint8_t> buf(64);
    expect_untouched(buf, [&] { return rokiDup_8u_C1C4R(nullptr, 1, buf.data(), 4, {1, 1}); }, rokStatusNullPtr, "null");
    expect_untouched(buf, [&] { return rokiDup_8u_C1C3R(buf.data(), 1, buf.data() + 8, 3, {1, 0}); }, rokStatusBadSize, "size");
}

}  // namespace
