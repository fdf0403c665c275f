// AlphaPremul and AlphaPremulC: every export against the product rule
// (t + 1 + (t >> bits)) >> bits over widths 1..70 and wider rows, odd steps,
// guarded buffers, in place; the alpha each form writes (AC4: the source
// alpha, AlphaPremulC AC4: the constant, AP4: plane 3 copied or filled);
// null plane pointers before the size.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "guarded.h"
#include "pixel_support.h"
#include "roki.h"

namespace rokt::pixel {
namespace {

template <class T>
T premul(T c, T a) {
    constexpr int bits = 8 * sizeof(T);
    const std::uint64_t t = std::uint64_t(c) * a;
    return T((t + 1 + (t >> bits)) >> bits);
}

// Interleaved forms: fn(src, srcStep, dst, dstStep, roi, alpha); in-place
// wrappers copy every sample of src into dst first.
template <class T>
using PremulFn = std::function<RokStatus(const T* s, int ss, T* d, int ds, RokiSize r, T alpha)>;

template <class T>
struct PremulCase {
    std::string name;
    int channels;
    bool own_alpha;  // AlphaPremul (AC4 only); else AlphaPremulC
    bool ac4;
    PremulFn<T> fn;
};

template <class T>
void copy_all(const T* s, int ss, T* d, int ds, RokiSize r, int ch) {
    for (int y = 0; y < r.height; ++y)
        for (int i = 0; i < r.width * ch; ++i)
            reinterpret_cast<T*>(reinterpret_cast<char*>(d) + std::ptrdiff_t(ds) * y)[i] =
                reinterpret_cast<const T*>(reinterpret_cast<const char*>(s) + std::ptrdiff_t(ss) * y)[i];
}

#define OWN(t)                                                                                               \
    {"AlphaPremul_" #t "_AC4R", 4, true, true, [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, Rok##t) { \
         return rokiAlphaPremul_##t##_AC4R(s, ss, d, ds, r); }},                                               \
    {"AlphaPremul_" #t "_AC4IR", 4, true, true, [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, Rok##t) { \
         copy_all(s, ss, d, ds, r, 4); return rokiAlphaPremul_##t##_AC4IR(d, ds, r); }},
#define CONST(t, L, CH, AC)                                                                                  \
    {"AlphaPremulC_" #t "_" #L "R", CH, false, AC, [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, Rok##t a) { \
         return rokiAlphaPremulC_##t##_##L##R(s, ss, a, d, ds, r); }},                                         \
    {"AlphaPremulC_" #t "_" #L "IR", CH, false, AC, [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, Rok##t a) { \
         copy_all(s, ss, d, ds, r, CH); return rokiAlphaPremulC_##t##_##L##IR(a, d, ds, r); }},
#define CASES(t) OWN(t) CONST(t, C1, 1, false) CONST(t, C3, 3, false) CONST(t, C4, 4, false) CONST(t, AC4, 4, true)

template <class T>
const std::vector<PremulCase<T>>& premul_cases();
template <>
const std::vector<PremulCase<Rok8u>>& premul_cases() {
    static const std::vector<PremulCase<Rok8u>> all = {CASES(8u)};
    return all;
}
template <>
const std::vector<PremulCase<Rok16u>>& premul_cases() {
    static const std::vector<PremulCase<Rok16u>> all = {CASES(16u)};
    return all;
}

template <class T>
void run_every_interleaved() {
    std::mt19937 rng(43);
    ASSERT_EQ(premul_cases<T>().size(), 10u);
    for (const auto& c : premul_cases<T>())
        for (Roi roi : tail_rois()) {
            GuardedImage<T> s(roi.width, roi.height, c.channels, 1, Guard::Before), d(roi.width, roi.height, c.channels, 3);
            fill_edgy(s, rng);
            d.fill_bytes(0xE1);
            const T alpha = edgy<T>(rng);
            const auto before = d.bytes();
            ASSERT_EQ(c.fn(s.data(), s.step(), d.data(), d.step(), {roi.width, roi.height}, alpha), rokStatusOk) << c.name;
            ASSERT_TRUE(check_image(d, before, false, [&](int x, int y, int k) {
                if (c.ac4 && k == 3) return c.own_alpha ? s.at(x, y, 3) : alpha;
                return premul(s.at(x, y, k), c.own_alpha ? s.at(x, y, 3) : alpha);
            })) << c.name << " alpha " << +alpha << " " << roi.width << "x" << roi.height;
        }
}

TEST(Alpha, EveryInterleaved8uExport) { run_every_interleaved<Rok8u>(); }
TEST(Alpha, EveryInterleaved16uExport) { run_every_interleaved<Rok16u>(); }

// Four planes with one step; fn(src planes, dst planes, step, roi, alpha).
template <class T>
struct Planes {
    std::vector<std::unique_ptr<GuardedImage<T>>> img;
    Planes(int w, int h, int pad) {
        for (int k = 0; k < 4; ++k) img.push_back(std::make_unique<GuardedImage<T>>(w, h, 1, pad));
    }
    T* ptr[4];
    T* const* pointers() {
        for (int k = 0; k < 4; ++k) ptr[k] = img[k]->data();
        return ptr;
    }
};

template <class T>
void run_planes(bool own_alpha, bool in_place) {
    std::mt19937 rng(47);
    for (Roi roi : tail_rois()) {
        Planes<T> s(roi.width, roi.height, 2), d(roi.width, roi.height, 2);
        for (auto& p : s.img) fill_edgy(*p, rng);
        for (auto& p : d.img) p->fill_bytes(0x3A);
        const T alpha = edgy<T>(rng);
        std::vector<std::vector<std::uint8_t>> before;
        Planes<T>& out = in_place ? s : d;
        for (auto& p : out.img) before.push_back(p->bytes());
        const RokiSize r{roi.width, roi.height};
        const int step = s.img[0]->step();
        RokStatus st;
        std::vector<std::vector<T>> orig(4);
        for (int k = 0; k < 4; ++k)
            for (int y = 0; y < roi.height; ++y)
                for (int x = 0; x < roi.width; ++x) orig[k].push_back(s.img[k]->at(x, y));
        if constexpr (std::is_same_v<T, Rok8u>) {
            if (own_alpha) st = in_place ? rokiAlphaPremul_8u_AP4IR(s.pointers(), step, r) : rokiAlphaPremul_8u_AP4R(s.pointers(), step, d.pointers(), step, r);
            else st = in_place ? rokiAlphaPremulC_8u_AP4IR(alpha, s.pointers(), step, r) : rokiAlphaPremulC_8u_AP4R(s.pointers(), step, alpha, d.pointers(), step, r);
        } else {
            if (own_alpha) st = in_place ? rokiAlphaPremul_16u_AP4IR(s.pointers(), step, r) : rokiAlphaPremul_16u_AP4R(s.pointers(), step, d.pointers(), step, r);
            else st = in_place ? rokiAlphaPremulC_16u_AP4IR(alpha, s.pointers(), step, r) : rokiAlphaPremulC_16u_AP4R(s.pointers(), step, alpha, d.pointers(), step, r);
        }
        ASSERT_EQ(st, rokStatusOk);
        for (int k = 0; k < 4; ++k)
            ASSERT_TRUE(check_image(*out.img[k], before[k], false, [&](int x, int y, int) {
                const std::size_t i = std::size_t(y) * roi.width + x;
                const T a = own_alpha ? orig[3][i] : alpha;
                return k < 3 ? premul(orig[k][i], a) : a;
            })) << (own_alpha ? "AlphaPremul" : "AlphaPremulC") << (in_place ? " IR" : " R") << " plane " << k << " "
                << roi.width << "x" << roi.height;
    }
}

TEST(Alpha, PlanarForms) {
    for (bool own : {true, false})
        for (bool in_place : {false, true}) {
            run_planes<Rok8u>(own, in_place);
            run_planes<Rok16u>(own, in_place);
        }
}

TEST(Alpha, CheckOrder) {
    Rok8u p0[2] = {9, 9}, p1[2] = {9, 9}, p2[2] = {9, 9}, p3[2] = {9, 9};
    Rok8u q0[2] = {9, 9}, q1[2] = {9, 9}, q2[2] = {9, 9}, q3[2] = {9, 9};
    Rok8u* const src[4] = {p0, p1, p2, p3};
    Rok8u* const dst[4] = {q0, q1, q2, q3};
    for (int missing = 0; missing < 8; ++missing) {
        Rok8u* s[4] = {p0, p1, p2, p3};
        Rok8u* d[4] = {q0, q1, q2, q3};
        (missing < 4 ? s[missing] : d[missing - 4]) = nullptr;
        EXPECT_EQ(rokiAlphaPremul_8u_AP4R(s, 2, d, 2, {0, 0}), rokStatusNullPtr) << missing;
        EXPECT_EQ(rokiAlphaPremulC_8u_AP4R(s, 2, 5, d, 2, {0, 0}), rokStatusNullPtr) << missing;
        if (missing < 4) {
            EXPECT_EQ(rokiAlphaPremul_8u_AP4IR(s, 2, {0, 0}), rokStatusNullPtr) << missing;
        }
    }
    EXPECT_EQ(rokiAlphaPremul_8u_AP4R(nullptr, 2, dst, 2, {1, 1}), rokStatusNullPtr);
    EXPECT_EQ(rokiAlphaPremulC_16u_AP4IR(5, nullptr, 2, {1, 1}), rokStatusNullPtr);
    EXPECT_EQ(rokiAlphaPremul_8u_AP4R(src, 2, dst, 2, {1, 0}), rokStatusBadSize);
    EXPECT_EQ(rokiAlphaPremul_8u_AC4R(nullptr, 4, q0, 4, {0, 0}), rokStatusNullPtr);
    EXPECT_EQ(rokiAlphaPremul_8u_AC4IR(q0, 4, {0, 1}), rokStatusBadSize);
    EXPECT_EQ(rokiAlphaPremulC_8u_C3R(p0, 3, 1, nullptr, 3, {1, 1}), rokStatusNullPtr);
    EXPECT_EQ(rokiAlphaPremulC_16u_C4IR(1, nullptr, 8, {1, 1}), rokStatusNullPtr);
    for (Rok8u* plane : {p0, p1, p2, p3, q0, q1, q2, q3}) {
        EXPECT_EQ(plane[0], 9);
        EXPECT_EQ(plane[1], 9);
    }
    // No step is checked: zero and negative steps walk the rows as given.
    Rok8u img[4] = {100, 100, 100, 128};
    EXPECT_EQ(rokiAlphaPremul_8u_AC4IR(img, 0, {1, 2}), rokStatusOk);
    EXPECT_EQ(img[0], 25);  // premultiplied twice, once per row: 100 -> 50 -> 25
}

}  // namespace
}  // namespace rokt::pixel
