// The channel-moving row kernels (planar split and merge, one channel,
// alpha dropped or added, duplication) against plain loops, for every
// sample width, widths 1..70, pointers at several offsets from a vector
// boundary and buffers that end at (or start after) a protected page.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "guarded.h"
#include "core/core.h"
#include "kernels/copy/copy_move.h"
#include "roki.h"

namespace {

using rokt::Guard;
using rokt::GuardedBuffer;

// `samples` samples of U preceded by `lead` spare samples, so the pointer
// sits lead * sizeof(U) bytes past the buffer's start; the last sample
// abuts the guard page for Guard::After.
template <class U>
struct Samples {
    GuardedBuffer buf;
    U* p;
    Samples(std::size_t samples, int lead, Guard guard, std::uint32_t seed)
        : buf((samples + lead) * sizeof(U), guard), p(reinterpret_cast<U*>(buf.data()) + lead) {
        std::mt19937 rng(seed);
        for (std::size_t i = 0; i < buf.size(); ++i) buf.data()[i] = std::uint8_t(rng());
    }
    std::vector<U> values(std::size_t n) const { return {p, p + n}; }
};

struct Placement {
    int lead;
    Guard guard;
};
constexpr Placement kPlacements[] = {{0, Guard::After}, {1, Guard::After}, {3, Guard::After}, {0, Guard::Before}};

// Runs every width and placement: make(n, placement, seed) builds the
// buffers, calls the kernel and returns whether the result matched.
template <class Check>
void each_shape(const std::string& what, Check&& check, int maxWidth = 70) {
    for (int n = 1; n <= maxWidth; ++n)
        for (const Placement& pl : kPlacements)
            if (!check(n, pl, std::uint32_t(n * 31 + pl.lead))) {
                ADD_FAILURE() << what << " n=" << n << " lead=" << pl.lead
                              << (pl.guard == Guard::After ? " guard after" : " guard before");
                return;
            }
}

// dst[i*DS] = src[i*SS]; both buffers end at the last sample addressed.
template <class U, int SS, int DS>
void channel_case() {
    each_shape("copy_channel<" + std::to_string(sizeof(U)) + "," + std::to_string(SS) + "," + std::to_string(DS) + ">",
               [](int n, Placement pl, std::uint32_t seed) {
                   const std::size_t sn = std::size_t(n - 1) * SS + 1, dn = std::size_t(n - 1) * DS + 1;
                   Samples<U> src(sn, pl.lead, pl.guard, seed), dst(dn, (pl.lead + 1) % 4, pl.guard, seed + 1);
                   const std::vector<U> in = src.values(sn);
                   std::vector<U> want = dst.values(dn);
                   for (int i = 0; i < n; ++i) want[std::size_t(i) * DS] = in[std::size_t(i) * SS];
                   rok::kernels::copy_channel<U, SS, DS>(src.p, dst.p, n);
                   return dst.values(dn) == want && src.values(sn) == in;
               });
}

// dst[i*DS] = value, the other samples kept.
template <class U, int DS>
void set_channel_case() {
    each_shape("set_channel<" + std::to_string(sizeof(U)) + "," + std::to_string(DS) + ">",
               [](int n, Placement pl, std::uint32_t seed) {
                   const std::size_t dn = std::size_t(n - 1) * DS + 1;
                   Samples<U> dst(dn, pl.lead, pl.guard, seed);
                   std::vector<U> want = dst.values(dn);
                   const U value = U(0x5A5A5A5Au + seed);
                   for (int i = 0; i < n; ++i) want[std::size_t(i) * DS] = value;
                   rok::kernels::set_channel<U, DS>(value, dst.p, n);
                   return dst.values(dn) == want;
               });
}

template <class U, int C>
void planar_case(bool stream) {
    each_shape("planes<" + std::to_string(sizeof(U)) + "," + std::to_string(C) + (stream ? ">, streamed" : ">"),
               [stream](int n, Placement pl, std::uint32_t seed) {
                   const std::size_t m = std::size_t(n) * C;
                   Samples<U> packed(m, pl.lead, pl.guard, seed), back(m, 3 - pl.lead, pl.guard, seed + 9);
                   std::vector<std::unique_ptr<Samples<U>>> planes;
                   U* pp[C];
                   for (int c = 0; c < C; ++c) {
                       // Streamed splits need every plane on one line offset.
                       const Guard guard = stream ? Guard::Before : c % 2 ? Guard::Before : pl.guard;
                       planes.push_back(std::make_unique<Samples<U>>(n, stream ? pl.lead : (pl.lead + c) % 4, guard, seed + c + 1));
                       pp[c] = planes.back()->p;
                   }
                   const std::vector<U> in = packed.values(m);
                   rok::kernels::split_planes<U, C>(packed.p, pp, n, stream);
                   rok::kernels::store_fence();
                   for (int c = 0; c < C; ++c)
                       for (int i = 0; i < n; ++i)
                           if (pp[c][i] != in[std::size_t(i) * C + c]) return false;
                   const U* cp[C];
                   for (int c = 0; c < C; ++c) cp[c] = pp[c];
                   rok::kernels::merge_planes<U, C>(cp, back.p, n, stream);
                   rok::kernels::store_fence();
                   return back.values(m) == in;
               },
               stream ? 200 : 70);
}

template <class U>
void alpha_case() {
    each_shape("alpha<" + std::to_string(sizeof(U)) + ">", [](int n, Placement pl, std::uint32_t seed) {
        const std::size_t n3 = std::size_t(n) * 3, n4 = std::size_t(n) * 4;
        Samples<U> four(n4, pl.lead, pl.guard, seed), three(n3, (pl.lead + 2) % 4, pl.guard, seed + 1);
        const std::vector<U> src4 = four.values(n4);
        rok::kernels::copy_ac4_to_c3<U>(four.p, three.p, n);
        const std::vector<U> got3 = three.values(n3);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < 3; ++c)
                if (got3[std::size_t(i) * 3 + c] != src4[std::size_t(i) * 4 + c]) return false;
        // Back onto fresh four-channel pixels: their alpha stays.
        Samples<U> dst(n4, 3 - pl.lead, pl.guard == Guard::After ? Guard::Before : Guard::After, seed + 2);
        std::vector<U> want = dst.values(n4);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < 3; ++c) want[std::size_t(i) * 4 + c] = got3[std::size_t(i) * 3 + c];
        rok::kernels::copy_c3_to_ac4<U>(three.p, dst.p, n);
        return dst.values(n4) == want && three.values(n3) == got3 && four.values(n4) == src4;
    });
}

