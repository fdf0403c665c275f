// The order of argument checks of every conversion export, and that an
// error writes nothing; the streaming paths against the plain ones.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "guarded.h"
#include "kernels/convert/convert.h"
#include "random.h"
#include "roki.h"

namespace {

using Erased = std::function<RokStatus(const void*, int, void*, int, RokiSize)>;

struct Entry {
    std::string name;
    Erased call;
    bool checksSteps;
};

template <class S, class D, class... X>
Erased erase(RokStatus (*f)(const S*, int, D*, int, RokiSize, X...), X... extra) {
    return [=](const void* s, int ss, void* d, int ds, RokiSize r) {
        return f(static_cast<const S*>(s), ss, static_cast<D*>(d), ds, r, extra...);
    };
}

#define ROK_E(F, checks, ...) Entry{#F, erase(F, ##__VA_ARGS__), checks}
#define ROK_E4(Fam, T, checks, ...)                                                                   \
    ROK_E(roki##Fam##_##T##_C1R, checks, ##__VA_ARGS__), ROK_E(roki##Fam##_##T##_C3R, checks, ##__VA_ARGS__), \
        ROK_E(roki##Fam##_##T##_C4R, checks, ##__VA_ARGS__), ROK_E(roki##Fam##_##T##_AC4R, checks, ##__VA_ARGS__)
#define ROK_SFS(T) ROK_E(rokiConvert_##T##_C1RSfs, false, 1, 0)

std::vector<Entry> entries() {
    const Rok32f lo = 0.0f, hi = 1.0f;
    return {
        ROK_E4(Convert, 8u16u, true), ROK_E4(Convert, 8u16s, true), ROK_E4(Convert, 8u32s, true),
        ROK_E4(Convert, 8u32f, true), ROK_E4(Convert, 8s32s, true), ROK_E4(Convert, 8s32f, true),
        ROK_E4(Convert, 16u32f, true), ROK_E4(Convert, 16s32f, true), ROK_E4(Convert, 16u32s, false),
        ROK_E4(Convert, 16s32s, false), ROK_E(rokiConvert_8s16s_C1R, false), ROK_E(rokiConvert_16u32u_C1R, false),
        ROK_E(rokiConvert_32s32f_C1R, false), ROK_E(rokiConvert_32u32f_C1R, false), ROK_E4(Convert, 16u8u, true),
        ROK_E4(Convert, 16s8u, true), ROK_E4(Convert, 32s8u, true), ROK_E4(Convert, 32s8s, true),
        ROK_E(rokiConvert_8s8u_C1Rs, false), ROK_E(rokiConvert_8s16u_C1Rs, false), ROK_E(rokiConvert_8s32u_C1Rs, false),
        ROK_E(rokiConvert_16s16u_C1Rs, false), ROK_E(rokiConvert_16s32u_C1Rs, false),
        ROK_E(rokiConvert_32s32u_C1Rs, false), ROK_E4(Convert, 32f8u, true, 1), ROK_E4(Convert, 32f8s, true, 0),
        ROK_E4(Convert, 32f16u, true, 2), ROK_E4(Convert, 32f16s, true, 1), ROK_SFS(8u8s), ROK_SFS(16u8s),
        ROK_SFS(16u16s), ROK_SFS(16s8s), ROK_SFS(32s16s), ROK_SFS(32s16u), ROK_SFS(32u8u), ROK_SFS(32u8s),
        ROK_SFS(32u16u), ROK_SFS(32u16s), ROK_SFS(32u32s), ROK_SFS(32f8u), ROK_SFS(32f8s), ROK_SFS(32f16u),
        ROK_SFS(32f16s), ROK_SFS(32f32s), ROK_SFS(32f32u),
        Entry{"rokiConvert_32f32u_C1IRSfs",
              [](const void* s, int ss, void* d, int, RokiSize r) {
                  return rokiConvert_32f32u_C1IRSfs(s ? static_cast<Rok32f*>(d) : nullptr, ss, r, 1, 0);
              },
              false},
        Entry{"rokiConvert_1u8u_C1R",
              [](const void* s, int ss, void* d, int ds, RokiSize r) {
                  return rokiConvert_1u8u_C1R(static_cast<const Rok8u*>(s), ss, 0, static_cast<Rok8u*>(d), ds, r);
              },
              true},
        ROK_E4(Scale, 8u16u, true), ROK_E4(Scale, 8u16s, true), ROK_E4(Scale, 8u32s, true),
        ROK_E4(Scale, 8u32f, true, lo, hi), ROK_E4(Scale, 16u8u, true, 0), ROK_E4(Scale, 16s8u, true, 2),
        ROK_E4(Scale, 32s8u, true, 1), ROK_E4(Scale, 32f8u, true, lo, hi),
    };
}

TEST(ConvertChecks, EveryExportInOrderAndNothingWritten) {
    const std::vector<Entry> all = entries();
    EXPECT_EQ(all.size(), 133u);
    alignas(16) std::uint8_t src[64] = {};
    alignas(16) std::uint8_t dst[64];
    std::memset(dst, 0xA5, sizeof dst);
    std::uint8_t canary[64];
    std::memcpy(canary, dst, sizeof dst);
    struct Probe { const void* s; void* d; RokiSize roi; int ss, ds; bool isStepCase; RokStatus want; };
    for (const Entry& e : all) {
        SCOPED_TRACE(e.name);
        const Probe probes[] = {
            {nullptr, dst, {0, 0}, 0, 0, false, rokStatusNullPtr},
            {src, nullptr, {0, 0}, -1, -1, false, rokStatusNullPtr},
            {src, dst, {0, 1}, 0, 0, false, rokStatusBadSize},
            {src, dst, {1, -1}, -1, 0, false, rokStatusBadSize},
            {src, dst, {1, 1}, 0, 16, true, rokStatusBadStep},
            {src, dst, {1, 1}, 16, -16, true, rokStatusBadStep},
        };
        for (const Probe& p : probes) {
            if (p.isStepCase && !e.checksSteps) continue;
            EXPECT_EQ(e.call(p.s, p.ss, p.d, p.ds, p.roi), p.want);
            ASSERT_EQ(0, std::memcmp(dst, canary, sizeof dst));
        }
        if (!e.checksSteps) {  // any step is accepted; with one row it is never used
            EXPECT_EQ(e.call(src, 0, dst, -5, RokiSize{1, 1}), rokStatusOk);
            std::memset(dst, 0xA5, sizeof dst);
        }
    }
}

TEST(ConvertChecks, BitOffsetCheckedAfterSteps) {
    Rok8u src[4] = {}, dst[8];
    std::memset(dst, 0x11, sizeof dst);
    EXPECT_EQ(rokiConvert_1u8u_C1R(nullptr, 1, -1, dst, 8, RokiSize{8, 1}), rokStatusNullPtr);
    EXPECT_EQ(rokiConvert_1u8u_C1R(src, 1, -1, dst, 8, RokiSize{0, 1}), rokStatusBadSize);
    EXPECT_EQ(rokiConvert_1u8u_C1R(src, 0, -1, dst, 8, RokiSize{8, 1}), rokStatusBadStep);
    EXPECT_EQ(rokiConvert_1u8u_C1R(src, 1, -1, dst, 8, RokiSize{8, 1}), rokStatusBadSize);
    for (Rok8u b : dst) EXPECT_EQ(b, 0x11);
}

TEST(ConvertChecks, ScaleRangeBeforeEverything) {
    Rok8u dst[4] = {7, 7, 7, 7};
    const float nan = std::nanf("");
    for (auto range : {std::pair{1.0f, 1.0f}, std::pair{2.0f, 1.0f}, std::pair{nan, 1.0f}}) {
        EXPECT_EQ(rokiScale_32f8u_C1R(nullptr, 0, nullptr, 0, RokiSize{0, 0}, range.first, range.second),
                  rokStatusBadScaleRange);
        EXPECT_EQ(rokiScale_8u32f_AC4R(nullptr, 0, nullptr, 0, RokiSize{0, 0}, range.first, range.second),
                  rokStatusBadScaleRange);
        EXPECT_EQ(rokiScale_8u32f_C3R(dst, 1, reinterpret_cast<Rok32f*>(dst), 0, RokiSize{1, 1}, range.first,
                                      range.second),
                  rokStatusBadScaleRange);
    }
    for (Rok8u b : dst) EXPECT_EQ(b, 7);
}

// The non-temporal path (head to a 32-byte boundary, streamed blocks, tail)
// gives exactly what the ordinary stores give, at every destination offset.
TEST(ConvertStreaming, SameResultsAsOrdinaryStores) {
    std::vector<Rok8u> src8(700);
    std::vector<Rok16s> src16(700);
    std::vector<Rok32s> src32(700);
    for (int i = 0; i < 700; ++i) {
        src8[i] = Rok8u(i * 37);
        src16[i] = Rok16s(i * 997);
        src32[i] = Rok32s(std::uint32_t(i) * 6151237u);
    }
    for (int n : {1, 5, 31, 64, 65, 130, 257, 640}) {
        for (int offset = 0; offset < 8; ++offset) {
            alignas(32) Rok16s a[720], b[720];
            rok::kernels::scale_up(src8.data(), a + offset, n, false);
            rok::kernels::scale_up(src8.data(), b + offset, n, true);
            ASSERT_EQ(0, std::memcmp(a + offset, b + offset, n * 2)) << n;
            alignas(32) float fa[720], fb[720];
            rok::kernels::scale_up_float(src8.data(), fa + offset, n, -3.0f, 0.25f, false);
            rok::kernels::scale_up_float(src8.data(), fb + offset, n, -3.0f, 0.25f, true);
            ASSERT_EQ(0, std::memcmp(fa + offset, fb + offset, n * 4)) << n;
            alignas(32) Rok8u ua[720], ub[720];
            std::memset(ua, 1, sizeof ua);
            std::memset(ub, 1, sizeof ub);
            rok::kernels::scale_down_fast(src16.data(), ua + offset, n, false);
            rok::kernels::scale_down_fast(src16.data(), ub + offset, n, true);
            ASSERT_EQ(0, std::memcmp(ua, ub, sizeof ua)) << n;
            alignas(32) Rok32f ca[720], cb[720];
            rok::kernels::convert_value(src32.data(), ca + offset, n, false);
            rok::kernels::convert_value(src32.data(), cb + offset, n, true);
            ASSERT_EQ(0, std::memcmp(ca + offset, cb + offset, n * 4)) << n;
        }
    }
}

// An image above the streaming size, through the export.
TEST(ConvertStreaming, LargeImageThroughExport) {
    const int w = 1190, h = 1180;  // 1,404,200 pixels
    rokt::GuardedImage<Rok8u> src(w, h, 1, 3);
    rokt::GuardedImage<Rok16s> dst(w, h, 1, 5);
    rokt::fill_random(src, 9);
    ASSERT_EQ(rokiScale_8u16s_C1R(src.data(), src.step(), dst.data(), dst.step(), RokiSize{w, h}), rokStatusOk);
    for (int y = 0; y < h; y += 7)
        for (int x = 0; x < w; ++x) ASSERT_EQ(dst.at(x, y), src.at(x, y) * 257 - 32768) << x << "," << y;
}

// Padded float rows above the float streaming size: each row streams its
// whole lines on its own, with one fence after the last row. Destination
// pads of 1 and 3 samples put each row's first line boundary at a different
// sample. Every sample and the padding after each row are checked.
TEST(ConvertStreaming, PaddedFloatRowsThroughExport) {
    const int w = 1001, h = 840;  // 840,840 pixels
    const float vMin = -2.0f, vMax = 3.0f, step = (vMax - vMin) / 255.0f;
    rokt::GuardedImage<Rok8u> src(w, h, 1, 3);
    rokt::fill_random(src, 4);
    for (int padSamples : {1, 3}) {
        rokt::GuardedImage<Rok32f> dst(w, h, 1, padSamples, rokt::Guard::Before);
        dst.fill_bytes(0x7E);
        ASSERT_EQ(rokiScale_8u32f_C1R(src.data(), src.step(), dst.data(), dst.step(), RokiSize{w, h}, vMin, vMax), rokStatusOk);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const float product = float(src.at(x, y)) * step;
                ASSERT_EQ(dst.at(x, y), vMin + product) << x << "," << y << " pad " << padSamples;
            }
            if (y + 1 < h) {
                const auto* pad = reinterpret_cast<const std::uint8_t*>(&dst.at(w - 1, y) + 1);
                for (int b = 0; b < 4 * padSamples; ++b) ASSERT_EQ(pad[b], 0x7E) << "padding after row " << y;
            }
        }
    }
}

}  // namespace
