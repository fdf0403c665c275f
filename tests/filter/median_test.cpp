// The general median against a brute-force median of each neighbourhood:
// every member, mask shapes that reach every engine, anchors at the four
// corners and the centre, widths across every register tail, ties, special
// float values, both guard sides, thread counts, and the checks.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "median_harness.h"
#include "rokcore.h"
#include "threads.h"

namespace {

using medt::Border;
using medt::Case;
using medt::GuardedImage;
using medt::Source;

template <class T>
struct Member {
    std::string name;
    int channels, processed;
    std::function<RokStatus(const T*, int, T*, int, RokiSize, RokiSize, RokiPoint, Rok8u*)> fn;
    RokStatus (*bufsize)(RokiSize, RokiSize, int, int*) = nullptr;
};

#define PLAIN(f) [](auto s, int ss, auto d, int ds, RokiSize r, RokiSize m, RokiPoint a, Rok8u*) { return f(s, ss, d, ds, r, m, a); }
#define BUFFERED(f) [](auto s, int ss, auto d, int ds, RokiSize r, RokiSize m, RokiPoint a, Rok8u* b) { return f(s, ss, d, ds, r, m, a, b); }

template <class T>
std::vector<Member<T>> members();

template <>
std::vector<Member<Rok8u>> members() {
    return {{"8u C1", 1, 1, PLAIN(rokiFilterMedian_8u_C1R)}, {"8u C3", 3, 3, PLAIN(rokiFilterMedian_8u_C3R)},
            {"8u C4", 4, 4, PLAIN(rokiFilterMedian_8u_C4R)}, {"8u AC4", 4, 3, PLAIN(rokiFilterMedian_8u_AC4R)}};
}
template <>
std::vector<Member<Rok16u>> members() {
    return {{"16u C1", 1, 1, PLAIN(rokiFilterMedian_16u_C1R)}, {"16u C3", 3, 3, PLAIN(rokiFilterMedian_16u_C3R)},
            {"16u C4", 4, 4, PLAIN(rokiFilterMedian_16u_C4R)}, {"16u AC4", 4, 3, PLAIN(rokiFilterMedian_16u_AC4R)}};
}
template <>
std::vector<Member<Rok16s>> members() {
    return {{"16s C1", 1, 1, PLAIN(rokiFilterMedian_16s_C1R)}, {"16s C3", 3, 3, PLAIN(rokiFilterMedian_16s_C3R)},
            {"16s C4", 4, 4, PLAIN(rokiFilterMedian_16s_C4R)}, {"16s AC4", 4, 3, PLAIN(rokiFilterMedian_16s_AC4R)}};
}
template <>
std::vector<Member<Rok32f>> members() {
    return {{"32f C1", 1, 1, BUFFERED(rokiFilterMedian_32f_C1R), rokiFilterMedianGetBufferSize_32f},
            {"32f C3", 3, 3, BUFFERED(rokiFilterMedian_32f_C3R), rokiFilterMedianGetBufferSize_32f},
            {"32f C4", 4, 4, BUFFERED(rokiFilterMedian_32f_C4R), rokiFilterMedianGetBufferSize_32f}};
}
template <>
std::vector<Member<Rok64f>> members() {
    return {{"64f C1", 1, 1, BUFFERED(rokiFilterMedian_64f_C1R), rokiFilterMedianGetBufferSize_64f}};
}

// Runs one member on one mask and anchor against the brute-force median.
// The float work buffer is exactly the reported size, against a guard page.
template <class T>
void check(const Member<T>& m, RokiSize roi, RokiSize mask, RokiPoint a, std::uint32_t seed, int spread = 0,
           medt::Guard guard = medt::Guard::After, int pad = 1) {
    SCOPED_TRACE(testing::Message() << m.name << " mask " << mask.width << "x" << mask.height << " anchor " << a.x
                                    << "," << a.y);
    std::unique_ptr<rokt::GuardedBuffer> buffer;
    if (m.bufsize) {
        int bytes = 0;
        ASSERT_EQ(m.bufsize(roi, mask, m.channels, &bytes), rokStatusOk);
        buffer = std::make_unique<rokt::GuardedBuffer>(std::size_t(bytes), medt::Guard::After);
    }
    const Case k{m.channels, m.processed, roi,
                 Border{a.x, a.y, mask.width - 1 - a.x, mask.height - 1 - a.y}, seed, spread, guard, pad};
    medt::expect_filter<T>(
        k, [&](const T* s, int ss, T* d, int ds, RokiSize r) { return m.fn(s, ss, d, ds, r, mask, a, buffer ? buffer->data() : nullptr); },
        [&](const Source<T>& at, int x, int y, int c) {
            return medt::block_median(at, x, y, c, mask.width, mask.height, a.x, a.y);
        });
}

// Every member, masks for every path of the dispatch (copy, square and line
// kernels, the engines), anchors at the corners and the centre.
template <class T>
void sweep_members() {
    const RokiSize masks[] = {{1, 1}, {3, 3}, {5, 5}, {3, 1}, {5, 1}, {1, 3}, {1, 5},
                              {7, 7}, {3, 5}, {5, 3}, {1, 7}, {9, 1}, {7, 3}};
    std::uint32_t seed = 1;
    for (const Member<T>& m : members<T>())
        for (const RokiSize mask : masks) {
            const RokiPoint anchors[] = {{0, 0}, {mask.width - 1, 0}, {0, mask.height - 1},
                                         {mask.width - 1, mask.height - 1}, {mask.width / 2, mask.height / 2}};
            for (const RokiPoint a : anchors) {
                const int w = 1 + int(seed * 13 % 37), h = 1 + int(seed % 4);
                check(m, {w, h}, mask, a, seed, seed % 3 == 0 ? 3 : 0, seed % 2 ? medt::Guard::After : medt::Guard::Before);
                ++seed;
            }
        }
}

TEST(FilterMedian, EveryMember8uMatchesBruteForce) { sweep_members<Rok8u>(); }
TEST(FilterMedian, EveryMember16uMatchesBruteForce) { sweep_members<Rok16u>(); }
TEST(FilterMedian, EveryMember16sMatchesBruteForce) { sweep_members<Rok16s>(); }
TEST(FilterMedian, EveryMember32fMatchesBruteForceInTotalOrder) { sweep_members<Rok32f>(); }
TEST(FilterMedian, EveryMember64fMatchesBruteForceInTotalOrder) { sweep_members<Rok64f>(); }

// The network kernels over every width from 1 to 70, so every register tail
// (32, 16, 8 and 4 lanes) and the stage buffers' edges are hit; three rows
// take the 5x5 kernel's two-row pass and then its last row alone.
TEST(FilterMedian, NetworkKernelsAtEveryWidth) {
    const RokiSize masks[] = {{3, 3}, {5, 5}, {5, 1}, {1, 3}};
    std::uint32_t seed = 500;
    for (int w = 1; w <= 70; ++w)
        for (const RokiSize mask : masks) {
            const RokiPoint c{mask.width / 2, mask.height / 2};
            const medt::Guard side = w % 2 ? medt::Guard::After : medt::Guard::Before;
            check(members<Rok8u>()[0], {w, 3}, mask, c, seed++, 0, side);
            check(members<Rok16s>()[0], {w, 2}, mask, c, seed++);
            check(members<Rok32f>()[0], {w, 2}, mask, c, seed++);
            check(members<Rok64f>()[0], {w, 1}, mask, c, seed++);
            if (w % 3 == 0) check(members<Rok8u>()[1], {w, 3}, mask, c, seed++, 0, side);
        }
    // Calls of many rows and an odd last call (pairs of rows, then one).
    check(members<Rok8u>()[0], {45, 67}, {5, 5}, {2, 2}, seed++);
    check(members<Rok8u>()[1], {23, 37}, {5, 5}, {2, 2}, seed++, 0, medt::Guard::Before);
    // Rows longer than a stage chunk (256 bytes) ending at offsets across a
    // register, one and three channels; AC4 rows longer than one block of
    // 256 pixels, and rows 4 KiB apart (short strip walks).
    check(members<Rok8u>()[0], {1100, 2}, {5, 5}, {2, 2}, seed++);
    for (int w = 250; w <= 300; w += 5) check(members<Rok8u>()[0], {w, 4}, {5, 5}, {2, 2}, seed++);
    for (int w = 84; w <= 100; w += 4) check(members<Rok8u>()[1], {w, 3}, {5, 5}, {2, 2}, seed++, 0, medt::Guard::After);
    check(members<Rok16u>()[1], {50, 2}, {5, 5}, {2, 2}, seed++);
    check(members<Rok8u>()[0], {70, 9}, {3, 3}, {1, 1}, seed++, 0, medt::Guard::After, 4096 - 72);
    check(members<Rok64f>()[0], {300, 2}, {3, 3}, {1, 1}, seed++);
    check(members<Rok8u>()[3], {300, 2}, {5, 5}, {4, 0}, seed++);
}

// The 8-bit histogram engine: stripes (a row wider than one stripe of
// column histograms), tall and wide masks, byte counts up to 255 samples,
// 16-bit counts up to 65535 and 32-bit counts above, and many ties.
TEST(FilterMedian, HistogramEngine8u) {
    const auto c1 = members<Rok8u>()[0], c3 = members<Rok8u>()[1];
    check(c1, {1000, 3}, {7, 3}, {6, 2}, 1);
    check(c3, {400, 2}, {9, 3}, {0, 1}, 2, 2);
    check(c1, {40, 3}, {3, 41}, {1, 40}, 3);
    check(c1, {21, 2}, {61, 1}, {30, 0}, 4);
    check(c1, {9, 9}, {15, 15}, {3, 11}, 5, 5);
    check(c1, {3, 2}, {257, 257}, {128, 0}, 6);
    check(c1, {40, 4}, {17, 17}, {16, 3}, 8);
    check(c3, {300, 2}, {101, 3}, {50, 1}, 9, 3);
    // Two distinct values: the one that holds the majority.
    check(c1, {30, 5}, {7, 5}, {3, 2}, 7, 2);
}

// The 16-bit engine walks right along even rows and left along odd ones.
TEST(FilterMedian, HistogramEngine16) {
    check(members<Rok16u>()[0], {23, 7}, {7, 5}, {2, 4}, 1);
    check(members<Rok16s>()[1], {11, 6}, {3, 7}, {2, 0}, 2);
    check(members<Rok16s>()[3], {8, 5}, {9, 3}, {8, 2}, 3, 4);
    check(members<Rok16u>()[2], {5, 4}, {21, 1}, {0, 0}, 4);
}

// The threaded members (8u C4 and 64f C1) at 1, 2 and 7 threads, on ROIs
// large enough to be divided, against the reference; the 64f buffer is the
// size reported under each thread count.
TEST(FilterMedian, ThreadedMembersAtEveryThreadCount) {
    for (int t : {1, 2, 7}) {
        rokt::WithThreads with(t);
        SCOPED_TRACE(testing::Message() << t << " threads");
        check(members<Rok8u>()[2], {140, 120}, {3, 5}, {1, 4}, 10 + t);
        check(members<Rok8u>()[2], {130, 130}, {5, 5}, {2, 2}, 20 + t);
        check(members<Rok64f>()[0], {128, 130}, {3, 7}, {0, 6}, 30 + t);
    }
}

TEST(FilterMedian, EntryPointIsCentredOnTheMask) {
    // Anchor (0, 0): the neighbourhood's top-left pixel is the destination
    // position; anchor (1, 1) reads the block one pixel up and left of it.
    GuardedImage<Rok8u> src(6, 6, 1);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x) src.at(x, y) = Rok8u(10 * y + x);
    Rok8u corner[4], centred[4];
    ASSERT_EQ(rokiFilterMedian_8u_C1R(&src.at(1, 1), src.step(), corner, 2, {2, 2}, {3, 3}, {0, 0}), rokStatusOk);
    ASSERT_EQ(rokiFilterMedian_8u_C1R(&src.at(2, 2), src.step(), centred, 2, {2, 2}, {3, 3}, {1, 1}), rokStatusOk);
    const Rok8u want[4] = {22, 23, 32, 33};  // centre of the 3x3 block starting at (1 + x, 1 + y)
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(corner[i], want[i]) << i;
        EXPECT_EQ(centred[i], want[i]) << i;
    }
}

