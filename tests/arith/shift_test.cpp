// LShiftC and RShiftC: every export against the shift rule in 64-bit
// arithmetic for uniform and mixed per-channel counts (0, inside, the bit
// width, beyond it, 4294967295) over widths 1..70 and wider rows, odd steps,
// guarded buffers, AC4 alpha and padding untouched, in place; the copy and
// fill special cases (the fill reads no source); the check order.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "arith_cases.h"
#include "guarded.h"
#include "pixel_support.h"
#include "roki.h"

namespace rokt::pixel {
namespace {

template <class T>
using ShiftFn = std::function<RokStatus(const T* s, int ss, const Rok32u* counts, T* d, int ds, RokiSize r)>;

template <class T>
struct ShiftCase {
    std::string name;
    bool left;
    int channels;
    bool ac4;
    ShiftFn<T> fn;
};

template <class T>
std::vector<ShiftCase<T>>& shift_cases() {
    static std::vector<ShiftCase<T>> all;
    return all;
}

using rokt::arith::copy_rows;

#define SHIFT(F, LEFT, t, L, CH, AC, V)                                                                    \
    shift_cases<Rok##t>().push_back({#F "_" #t "_" #L "R", LEFT, CH, AC,                                   \
        [](const Rok##t* s, int ss, const Rok32u* k, Rok##t* d, int ds, RokiSize r) {                    \
            return roki##F##_##t##_##L##R(s, ss, V, d, ds, r); }});                                        \
    shift_cases<Rok##t>().push_back({#F "_" #t "_" #L "IR", LEFT, CH, AC,                                  \
        [](const Rok##t* s, int ss, const Rok32u* k, Rok##t* d, int ds, RokiSize r) {                    \
            copy_rows(s, ss, d, ds, r, CH, AC); return roki##F##_##t##_##L##IR(V, d, ds, r); }});
#define SHIFT_LAYOUTS(F, LEFT, t) SHIFT(F, LEFT, t, C1, 1, false, k[0]) SHIFT(F, LEFT, t, C3, 3, false, k) \
    SHIFT(F, LEFT, t, C4, 4, false, k) SHIFT(F, LEFT, t, AC4, 4, true, k)

void register_shifts() {
    if (!shift_cases<Rok8u>().empty()) return;
    SHIFT_LAYOUTS(LShiftC, true, 8u) SHIFT_LAYOUTS(LShiftC, true, 16u) SHIFT_LAYOUTS(LShiftC, true, 32s)
    SHIFT_LAYOUTS(RShiftC, false, 8u) SHIFT_LAYOUTS(RShiftC, false, 8s) SHIFT_LAYOUTS(RShiftC, false, 16u)
    SHIFT_LAYOUTS(RShiftC, false, 16s) SHIFT_LAYOUTS(RShiftC, false, 32s)
}

// The rule in 64-bit arithmetic: x * 2^k wrapped to the sample width, or
// floor(x / 2^k); counts of 64 and more behave as 63.
template <class T>
T shift_ref(bool left, T x, Rok32u count) {
    constexpr int bits = 8 * sizeof(T);
    const int k = count > 63 ? 63 : int(count);
    if (left) {
        const std::uint64_t wide = k >= bits ? 0 : (std::uint64_t(std::make_unsigned_t<T>(x)) << k);
        return T(std::make_unsigned_t<T>(wide & ((std::uint64_t(1) << bits) - 1)));
    }
    return T(std::int64_t(x) >> k);  // exact floor for both signs
}

// Count sets: the same count in every channel, and mixed ones.
template <class T>
std::vector<std::vector<Rok32u>> count_sets() {
    const Rok32u bits = 8 * sizeof(T);
    std::vector<std::vector<Rok32u>> sets;
    for (Rok32u k : {0u, 1u, 3u, bits - 1, bits, bits + 1, 40u, 4294967295u}) sets.push_back({k, k, k, k});
    sets.push_back({0, 5, bits, 2});
    sets.push_back({bits - 1, 0, 1, 4294967295u});
    sets.push_back({4294967295u, bits + 3, 2, 7});
    sets.push_back({2, 1, 0, 0});
    return sets;
}

template <class T>
void run_shift(const ShiftCase<T>& c, Roi roi, const std::vector<Rok32u>& counts, std::mt19937& rng) {
    const int ch = c.channels;
    GuardedImage<T> s(roi.width, roi.height, ch, 1, Guard::Before), d(roi.width, roi.height, ch, 3);
    fill_edgy(s, rng);
    d.fill_bytes(0x96);
    const auto before = d.bytes();
    ASSERT_EQ(c.fn(s.data(), s.step(), counts.data(), d.data(), d.step(), {roi.width, roi.height}), rokStatusOk) << c.name;
    ASSERT_TRUE(check_image(d, before, c.ac4, [&](int x, int y, int k) { return shift_ref(c.left, s.at(x, y, k), counts[k]); }))
        << c.name << " " << roi.width << "x" << roi.height << " counts " << counts[0] << "," << counts[1] << ","
        << counts[2] << "," << counts[3];
}

template <class T>
void run_every_shift_export() {
    register_shifts();
    std::mt19937 rng(17);
    const auto sets = count_sets<T>();
    for (const auto& c : shift_cases<T>()) {
        int n = 0;
        for (Roi roi : tail_rois()) run_shift(c, roi, sets[n++ % sets.size()], rng);
        for (const auto& counts : sets) run_shift(c, {67, 2}, counts, rng);
        run_shift(c, {5, 40}, sets[8], rng);  // short rows laid end to end in neither image
    }
}

TEST(Shift, Every8uExport) { run_every_shift_export<Rok8u>(); }
TEST(Shift, Every8sExport) { run_every_shift_export<Rok8s>(); }
TEST(Shift, Every16uExport) { run_every_shift_export<Rok16u>(); }
TEST(Shift, Every16sExport) { run_every_shift_export<Rok16s>(); }
TEST(Shift, Every32sExport) { run_every_shift_export<Rok32s>(); }

TEST(Shift, ExportCount) {
    register_shifts();
    EXPECT_EQ(shift_cases<Rok8u>().size() + shift_cases<Rok8s>().size() + shift_cases<Rok16u>().size() +
                  shift_cases<Rok16s>().size() + shift_cases<Rok32s>().size(),
              64u);
}

// Whole images laid end to end (one long row across the channel pattern).
TEST(Shift, PackedImagesWithMixedCounts) {
    std::mt19937 rng(3);
    for (int w : {1, 7, 33}) {
        GuardedImage<Rok16u> s(w, 9, 3), d(w, 9, 3);
        fill_edgy(s, rng);
        const Rok32u k[3] = {1, 0, 17};
        ASSERT_EQ(rokiRShiftC_16u_C3R(s.data(), s.step(), k, d.data(), d.step(), {w, 9}), rokStatusOk);
        EXPECT_TRUE(check_image(d, d.bytes(), false, [&](int x, int y, int c) { return shift_ref(false, s.at(x, y, c), k[c]); }));
    }
}

// With counts at the bit width or more in every channel the result is 0
// whatever the source holds, so the source is not read: here it lies on an
// unreadable page. AC4 alpha keeps its value.
TEST(Shift, FillReadsNoSource) {
    GuardedBuffer page(1, Guard::Before);
    const auto* unreadable = page.data() - sysconf(_SC_PAGESIZE);
    Rok16u d[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const Rok32u k[3] = {16, 99, 4294967295u};
    EXPECT_EQ(rokiLShiftC_16u_AC4R(reinterpret_cast<const Rok16u*>(unreadable), 16, k, d, 16, {2, 1}), rokStatusOk);
    const Rok16u want[8] = {0, 0, 0, 4, 0, 0, 0, 8};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(d[i], want[i]) << i;
    Rok8u e[3] = {9, 9, 9};
    EXPECT_EQ(rokiRShiftC_8u_C1R(unreadable, 3, 8, e, 3, {3, 1}), rokStatusOk);
    for (Rok8u v : e) EXPECT_EQ(v, 0);
}

TEST(Shift, CountZeroInPlaceKeepsTheImage) {
    Rok32s v[4] = {-5, 7, INT32_MIN, 1};
    const Rok32u k[3] = {0, 0, 0};
    EXPECT_EQ(rokiRShiftC_32s_AC4IR(k, v, 16, {1, 1}), rokStatusOk);
    EXPECT_EQ(v[0], -5);
    EXPECT_EQ(v[2], INT32_MIN);
    EXPECT_EQ(v[3], 1);
}

// Pointers, then steps, then size; nothing written on any error.
TEST(Shift, CheckOrder) {
    Rok16s s[8] = {}, d[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    const Rok32u k3[3] = {1, 1, 1};
    struct Row { const char* what; std::function<RokStatus()> call; RokStatus want; };
    const Row rows[] = {
        {"null source, bad step and size", [&] { return rokiRShiftC_16s_C1R(nullptr, 0, 1, d, 2, {0, 0}); }, rokStatusNullPtr},
        {"null counts", [&] { return rokiRShiftC_16s_C3R(s, 6, nullptr, d, 6, {1, 1}); }, rokStatusNullPtr},
        {"null in place", [&] { return rokiLShiftC_16u_C1IR(1, nullptr, 2, {1, 1}); }, rokStatusNullPtr},
        {"step before size", [&] { return rokiRShiftC_16s_C1R(s, 0, 1, d, 2, {0, 1}); }, rokStatusBadStep},
        {"negative dst step", [&] { return rokiRShiftC_16s_C3R(s, 6, k3, d, -6, {1, 1}); }, rokStatusBadStep},
        {"size", [&] { return rokiRShiftC_16s_C1R(s, 2, 1, d, 2, {1, 0}); }, rokStatusBadSize},
        {"size with count 0", [&] { return rokiRShiftC_16s_C1R(s, 2, 0, d, 2, {-1, 1}); }, rokStatusBadSize},
        {"in place step", [&] { return rokiRShiftC_16s_C1IR(2, d, 0, {1, 1}); }, rokStatusBadStep},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.call(), r.want) << r.what;
        for (Rok16s x : d) ASSERT_EQ(x, 9) << r.what << ": written";
    }
}

}  // namespace
}  // namespace rokt::pixel
