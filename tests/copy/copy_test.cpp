// rokiCopy, rokiCopyManaged and rokiSet against per-sample references,
// through the exported functions of every type.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <tuple>

#include "core/core.h"
#include "harness.h"

namespace {

using namespace rokt::copy;
using rokt::Guard;

template <class T>
using CopyFn = RokStatus (*)(const T*, int, T*, int, RokiSize);
template <class T>
using MaskedFn = RokStatus (*)(const T*, int, T*, int, RokiSize, const Rok8u*, int);

// The mask of the current call: step width + 1, bytes from mask_byte.
struct Mask {
    int w = 0, h = 0;
    std::vector<Rok8u> bytes;
    void make(int width, int height) {
        w = width;
        h = height;
        bytes.assign(std::size_t(w + 1) * h, 0x77);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) bytes[std::size_t(y) * (w + 1) + x] = mask_byte(x, y);
    }
};

template <class T>
void whole_pixels(CopyFn<T> fn, int C, bool ac4, const char* name) {
    int w = 0, h = 0;
    sweep<T>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, C, w, h, C}; },
             [&](const T* s, int ss, T* d, int ds) { return fn(s, ss, d, ds, {w, h}); },
             [&](const View<T>& src, const View<T>&, int x, int y, int c) {
                 return Expect<T>{!(ac4 && c == 3), src(x, y, c)};
             },
             name);
}

template <class T>
void masked_pixels(MaskedFn<T> fn, int C, bool ac4, const char* name) {
    Mask m;
    sweep<T>([&](int w, int h) { m.make(w, h); return Geometry{w, h, C, w, h, C}; },
             [&](const T* s, int ss, T* d, int ds) { return fn(s, ss, d, ds, {m.w, m.h}, m.bytes.data(), m.w + 1); },
             [&](const View<T>& src, const View<T>&, int x, int y, int c) {
                 return Expect<T>{mask_byte(x, y) != 0 && !(ac4 && c == 3), src(x, y, c)};
             },
             name);
}

// One channel: the source is read at channel sk of SC, written to channel
// dk of DC; both pointers address their channel.
template <class T>
void one_channel(CopyFn<T> fn, int SC, int DC, const char* name) {
    for (int k = 0; k < std::max(SC, DC); ++k) {
        const int sk = SC > 1 ? k : 0, dk = DC > 1 ? k : 0;
        int w = 0, h = 0;
        sweep<T>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, SC, w, h, DC}; },
                 [&](const T* s, int ss, T* d, int ds) { return fn(s + sk, ss, d + dk, ds, {w, h}); },
                 [&](const View<T>& src, const View<T>&, int x, int y, int c) {
                     return Expect<T>{c == dk, src(x, y, sk)};
                 },
                 std::string(name) + " channel " + std::to_string(k));
    }
}

template <class T>
void alpha_moves(CopyFn<T> drop, CopyFn<T> add) {
    int w = 0, h = 0;
    sweep<T>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, 4, w, h, 3}; },
             [&](const T* s, int ss, T* d, int ds) { return drop(s, ss, d, ds, {w, h}); },
             [&](const View<T>& src, const View<T>&, int x, int y, int c) { return Expect<T>{true, src(x, y, c)}; },
             "AC4C3R");
    sweep<T>([&](int ww, int hh) { w = ww; h = hh; return Geometry{w, h, 3, w, h, 4}; },
             [&](const T* s, int ss, T* d, int ds) { return add(s, ss, d, ds, {w, h}); },
             [&](const View<T>& src, const View<T>&, int x, int y, int c) { return Expect<T>{c < 3, src(x, y, c < 3 ? c : 0)}; },
             "C3AC4R");
}