TEST(FilterMedian, ChecksInOrderWriteNothing) {
    GuardedImage<Rok8u> src(12, 8, 1);
    GuardedImage<Rok8u> dst(10, 4, 1);
    GuardedImage<Rok32f> fsrc(12, 8, 1);
    GuardedImage<Rok32f> fdst(10, 4, 1);
    dst.fill_bytes(0x3C);
    fdst.fill_bytes(0x3C);
    const auto before = dst.bytes(), fbefore = fdst.bytes();
    std::vector<Rok8u> buf(4096);
    const Rok8u* s = &src.at(1, 1);
    Rok8u* d = dst.data();
    const Rok32f* fs = &fsrc.at(1, 1);
    Rok32f* fd = fdst.data();
    const RokiSize roi{10, 4}, m{3, 3};
    const RokiPoint a{1, 1};
    const int ss = src.step(), ds = dst.step(), fss = fsrc.step(), fds = fdst.step();
    const RokStatus got[][2] = {
        {rokStatusNullPtr, rokiFilterMedian_8u_C1R(nullptr, ss, d, ds, {0, 0}, {2, 2}, {5, 5})},
        {rokStatusNullPtr, rokiFilterMedian_8u_C1R(s, ss, nullptr, ds, roi, m, a)},
        {rokStatusBadSize, rokiFilterMedian_8u_C1R(s, 0, d, ds, {0, 4}, {2, 2}, {5, 5})},
        {rokStatusBadSize, rokiFilterMedian_8u_C1R(s, ss, d, ds, {10, -1}, m, a)},
        {rokStatusBadStep, rokiFilterMedian_8u_C1R(s, 0, d, ds, roi, {2, 2}, {5, 5})},
        {rokStatusBadStep, rokiFilterMedian_8u_C1R(s, ss, d, -ds, roi, m, a)},
        {rokStatusBadMaskSize, rokiFilterMedian_8u_C1R(s, ss, d, ds, roi, {2, 3}, {5, 5})},
        {rokStatusBadMaskSize, rokiFilterMedian_8u_C1R(s, ss, d, ds, roi, {3, 0}, a)},
        {rokStatusBadMaskSize, rokiFilterMedian_8u_C1R(s, ss, d, ds, roi, {-3, 3}, a)},
        {rokStatusBadMaskSize, rokiFilterMedian_8u_C1R(s, ss, d, ds, roi, {65537, 65537}, a)},
        {rokStatusBadAnchor, rokiFilterMedian_8u_C1R(s, ss, d, ds, roi, m, {3, 0})},
        {rokStatusBadAnchor, rokiFilterMedian_8u_C1R(s, ss, d, ds, roi, m, {0, -1})},
        {rokStatusNullPtr, rokiFilterMedian_16s_AC4R(nullptr, 0, nullptr, 0, {0, 0}, {2, 2}, {5, 5})},
        {rokStatusNullPtr, rokiFilterMedian_32f_C1R(fs, fss, fd, fds, {0, 0}, {2, 2}, {5, 5}, nullptr)},
        {rokStatusBadSize, rokiFilterMedian_32f_C1R(fs, 0, fd, fds, {0, 1}, {2, 2}, {5, 5}, buf.data())},
        {rokStatusBadStep, rokiFilterMedian_32f_C1R(fs, 0, fd, fds, roi, {2, 2}, {5, 5}, buf.data())},
        {rokStatusBadMaskSize, rokiFilterMedian_32f_C1R(fs, fss, fd, fds, roi, {1, 4}, {5, 5}, buf.data())},
        {rokStatusBadAnchor, rokiFilterMedian_32f_C3R(fs, fss, fd, fds, {1, 1}, m, {1, 3}, buf.data())},
        {rokStatusNullPtr, rokiFilterMedian_64f_C1R(nullptr, 0, nullptr, 0, {0, 0}, {2, 2}, {5, 5}, nullptr)},
    };
    for (std::size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i][1], got[i][0]) << "check " << i;
    EXPECT_EQ(dst.bytes(), before);
    EXPECT_EQ(fdst.bytes(), fbefore);
}