template <int C>
void dup_case(bool stream) {
    each_shape(
        "dup<" + std::to_string(C) + (stream ? ">, streamed" : ">"),
        [stream](int n, Placement pl, std::uint32_t seed) {
            Samples<std::uint8_t> src(n, pl.lead, pl.guard, seed), dst(std::size_t(n) * C, 3 - pl.lead, pl.guard, seed + 1);
            rok::kernels::dup_channel<C>(src.p, dst.p, n, stream);
            rok::kernels::store_fence();
            for (int i = 0; i < n * C; ++i)
                if (dst.p[i] != src.p[i / C]) return false;
            return true;
        },
        stream ? 200 : 70);
}

template <class U>
void all_lane_kernels() {
    channel_case<U, 3, 1>();
    channel_case<U, 4, 1>();
    channel_case<U, 1, 3>();
    channel_case<U, 1, 4>();
    channel_case<U, 3, 3>();
    channel_case<U, 4, 4>();
    set_channel_case<U, 3>();
    set_channel_case<U, 4>();
    for (bool stream : {false, true}) {
        planar_case<U, 3>(stream);
        planar_case<U, 4>(stream);
    }
    alpha_case<U>();
}

// The streamed row copy switches store kinds at the first and last 64-byte
// boundaries of the destination: every start offset within a line
// (the pointer sits `lead` bytes past a page with Guard::Before) and
// lengths around those edges.
TEST(RowCopy, StreamingAndOrdinaryAgreeWithBytes) {
    const int lengths[] = {1, 15, 16, 17, 63, 64, 65, 70, 79, 80, 127, 128, 129, 150, 191, 257, 1000};
    for (int lead = 0; lead < 64; ++lead)
        for (int n : lengths)
            for (bool stream : {false, true})
                for (Guard guard : {Guard::After, Guard::Before}) {
                Samples<std::uint8_t> src(n, (lead * 7) % 64, guard, std::uint32_t(n + lead)), dst(n, lead, guard, 5);
                const std::vector<std::uint8_t> before(dst.buf.data(), dst.p);
                if (stream) rok::kernels::copy_bytes_streaming(src.p, dst.p, std::size_t(n));
                else rok::kernels::copy_bytes(src.p, dst.p, std::size_t(n));
                rok::kernels::store_fence();
                ASSERT_EQ(dst.values(n), src.values(n)) << "lead " << lead << " n " << n << (stream ? " streamed" : "");
                ASSERT_EQ(std::vector<std::uint8_t>(dst.buf.data(), dst.p), before) << "written before the row";
            }
}