// Interleaved to planar and back: planes are guarded images of one step.
template <class T, int C>
void planar(RokStatus (*split)(const T*, int, T* const*, int, RokiSize),
            RokStatus (*merge)(const T* const*, int, T*, int, RokiSize)) {
    for (int w = 1; w <= 70; ++w) {
        // Every fourth width has rows end to end in all images, which are
        // then handled as one long row.
        const int h = 1 + w % 3, pad = w % 4 == 0 ? 0 : w % 2, planePad = w % 4 == 0 ? 0 : pad + 1;
        rokt::GuardedImage<T> packed(w, h, C, pad), back(w, h, C, pad, Guard::Before);
        std::vector<std::unique_ptr<rokt::GuardedImage<T>>> planes;
        T* pp[C];
        for (int c = 0; c < C; ++c) {
            planes.push_back(std::make_unique<rokt::GuardedImage<T>>(w, h, 1, planePad, c % 2 ? Guard::Before : Guard::After));
            pp[c] = planes.back()->data();
        }
        rokt::fill_random(packed, std::uint32_t(w));
        ASSERT_EQ(split(packed.data(), packed.step(), pp, planes[0]->step(), {w, h}), rokStatusOk);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < C; ++c) ASSERT_EQ(planes[c]->at(x, y), packed.at(x, y, c)) << w;
        const T* cp[C];
        for (int c = 0; c < C; ++c) cp[c] = pp[c];
        ASSERT_EQ(merge(cp, planes[0]->step(), back.data(), back.step(), {w, h}), rokStatusOk);
        for (int y = 0; y < h; ++y)
            ASSERT_EQ(std::memcmp(back.row(y), packed.row(y), sizeof(T) * C * w), 0) << w;
        // A null plane pointer is refused before anything is written.
        std::vector<std::uint8_t> canary(16);
        pp[C - 1] = nullptr;
        EXPECT_EQ(split(packed.data(), packed.step(), pp, planes[0]->step(), {w, h}), rokStatusNullPtr);
        cp[0] = nullptr;
        EXPECT_EQ(merge(cp, planes[0]->step(), back.data(), back.step(), {w, h}), rokStatusNullPtr);
    }
}

template <class T>
using SetOneFn = RokStatus (*)(T, T*, int, RokiSize);
template <class T>
using SetManyFn = RokStatus (*)(const T*, T*, int, RokiSize);
template <class T>
using SetOneMaskedFn = RokStatus (*)(T, T*, int, RokiSize, const Rok8u*, int);
template <class T>
using SetManyMaskedFn = RokStatus (*)(const T*, T*, int, RokiSize, const Rok8u*, int);

template <class T>
T value_for(int c) {
    return T(std::is_floating_point_v<T> ? -1.5 - c : 0x5A + 17 * c);
}

template <class T>
void set_forms(SetOneFn<T> c1, SetManyFn<T> c3, SetManyFn<T> c4, SetManyFn<T> ac4, SetOneFn<T> c3c, SetOneFn<T> c4c,
               SetOneMaskedFn<T> c1m, SetManyMaskedFn<T> c3m, SetManyMaskedFn<T> c4m, SetManyMaskedFn<T> ac4m) {
    const T v[4] = {value_for<T>(0), value_for<T>(1), value_for<T>(2), value_for<T>(3)};
    struct Plain { int C; bool alpha; SetManyFn<T> fn; SetManyMaskedFn<T> masked; const char* name; };
    const Plain plain[] = {{3, false, c3, c3m, "C3"}, {4, false, c4, c4m, "C4"}, {4, true, ac4, ac4m, "AC4"}};
    int w = 0, h = 0;
    Mask m;
    auto geo = [&](int C) { return [&w, &h, &m, C](int ww, int hh) { w = ww; h = hh; m.make(w, h); return Geometry{w, h, 1, w, h, C}; }; };
    sweep<T>(geo(1), [&](const T*, int, T* d, int ds) { return c1(v[0], d, ds, {w, h}); },
             [&](const View<T>&, const View<T>&, int, int, int) { return Expect<T>{true, v[0]}; }, "Set C1R");
    sweep<T>(geo(1), [&](const T*, int, T* d, int ds) { return c1m(v[1], d, ds, {w, h}, m.bytes.data(), w + 1); },
             [&](const View<T>&, const View<T>&, int x, int y, int) { return Expect<T>{mask_byte(x, y) != 0, v[1]}; },
             "Set C1MR");
    for (const Plain& p : plain) {
        sweep<T>(geo(p.C), [&](const T*, int, T* d, int ds) { return p.fn(v, d, ds, {w, h}); },
                 [&](const View<T>&, const View<T>&, int, int, int c) { return Expect<T>{!(p.alpha && c == 3), v[c]}; },
                 std::string("Set ") + p.name + "R");
        sweep<T>(geo(p.C), [&](const T*, int, T* d, int ds) { return p.masked(v, d, ds, {w, h}, m.bytes.data(), w + 1); },
                 [&](const View<T>&, const View<T>&, int x, int y, int c) {
                     return Expect<T>{mask_byte(x, y) != 0 && !(p.alpha && c == 3), v[c]};
                 },
                 std::string("Set ") + p.name + "MR");
    }
    for (int C : {3, 4})
        for (int k = 0; k < C; ++k)
            sweep<T>(geo(C), [&](const T*, int, T* d, int ds) { return (C == 3 ? c3c : c4c)(v[2], d + k, ds, {w, h}); },
                     [&](const View<T>&, const View<T>&, int, int, int c) { return Expect<T>{c == k, v[2]}; },
                     "Set CR channel " + std::to_string(k));
}