TEST(FilterMedian, BufferSizes) {
    int size = -1;
    using Fn = RokStatus (*)(RokiSize, RokiSize, int, int*);
    const struct {
        Fn fn;
        RokiSize roi, mask;
        int channels;
        RokStatus status;
    } cases[] = {
        {rokiFilterMedianGetBufferSize_32f, {0, 0}, {2, 2}, 2, rokStatusBadSize},
        {rokiFilterMedianGetBufferSize_32f, {1, 1}, {2, 2}, 2, rokStatusBadMaskSize},
        {rokiFilterMedianGetBufferSize_32f, {1, 1}, {3, 0}, 2, rokStatusBadMaskSize},
        {rokiFilterMedianGetBufferSize_32f, {1, 1}, {3, 3}, 2, rokStatusBadChannelCount},
        {rokiFilterMedianGetBufferSize_64f, {1, 1}, {3, 3}, 5, rokStatusBadChannelCount},
        {rokiFilterMedianGetBufferSize_64f, {1, 1}, {3, 3}, 0, rokStatusBadChannelCount},
        {rokiFilterMedianGetBufferSize_32f, {1, 1}, {32769, 16385}, 1, rokStatusBadMaskSize},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.fn(c.roi, c.mask, c.channels, &size), c.status);
        EXPECT_EQ(c.fn(c.roi, c.mask, c.channels, nullptr), rokStatusNullPtr);
    }
    EXPECT_EQ(size, -1);
    for (int t : {1, 3}) {
        rokt::WithThreads with(t);
        ASSERT_EQ(rokiFilterMedianGetBufferSize_32f({5, 5}, {7, 5}, 3, &size), rokStatusOk);
        EXPECT_EQ(size, 7 * 5 * 4);
        ASSERT_EQ(rokiFilterMedianGetBufferSize_64f({5, 5}, {7, 5}, 1, &size), rokStatusOk);
        EXPECT_EQ(size, (7 * 5 * 17 * 8 + 144) / 16 * 16 * t);
        ASSERT_EQ(rokiFilterMedianGetBufferSize_64f({5, 5}, {1, 1}, 4, &size), rokStatusOk);
        EXPECT_EQ(size, 272 * t);
    }
}

}  // namespace