// Fills of whole pixels, ordinary and streamed: the streamed fill switches
// store kinds at the first pixel that starts a 64-byte line and after the
// last whole line, so every line offset and lengths past several lines.
template <int PB>
void fill_case() {
    std::uint8_t pixel[PB];
    for (int b = 0; b < PB; ++b) pixel[b] = std::uint8_t(0x31 + 7 * b);
    const int widths[] = {1, 2, 5, 16, 31, 33, 64, 65, 70, 100, 150, 257};
    for (int lead = 0; lead < 64; lead += 3)
        for (int n : widths)
            for (bool stream : {false, true})
                for (Guard guard : {Guard::After, Guard::Before}) {
                    Samples<std::uint8_t> dst(std::size_t(n) * PB, lead, guard, std::uint32_t(n + lead));
                    const std::vector<std::uint8_t> before(dst.buf.data(), dst.p);
                    rok::kernels::set_pixels<PB, false>(pixel, dst.p, n, stream);
                    rok::kernels::store_fence();
                    for (int i = 0; i < n * PB; ++i)
                        ASSERT_EQ(dst.p[i], pixel[i % PB]) << "PB " << PB << " n " << n << " lead " << lead << " byte " << i
                                                           << (stream ? " streamed" : "");
                    ASSERT_EQ(std::vector<std::uint8_t>(dst.buf.data(), dst.p), before) << "written before the row";
                }
}

TEST(RowFill, StreamingAndOrdinaryFillEveryPixelSize) {
    fill_case<1>();
    fill_case<2>();
    fill_case<3>();
    fill_case<4>();
    fill_case<6>();
    fill_case<8>();
    fill_case<12>();
    fill_case<16>();
}

TEST(LaneKernels, Bytes) { all_lane_kernels<std::uint8_t>(); }
TEST(LaneKernels, Words) { all_lane_kernels<std::uint16_t>(); }
TEST(LaneKernels, DoubleWords) { all_lane_kernels<std::uint32_t>(); }
TEST(LaneKernels, Duplication) {
    for (bool stream : {false, true}) {
        dup_case<3>(stream);
        dup_case<4>(stream);
    }
}

// Rows laid end to end in both images run as one long row.
TEST(LaneKernels, DuplicationOfWholeImages) {
    for (int w : {1, 31, 33, 70})
        for (int C : {3, 4}) {
            const int h = 5;
            std::vector<std::uint8_t> src(std::size_t(w) * h), dst(std::size_t(w) * h * C + 1, 0xEE);
            for (std::size_t i = 0; i < src.size(); ++i) src[i] = std::uint8_t(i * 37 + 11);
            const RokStatus st = C == 3 ? rokiDup_8u_C1C3R(src.data(), w, dst.data(), w * 3, {w, h})
                                        : rokiDup_8u_C1C4R(src.data(), w, dst.data(), w * 4, {w, h});
            ASSERT_EQ(st, rokStatusOk);
            for (std::size_t i = 0; i + 1 < dst.size(); ++i) ASSERT_EQ(dst[i], src[i / C]) << "w " << w << " C " << C;
            EXPECT_EQ(dst.back(), 0xEE) << "written past the image";
        }
}

// Above the core's level-2 size Dup streams: padded rows keep their padding,
// rows laid end to end become one streamed run, and both odd starting
// offsets (no whole line before the first boundary) and aligned ones occur.
TEST(LaneKernels, DuplicationOfLargeImages) {
    const int l2 = std::max(rok::core::l2_cache_bytes, 1 << 20);
    for (int C : {3, 4})
        for (int pad : {0, 5}) {
            const int w = 1027, h = l2 / (w * C) + 3, dstStep = w * C + pad;
            std::vector<std::uint8_t> src(std::size_t(w) * h), dst(std::size_t(dstStep) * h + 7, 0xEE);
            for (std::size_t i = 0; i < src.size(); ++i) src[i] = std::uint8_t(i * 37 + i / 251);
            std::uint8_t* d = dst.data() + 3;  // never on a line boundary
            const RokStatus st = C == 3 ? rokiDup_8u_C1C3R(src.data(), w, d, dstStep, {w, h})
                                        : rokiDup_8u_C1C4R(src.data(), w, d, dstStep, {w, h});
            ASSERT_EQ(st, rokStatusOk);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < dstStep; ++x) {
                    const std::uint8_t got = d[std::size_t(y) * dstStep + x];
                    if (x < w * C) ASSERT_EQ(got, src[std::size_t(y) * w + x / C]) << "C " << C << " pad " << pad << " y " << y << " x " << x;
                    else ASSERT_EQ(got, 0xEE) << "padding written, C " << C << " y " << y;
                }
            for (int k = 0; k < 3; ++k) EXPECT_EQ(dst[k], 0xEE) << "written before the image";
            for (std::size_t k = std::size_t(dstStep) * h + 3; k < dst.size(); ++k) EXPECT_EQ(dst[k], 0xEE) << "written past the image";
        }
}

}  // namespace
