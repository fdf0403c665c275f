// Compare, CompareC, CompareEqualEps and CompareEqualEpsC: every export and
// operation against the test written out per pixel (every compared channel
// must pass; AC4 alpha is not compared), widths 1..70 and wider rows, odd
// steps, guarded buffers, padding untouched; the check orders.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "guarded.h"
#include "pixel_support.h"
#include "roki.h"

namespace rokt::pixel {
namespace {

constexpr int kEps = 5;  // the operation code the table uses for the eps forms

// b is the second image, or for constant forms the constants.
template <class T>
using CompareFn = std::function<RokStatus(const T* a, int as, const T* b, int bs, Rok8u* d, int ds, RokiSize r, int op, float eps)>;

template <class T>
struct CompareCase {
    std::string name;
    int channels;
    bool ac4, constant, eps;
    CompareFn<T> fn;
};

template <class T>
std::vector<CompareCase<T>>& compare_cases() {
    static std::vector<CompareCase<T>> all;
    return all;
}

#define CMP(t, L, CH, AC)                                                                                          \
    compare_cases<Rok##t>().push_back({"Compare_" #t "_" #L "R", CH, AC, false, false,                             \
        [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok8u* d, int ds, RokiSize r, int op, float) {       \
            return rokiCompare_##t##_##L##R(a, as, b, bs, d, ds, r, op); }});
#define CMPC(t, L, CH, AC, V)                                                                                      \
    compare_cases<Rok##t>().push_back({"CompareC_" #t "_" #L "R", CH, AC, true, false,                             \
        [](const Rok##t* a, int as, const Rok##t* b, int, Rok8u* d, int ds, RokiSize r, int op, float) {          \
            return rokiCompareC_##t##_##L##R(a, as, V, d, ds, r, op); }});
#define EPS(L, CH, AC)                                                                                             \
    compare_cases<Rok32f>().push_back({"CompareEqualEps_32f_" #L "R", CH, AC, false, true,                         \
        [](const Rok32f* a, int as, const Rok32f* b, int bs, Rok8u* d, int ds, RokiSize r, int, float e) {        \
            return rokiCompareEqualEps_32f_##L##R(a, as, b, bs, d, ds, r, e); }});
#define EPSC(L, CH, AC, V)                                                                                         \
    compare_cases<Rok32f>().push_back({"CompareEqualEpsC_32f_" #L "R", CH, AC, true, true,                         \
        [](const Rok32f* a, int as, const Rok32f* b, int, Rok8u* d, int ds, RokiSize r, int, float e) {           \
            return rokiCompareEqualEpsC_32f_##L##R(a, as, V, d, ds, r, e); }});
#define CMP_TYPE(t) CMP(t, C1, 1, false) CMP(t, C3, 3, false) CMP(t, C4, 4, false) CMP(t, AC4, 4, true) \
    CMPC(t, C1, 1, false, b[0]) CMPC(t, C3, 3, false, b) CMPC(t, C4, 4, false, b) CMPC(t, AC4, 4, true, b)

void register_compare() {
    if (!compare_cases<Rok8u>().empty()) return;
    CMP_TYPE(8u) CMP_TYPE(16u) CMP_TYPE(16s) CMP_TYPE(32f)
    EPS(C1, 1, false) EPS(C3, 3, false) EPS(C4, 4, false) EPS(AC4, 4, true)
    EPSC(C1, 1, false, b[0]) EPSC(C3, 3, false, b) EPSC(C4, 4, false, b) EPSC(AC4, 4, true, b)
}

// The test on one channel, in double (exact for every sample type).
template <class T>
bool passes(T a, T b, int op, float eps) {
    const double x = a, y = b;
    switch (op) {
        case 0: return x < y;
        case 1: return x <= y;
        case 2: return x == y;
        case 3: return x >= y;
        case 4: return x > y;
        default: return std::fabs(double(float(a) - float(b))) <= eps;  // the single-precision difference
    }
}

// A second operand that often equals the first or lies next to it.
template <class T>
T near(T a, std::mt19937& rng) {
    switch (rng() % 6) {
        case 0: case 1: return a;
        case 2: return T(a + 1);
        case 3: return T(a - 1);
        default: return edgy<T>(rng);
    }
}

template <class T>
void run_compare(const CompareCase<T>& c, Roi roi, int op, float eps, std::mt19937& rng) {
    const int ch = c.channels;
    GuardedImage<T> a(roi.width, roi.height, ch, 1), b(roi.width, roi.height, ch, 2, Guard::Before);
    GuardedImage<Rok8u> d(roi.width, roi.height, 1, 3);
    fill_edgy(a, rng);
    for (int y = 0; y < roi.height; ++y)
        for (int i = 0; i < roi.width * ch; ++i) b.row(y)[i] = near(a.row(y)[i], rng);
    T values[4];
    for (int k = 0; k < 4; ++k) values[k] = near(a.row(0)[k % (roi.width * ch)], rng);
    d.fill_bytes(0x77);
    const auto before = d.bytes();
    const RokStatus st = c.fn(a.data(), a.step(), c.constant ? values : b.data(), b.step(), d.data(), d.step(),
                              {roi.width, roi.height}, op, eps);
    ASSERT_EQ(st, rokStatusOk) << c.name;
    ASSERT_TRUE(check_image(d, before, false, [&](int x, int y, int) {
        bool all = true;
        for (int k = 0; k < (c.ac4 ? 3 : ch); ++k) all = all && passes(a.at(x, y, k), c.constant ? values[k] : b.at(x, y, k), op, eps);
        return Rok8u(all ? 255 : 0);
    })) << c.name << " op " << op << " eps " << eps << " " << roi.width << "x" << roi.height;
}

template <class T>
void run_every_compare_export() {
    register_compare();
    std::mt19937 rng(23);
    for (const auto& c : compare_cases<T>()) {
        const std::vector<int> ops = c.eps ? std::vector<int>{kEps} : std::vector<int>{0, 1, 2, 3, 4};
        const float epsilons[] = {0.0f, 1.0f, 2.5f, -0.0f, std::numeric_limits<float>::infinity()};
        // Each width with one operation in turn; the wide rows with every one.
        int n = 0;
        for (Roi roi : tail_rois()) {
            if (roi.width <= 70) run_compare(c, roi, ops[n % ops.size()], epsilons[n % 5], rng), ++n;
            else for (int op : ops) run_compare(c, roi, op, epsilons[n++ % 5], rng);
        }
    }
}

TEST(Compare, Every8uExport) { run_every_compare_export<Rok8u>(); }
TEST(Compare, Every16uExport) { run_every_compare_export<Rok16u>(); }
TEST(Compare, Every16sExport) { run_every_compare_export<Rok16s>(); }
TEST(Compare, Every32fExport) { run_every_compare_export<Rok32f>(); }

TEST(Compare, ExportCount) {
    register_compare();
    EXPECT_EQ(compare_cases<Rok8u>().size() + compare_cases<Rok16u>().size() + compare_cases<Rok16s>().size() +
                  compare_cases<Rok32f>().size(),
              40u);
}

// One mask over images laid end to end (one row across the whole image).
TEST(Compare, PackedRows) {
    std::mt19937 rng(9);
    for (int w : {1, 5, 40}) {
        GuardedImage<Rok16s> a(w, 7, 1), b(w, 7, 1);
        GuardedImage<Rok8u> d(w, 7, 1);
        fill_edgy(a, rng);
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < w; ++x) b.at(x, y) = near(a.at(x, y), rng);
        ASSERT_EQ(rokiCompare_16s_C1R(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), {w, 7}, 1), rokStatusOk);
        EXPECT_TRUE(check_image(d, d.bytes(), false, [&](int x, int y, int) { return Rok8u(a.at(x, y) <= b.at(x, y) ? 255 : 0); }));
    }
}

// Pointers, steps, size, then eps; a cmpOp outside 0..4, after all of them,
// is no error and writes nothing.
TEST(Compare, CheckOrder) {
    Rok32f a[4] = {}, b[4] = {};
    Rok8u d[4] = {9, 9, 9, 9};
    const Rok32f v3[3] = {};
    struct Row { const char* what; std::function<RokStatus()> call; RokStatus want; };
    const Row rows[] = {
        {"null src2, bad step, size, op", [&] { return rokiCompare_32f_C1R(a, 0, nullptr, 4, d, 1, {0, 0}, 9); }, rokStatusNullPtr},
        {"null dst", [&] { return rokiCompare_32f_C1R(a, 4, b, 4, nullptr, 1, {1, 1}, 0); }, rokStatusNullPtr},
        {"step before size", [&] { return rokiCompare_32f_C1R(a, 4, b, 4, d, 0, {0, 1}, 9); }, rokStatusBadStep},
        {"negative src1 step", [&] { return rokiCompare_32f_C1R(a, -4, b, 4, d, 1, {1, 1}, 0); }, rokStatusBadStep},
        {"size before op", [&] { return rokiCompare_32f_C1R(a, 4, b, 4, d, 1, {1, 0}, 9); }, rokStatusBadSize},
        {"constant null array", [&] { return rokiCompareC_32f_C3R(a, 12, nullptr, d, 1, {1, 1}, 0); }, rokStatusNullPtr},
        {"constant step", [&] { return rokiCompareC_32f_C3R(a, 0, v3, d, 1, {0, 1}, 0); }, rokStatusBadStep},
        {"constant size", [&] { return rokiCompareC_32f_C1R(a, 4, 1.0f, d, 1, {0, 1}, 0); }, rokStatusBadSize},
        {"eps null", [&] { return rokiCompareEqualEps_32f_C1R(nullptr, 4, b, 4, d, 1, {1, 1}, -1); }, rokStatusNullPtr},
        {"eps step before size", [&] { return rokiCompareEqualEps_32f_C1R(a, 4, b, -4, d, 1, {0, 1}, -1); }, rokStatusBadStep},
        {"eps size before eps", [&] { return rokiCompareEqualEps_32f_C1R(a, 4, b, 4, d, 1, {1, 0}, -1); }, rokStatusBadSize},
        {"negative eps", [&] { return rokiCompareEqualEps_32f_C1R(a, 4, b, 4, d, 1, {1, 1}, -1e-30f); }, rokStatusBadEps},
        {"negative eps, constant", [&] { return rokiCompareEqualEpsC_32f_AC4R(a, 16, v3, d, 1, {1, 1}, -1); }, rokStatusBadEps},
        {"eps constant null", [&] { return rokiCompareEqualEpsC_32f_C3R(a, 12, nullptr, d, 1, {1, 1}, 1); }, rokStatusNullPtr},
        {"cmpOp 5: no error, nothing written", [&] { return rokiCompare_32f_C1R(a, 4, b, 4, d, 1, {4, 1}, 5); }, rokStatusOk},
        {"cmpOp -1: no error, nothing written", [&] { return rokiCompareC_32f_C1R(a, 4, 0.0f, d, 1, {4, 1}, -1); }, rokStatusOk},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.call(), r.want) << r.what;
        for (Rok8u x : d) ASSERT_EQ(x, 9) << r.what << ": written";
    }
}

}  // namespace
}  // namespace rokt::pixel