// Error paths: null pointers, then sizes below 1; nothing written.
template <class T>
void copy_errors(CopyFn<T> fn, MaskedFn<T> masked) {
    std::vector<std::uint8_t> buf(256);
    T* d = reinterpret_cast<T*>(buf.data());
    const T src[16] = {};
    const Rok8u mask[16] = {1, 1, 1, 1};
    expect_untouched(buf, [&] { return fn(nullptr, 4, d, 4, {1, 1}); }, rokStatusNullPtr, "null src");
    expect_untouched(buf, [&] { return fn(src, 4, d, 4, {0, 1}); }, rokStatusBadSize, "width 0");
    expect_untouched(buf, [&] { return fn(src, 4, d, 4, {1, -1}); }, rokStatusBadSize, "height -1");
    expect_untouched(buf, [&] { return masked(src, 4, d, 4, {1, 1}, nullptr, 1); }, rokStatusNullPtr, "null mask");
    expect_untouched(buf, [&] { return masked(src, 4, d, 4, {1, 0}, mask, 1); }, rokStatusBadSize, "masked height 0");
    // Null beats size.
    expect_untouched(buf, [&] { return masked(src, 4, nullptr, 4, {0, 0}, mask, 1); }, rokStatusNullPtr, "null and size");
}

#define ROK_COPY_TESTS(t, T)                                                                                       \
    TEST(Copy, WholePixels_##t) {                                                                                 \
        whole_pixels<T>(rokiCopy_##t##_C1R, 1, false, "C1R");                                                     \
        whole_pixels<T>(rokiCopy_##t##_C3R, 3, false, "C3R");                                                     \
        whole_pixels<T>(rokiCopy_##t##_C4R, 4, false, "C4R");                                                     \
        whole_pixels<T>(rokiCopy_##t##_AC4R, 4, true, "AC4R");                                                    \
    }                                                                                                              \
    TEST(Copy, Masked_##t) {                                                                                      \
        masked_pixels<T>(rokiCopy_##t##_C1MR, 1, false, "C1MR");                                                  \
        masked_pixels<T>(rokiCopy_##t##_C3MR, 3, false, "C3MR");                                                  \
        masked_pixels<T>(rokiCopy_##t##_C4MR, 4, false, "C4MR");                                                  \
        masked_pixels<T>(rokiCopy_##t##_AC4MR, 4, true, "AC4MR");                                                 \
    }                                                                                                              \
    TEST(Copy, Channels_##t) {                                                                                    \
        one_channel<T>(rokiCopy_##t##_C3C1R, 3, 1, "C3C1R");                                                      \
        one_channel<T>(rokiCopy_##t##_C4C1R, 4, 1, "C4C1R");                                                      \
        one_channel<T>(rokiCopy_##t##_C1C3R, 1, 3, "C1C3R");                                                      \
        one_channel<T>(rokiCopy_##t##_C1C4R, 1, 4, "C1C4R");                                                      \
        one_channel<T>(rokiCopy_##t##_C3CR, 3, 3, "C3CR");                                                        \
        one_channel<T>(rokiCopy_##t##_C4CR, 4, 4, "C4CR");                                                        \
        alpha_moves<T>(rokiCopy_##t##_AC4C3R, rokiCopy_##t##_C3AC4R);                                            \
    }                                                                                                              \
    TEST(Copy, Planar_##t) {                                                                                      \
        planar<T, 3>(rokiCopy_##t##_C3P3R, rokiCopy_##t##_P3C3R);                                                 \
        planar<T, 4>(rokiCopy_##t##_C4P4R, rokiCopy_##t##_P4C4R);                                                 \
    }                                                                                                              \
    TEST(Copy, Errors_##t) {                                                                                      \
        copy_errors<T>(rokiCopy_##t##_C1R, rokiCopy_##t##_C1MR);                                                  \
        copy_errors<T>(rokiCopy_##t##_AC4R, rokiCopy_##t##_AC4MR);                                                \
        copy_errors<T>(rokiCopy_##t##_C3C1R, rokiCopy_##t##_C3MR);                                                \
    }                                                                                                              \
    TEST(Set, AllForms_##t) {                                                                                     \
        set_forms<T>(rokiSet_##t##_C1R, rokiSet_##t##_C3R, rokiSet_##t##_C4R, rokiSet_##t##_AC4R,                 \
                     rokiSet_##t##_C3CR, rokiSet_##t##_C4CR, rokiSet_##t##_C1MR, rokiSet_##t##_C3MR,              \
                     rokiSet_##t##_C4MR, rokiSet_##t##_AC4MR);                                                     \
    }

ROK_COPY_TESTS(8u, Rok8u)
ROK_COPY_TESTS(16s, Rok16s)
ROK_COPY_TESTS(16u, Rok16u)
ROK_COPY_TESTS(32s, Rok32s)
ROK_COPY_TESTS(32f, Rok32f)

TEST(Set, ChecksPointersThenSizeAndWritesNothing) {
    std::vector<std::uint8_t> buf(64);
    Rok8u* d = buf.data();
    const Rok8u v[3] = {1, 2, 3}, mask[4] = {1, 1, 1, 1};
    expect_untouched(buf, [&] { return rokiSet_8u_C3R(nullptr, d, 12, {1, 1}); }, rokStatusNullPtr, "null values");
    expect_untouched(buf, [&] { return rokiSet_8u_C3R(v, d, 12, {0, 1}); }, rokStatusBadSize, "width 0");
    expect_untouched(buf, [&] { return rokiSet_8u_C1MR(7, d, 4, {1, 1}, nullptr, 4); }, rokStatusNullPtr, "null mask");
    expect_untouched(buf, [&] { return rokiSet_8u_C1MR(7, d, 4, {2, 0}, mask, 4); }, rokStatusBadSize, "height 0");
    expect_untouched(buf, [&] { return rokiSet_8u_C4CR(7, d, -4, {1, -3}); }, rokStatusBadSize, "channel size");
}

// Images whose written bytes outgrow the core's level-2 cache: the merge
// streams there (the split's streamed rows are covered by the kernel tests).
// Padded rows (each row streams whole lines from its first line boundary),
// rows end to end (one long row), and a plane on another line offset.
// Padding between rows must keep its bytes.
template <class T, int C>
void planar_large(RokStatus (*split)(const T*, int, T* const*, int, RokiSize),
                  RokStatus (*merge)(const T* const*, int, T*, int, RokiSize)) {
    const std::size_t l2 = std::size_t(std::max(rok::core::l2_cache_bytes, 1 << 20));
    for (auto [w, pad, shifted] : {std::tuple{1001, 3, false}, std::tuple{1024, 0, false}, std::tuple{777, 1, true}}) {
        const int h = int(l2 / (std::size_t(w) * C * sizeof(T))) + 3;
        rokt::GuardedImage<T> packed(w, h, C, pad), back(w, h, C, pad, Guard::Before);
        std::vector<std::unique_ptr<rokt::GuardedImage<T>>> planes;
        T* pp[C];
        const T* cp[C];
        for (int c = 0; c < C; ++c) {
            // The shifted case places plane 1 one sample past its buffer's
            // start (its rows are one sample shorter than the step).
            planes.push_back(std::make_unique<rokt::GuardedImage<T>>(w + (shifted ? 1 : 0), h, 1, pad, Guard::After));
            planes.back()->fill_bytes(0x5D);
            pp[c] = planes.back()->data() + (shifted && c == 1 ? 1 : 0);
            cp[c] = pp[c];
        }
        rokt::fill_random(packed, std::uint32_t(w + C));
        back.fill_bytes(0x3C);
        const int planeStep = planes[0]->step();
        ASSERT_EQ(split(packed.data(), packed.step(), pp, planeStep, {w, h}), rokStatusOk);
        for (int c = 0; c < C; ++c)
            for (int y = 0; y < h; ++y) {
                const T* r = reinterpret_cast<const T*>(reinterpret_cast<const std::uint8_t*>(pp[c]) + std::size_t(planeStep) * y);
                for (int x = 0; x < w; ++x) ASSERT_EQ(r[x], packed.at(x, y, c)) << w << " plane " << c << " row " << y;
            }
        if (shifted) {
            T canary;
            std::memset(&canary, 0x5D, sizeof canary);
            ASSERT_EQ(planes[1]->at(0, 0), canary) << "sample before plane 1 written";
        }
        ASSERT_EQ(merge(cp, planeStep, back.data(), back.step(), {w, h}), rokStatusOk);
        for (int y = 0; y < h; ++y) {
            ASSERT_EQ(std::memcmp(back.row(y), packed.row(y), sizeof(T) * C * w), 0) << w << " row " << y;
            if (y + 1 < h) {
                for (std::size_t b = sizeof(T) * C * w; b < std::size_t(back.step()); ++b)
                    ASSERT_EQ(reinterpret_cast<const std::uint8_t*>(back.row(y))[b], 0x3C) << w << " padding of row " << y;
            }
        }
    }
}

TEST(Copy, LargePlanarStreams) {
    planar_large<Rok8u, 3>(rokiCopy_8u_C3P3R, rokiCopy_8u_P3C3R);
    planar_large<Rok16u, 3>(rokiCopy_16u_C3P3R, rokiCopy_16u_P3C3R);
    planar_large<Rok16s, 4>(rokiCopy_16s_C4P4R, rokiCopy_16s_P4C4R);
    planar_large<Rok32f, 4>(rokiCopy_32f_C4P4R, rokiCopy_32f_P4C4R);
}

// Large copies take the merged-run and streaming paths; every store kind of
// CopyManaged must give the same bytes, with nothing outside the ROI touched.
TEST(Copy, LargeAndManagedCopies) {
    for (int flags : {0, 1, 2, 3, 4}) {
        for (auto [w, h, pad] : {std::tuple{1920, 700, 0}, std::tuple{1500, 800, 3}, std::tuple{40, 30000, 0}}) {
            rokt::GuardedImage<Rok8u> src(w, h, 1, pad), dst(w, h, 1, pad, Guard::Before);
            rokt::fill_random(src, std::uint32_t(w + flags));
            dst.fill_bytes(0x3C);
            ASSERT_EQ(rokiCopyManaged_8u_C1R(src.data() + 0, src.step(), dst.data(), dst.step(), {w, h}, flags), rokStatusOk);
            for (int y = 0; y < h; ++y)
                ASSERT_EQ(std::memcmp(src.row(y), dst.row(y), std::size_t(w)), 0) << flags << " row " << y;
            for (int y = 0; y + 1 < h; ++y) {
                for (int i = w; i < w + pad; ++i) ASSERT_EQ(dst.row(y)[i], 0x3C);
            }
        }
    }
    std::vector<std::uint8_t> buf(8);
    expect_untouched(buf, [&] { return rokiCopyManaged_8u_C1R(nullptr, 1, buf.data(), 1, {1, 1}, 2); }, rokStatusNullPtr, "managed null");
    expect_untouched(buf, [&] { return rokiCopyManaged_8u_C1R(buf.data(), 1, buf.data() + 4, 1, {0, 1}, 2); }, rokStatusBadSize, "managed size");
}

// Managed copies of short rows at every destination alignment (the 1/2/4/8
// alignment moves) match a byte loop.
TEST(Copy, ManagedAlignmentHeads) {
    std::vector<Rok8u> src(300), dst(300);
    for (int i = 0; i < 300; ++i) src[i] = Rok8u(i * 7 + 1);
    for (int flags : {1, 2})
        for (int off = 0; off < 64; ++off)
            for (int n : {1, 2, 3, 7, 15, 31, 63, 64, 65, 130, 200}) {
                std::fill(dst.begin(), dst.end(), 0);
                ASSERT_EQ(rokiCopyManaged_8u_C1R(src.data() + 3, n, dst.data() + off, n, {n, 1}, flags), rokStatusOk);
                for (int i = 0; i < 300; ++i)
                    ASSERT_EQ(dst[i], i >= off && i < off + n ? src[i - off + 3] : 0) << flags << " " << off << " " << n;
            }
}

}  // namespace
