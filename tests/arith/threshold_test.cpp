// The threshold family: every export against the rule written out per
// sample, widths 1..70 and wider rows, odd steps, guarded buffers, AC4 alpha
// and padding untouched, in place, NaN samples and thresholds; the check
// orders of each form; 16u results at 1, 2 and 7 threads; Otsu's level
// against an exact search over every split.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "arith_cases.h"
#include "guarded.h"
#include "pixel_support.h"
#include "roki.h"
#include "threads.h"

namespace rokt::pixel {
namespace {

enum class Kind { WithOp, Lt, Gt, WithOpVal, LtVal, GtVal, LtGt };

template <class T>
using ThresholdFn = std::function<RokStatus(const T* s, int ss, T* d, int ds, RokiSize r, const T* t, const T* v,
                                            const T* t2, const T* v2, int op)>;

template <class T>
struct ThresholdCase {
    std::string name;
    Kind kind;
    int channels;
    bool ac4;
    ThresholdFn<T> fn;
};

template <class T>
std::vector<ThresholdCase<T>>& threshold_cases() {
    static std::vector<ThresholdCase<T>> all;
    return all;
}

using rokt::arith::copy_rows;

// ARGS are the family parameters after roiSize, from t, v, t2, v2 and op.
#define THR(F, K, TY, L, CH, AC, ARGS)                                                                               \
    threshold_cases<Rok##TY>().push_back({#F "_" #TY "_" #L "R", K, CH, AC,                                          \
        [](const Rok##TY* s, int ss, Rok##TY* d, int ds, RokiSize r, const Rok##TY* t, const Rok##TY* v,              \
           const Rok##TY* t2, const Rok##TY* v2, int op) {                                                           \
            (void)t, (void)v, (void)t2, (void)v2, (void)op; return roki##F##_##TY##_##L##R(s, ss, d, ds, r, ARGS); }}); \
    threshold_cases<Rok##TY>().push_back({#F "_" #TY "_" #L "IR", K, CH, AC,                                         \
        [](const Rok##TY* s, int ss, Rok##TY* d, int ds, RokiSize r, const Rok##TY* t, const Rok##TY* v,              \
           const Rok##TY* t2, const Rok##TY* v2, int op) {                                                           \
            (void)t, (void)v, (void)t2, (void)v2, (void)op;                                                        \
            copy_rows(s, ss, d, ds, r, CH, AC); return roki##F##_##TY##_##L##IR(d, ds, r, ARGS); }});
#define A(...) __VA_ARGS__
#define THR_FAMILY(F, K, TY, ONE, MANY, C4)                                                                          \
    THR(F, K, TY, C1, 1, false, A(ONE)) THR(F, K, TY, C3, 3, false, A(MANY)) THR(F, K, TY, AC4, 4, true, A(MANY)) C4
#define THR_TYPE(TY)                                                                                                 \
    THR_FAMILY(Threshold, Kind::WithOp, TY, A(t[0], op), A(t, op), )                                                 \
    THR_FAMILY(Threshold_LT, Kind::Lt, TY, A(t[0]), A(t), )                                                          \
    THR_FAMILY(Threshold_GT, Kind::Gt, TY, A(t[0]), A(t), )                                                          \
    THR_FAMILY(Threshold_Val, Kind::WithOpVal, TY, A(t[0], v[0], op), A(t, v, op), )                                 \
    THR_FAMILY(Threshold_LTVal, Kind::LtVal, TY, A(t[0], v[0]), A(t, v), THR(Threshold_LTVal, Kind::LtVal, TY, C4, 4, false, A(t, v))) \
    THR_FAMILY(Threshold_GTVal, Kind::GtVal, TY, A(t[0], v[0]), A(t, v), THR(Threshold_GTVal, Kind::GtVal, TY, C4, 4, false, A(t, v))) \
    THR_FAMILY(Threshold_LTValGTVal, Kind::LtGt, TY, A(t[0], v[0], t2[0], v2[0]), A(t, v, t2, v2), )

void register_thresholds() {
    if (!threshold_cases<Rok8u>().empty()) return;
    THR_TYPE(8u) THR_TYPE(16u) THR_TYPE(16s) THR_TYPE(32f)
}

template <class T>
T threshold_ref(Kind kind, int op, T s, T t, T v, T t2, T v2) {
    const double x = s;  // every comparison in double, exact for each type
    switch (kind) {
        case Kind::WithOp: return op == 0 ? threshold_ref(Kind::Lt, 0, s, t, v, t2, v2) : threshold_ref(Kind::Gt, 0, s, t, v, t2, v2);
        case Kind::Lt: return x < double(t) ? t : s;
        case Kind::Gt: return x > double(t) ? t : s;
        case Kind::WithOpVal: return op == 0 ? threshold_ref(Kind::LtVal, 0, s, t, v, t2, v2) : threshold_ref(Kind::GtVal, 0, s, t, v, t2, v2);
        case Kind::LtVal: return x < double(t) ? v : s;
        case Kind::GtVal: return x > double(t) ? v : s;
        default: return x < double(t) ? v : x > double(t2) ? v2 : s;
    }
}

template <class T>
bool takes_op(Kind k) { return k == Kind::WithOp || k == Kind::WithOpVal; }

template <class T>
void run_threshold(const ThresholdCase<T>& c, Roi roi, int op, std::mt19937& rng) {
    const int ch = c.channels;
    GuardedImage<T> s(roi.width, roi.height, ch, 1, Guard::Before), d(roi.width, roi.height, ch, 2);
    fill_edgy(s, rng);
    d.fill_bytes(0x6B);
    T t[4], v[4], t2[4], v2[4];
    for (int k = 0; k < 4; ++k) {
        t[k] = rng() % 2 ? s.row(0)[k % (roi.width * ch)] : edgy<T>(rng);
        t2[k] = edgy<T>(rng);
        if (c.kind == Kind::LtGt && !(t[k] <= t2[k])) std::swap(t[k], t2[k]);
        if (c.kind == Kind::LtGt && !(t[k] <= t2[k])) t2[k] = t[k];  // a NaN pair: equal is allowed
        v[k] = edgy<T>(rng);
        v2[k] = edgy<T>(rng);
    }
    const auto before = d.bytes();
    ASSERT_EQ(c.fn(s.data(), s.step(), d.data(), d.step(), {roi.width, roi.height}, t, v, t2, v2, op), rokStatusOk) << c.name;
    ASSERT_TRUE(check_image(d, before, c.ac4, [&](int x, int y, int k) {
        return threshold_ref(c.kind, op, s.at(x, y, k), t[k], v[k], t2[k], v2[k]);
    })) << c.name << " op " << op << " " << roi.width << "x" << roi.height;
}

template <class T>
void run_every_threshold_export() {
    register_thresholds();
    // One thread: a region per call on a busy machine costs more than the
    // work; thread counts are the business of SameAtEveryThreadCount.
    WithThreads one(1);
    std::mt19937 rng(29);
    for (const auto& c : threshold_cases<T>()) {
        int n = 0;
        for (Roi roi : tail_rois()) run_threshold(c, roi, takes_op<T>(c.kind) ? 4 * (n++ % 2) : 0, rng);
    }
}

TEST(Threshold, Every8uExport) { run_every_threshold_export<Rok8u>(); }
TEST(Threshold, Every16uExport) { run_every_threshold_export<Rok16u>(); }
TEST(Threshold, Every16sExport) { run_every_threshold_export<Rok16s>(); }
TEST(Threshold, Every32fExport) { run_every_threshold_export<Rok32f>(); }

TEST(Threshold, ExportCount) {
    register_thresholds();
    EXPECT_EQ(threshold_cases<Rok8u>().size() + threshold_cases<Rok16u>().size() + threshold_cases<Rok16s>().size() +
                  threshold_cases<Rok32f>().size() + 1,  // and Otsu
              185u);
}

// The 16u members that share rows among threads give the same image at 1, 2
// and 7 threads, packed or padded.
TEST(Threshold, SameAtEveryThreadCount) {
    register_thresholds();
    std::mt19937 rng(2);
    for (const auto& c : threshold_cases<Rok16u>())
        for (int pad : {0, 3}) {
            GuardedImage<Rok16u> s(37, 61, c.channels, pad);
            fill_edgy(s, rng);
            const Rok16u t[4] = {1000, 30000, 65534, 7}, v[4] = {5, 6, 7, 8}, t2[4] = {2000, 40000, 65535, 7}, v2[4] = {9, 10, 11, 12};
            std::vector<std::uint8_t> images[3];
            int i = 0;
            for (int threads : {1, 2, 7}) {
                WithThreads scope(threads);
                GuardedImage<Rok16u> d(37, 61, c.channels, pad);
                d.fill_bytes(0x11);
                ASSERT_EQ(c.fn(s.data(), s.step(), d.data(), d.step(), {37, 61}, t, v, t2, v2, 4), rokStatusOk) << c.name;
                images[i++] = d.bytes();
            }
            EXPECT_EQ(images[0], images[1]) << c.name;
            EXPECT_EQ(images[0], images[2]) << c.name;
        }
}

// Results of 12 MiB and more go past the cache: a whole image (packed, or
// padded so that rows start off the vector grid) equals the same export
// called row by row, whose rows stay cached; 16u also at 2 threads.
template <class T>
void run_streamed_thresholds() {
    std::mt19937 rng(5);
    const T t[4] = {T(10), T(200), T(3), T(7)}, v[4] = {T(1), T(2), T(3), T(4)}, t2[4] = {T(20), T(250), T(9), T(7)},
            v2[4] = {T(5), T(6), T(7), T(8)};
    for (const auto& c : threshold_cases<T>()) {
        // One kind covers the store path that every kind shares; AC4 never
        // streams and C4 runs as C1 does.
        if (c.kind != Kind::LtGt || c.channels == 4) continue;
        const int h = 512, w = int((12 << 20) / (h * c.channels * int(sizeof(T)))) + 1;
        for (int pad : {0, 5}) {
            GuardedImage<T> src(w, h, c.channels, pad);
            fill_edgy(src, rng);
            GuardedImage<T> whole(w, h, c.channels, pad), rows(w, h, c.channels, pad);
            whole.fill_bytes(0x11);
            rows.fill_bytes(0x11);
            for (int threads : {1, 2}) {  // 16u shares its rows among threads
                WithThreads scope(threads);
                ASSERT_EQ(c.fn(src.data(), src.step(), whole.data(), whole.step(), {w, h}, t, v, t2, v2, 4), rokStatusOk)
                    << c.name;
            }
            for (int y = 0; y < h; ++y)
                ASSERT_EQ(c.fn(src.row(y), src.step(), rows.row(y), rows.step(), {w, 1}, t, v, t2, v2, 4), rokStatusOk);
            EXPECT_EQ(whole.bytes(), rows.bytes()) << c.name << " pad " << pad;
        }
    }
}

TEST(Threshold, StreamedResults) {
    register_thresholds();
    run_streamed_thresholds<Rok32f>();
    run_streamed_thresholds<Rok16u>();
}

// Equal thresholds keep the value at them.
TEST(Threshold, EqualThresholds) {
    const Rok8u s[3] = {99, 100, 101};
    Rok8u d[3] = {};
    ASSERT_EQ(rokiThreshold_LTValGTVal_8u_C1R(s, 3, d, 3, {3, 1}, 100, 1, 100, 2), rokStatusOk);
    EXPECT_EQ(d[0], 1);
    EXPECT_EQ(d[1], 100);
    EXPECT_EQ(d[2], 2);
}

TEST(Threshold, CheckOrder) {
    Rok8u s[4] = {1, 2, 3, 4}, d[4] = {9, 9, 9, 9};
    const Rok8u t3[3] = {1, 2, 3}, lo3[3] = {5, 5, 5}, hi3[3] = {5, 4, 5};
    struct Row { const char* what; std::function<RokStatus()> call; RokStatus want; };
    const Row rows[] = {
        {"threshold null before op", [&] { return rokiThreshold_8u_C1R(nullptr, 1, d, 1, {1, 1}, 1, 9); }, rokStatusNullPtr},
        {"threshold null array", [&] { return rokiThreshold_8u_C3R(s, 3, d, 3, {1, 1}, nullptr, 0); }, rokStatusNullPtr},
        {"threshold size before step", [&] { return rokiThreshold_8u_C1R(s, 0, d, 1, {0, 1}, 1, 9); }, rokStatusBadSize},
        {"threshold step before op", [&] { return rokiThreshold_8u_C1R(s, 1, d, -1, {1, 1}, 1, 9); }, rokStatusBadStep},
        {"threshold op", [&] { return rokiThreshold_8u_C1R(s, 1, d, 1, {1, 1}, 1, 1); }, rokStatusBadMode},
        {"threshold in place op", [&] { return rokiThreshold_8u_C1IR(d, 1, {1, 1}, 1, 3); }, rokStatusBadMode},
        {"LT size before step", [&] { return rokiThreshold_LT_8u_C1R(s, 0, d, 1, {1, -1}, 1); }, rokStatusBadSize},
        {"GT step", [&] { return rokiThreshold_GT_8u_C1IR(d, 0, {1, 1}, 1); }, rokStatusBadStep},
        {"val op before null", [&] { return rokiThreshold_Val_8u_C1R(nullptr, 1, d, 1, {1, 1}, 1, 2, 7); }, rokStatusBadMode},
        {"val op before size", [&] { return rokiThreshold_Val_8u_C1IR(d, 0, {0, 0}, 1, 2, 2); }, rokStatusBadMode},
        {"val null", [&] { return rokiThreshold_Val_8u_C3R(s, 3, d, 3, {1, 1}, t3, nullptr, 4); }, rokStatusNullPtr},
        {"val size before step", [&] { return rokiThreshold_Val_8u_C1R(s, 0, d, 1, {0, 1}, 1, 2, 0); }, rokStatusBadSize},
        {"LTVal step", [&] { return rokiThreshold_LTVal_8u_C1R(s, 1, d, 0, {1, 1}, 1, 2); }, rokStatusBadStep},
        {"GTVal null", [&] { return rokiThreshold_GTVal_8u_C4R(s, 4, nullptr, 4, {1, 1}, t3, t3); }, rokStatusNullPtr},
        {"ltgt null array", [&] { return rokiThreshold_LTValGTVal_8u_C3R(s, 3, d, 3, {1, 1}, t3, t3, nullptr, t3); }, rokStatusNullPtr},
        {"ltgt size", [&] { return rokiThreshold_LTValGTVal_8u_C1R(s, 1, d, 1, {0, 1}, 9, 0, 1, 0); }, rokStatusBadSize},
        {"ltgt step before thresholds", [&] { return rokiThreshold_LTValGTVal_8u_C1R(s, 1, d, 0, {1, 1}, 9, 0, 1, 0); }, rokStatusBadStep},
        {"ltgt crossed", [&] { return rokiThreshold_LTValGTVal_8u_C1R(s, 1, d, 1, {1, 1}, 9, 0, 8, 0); }, rokStatusBadThresholds},
        {"ltgt crossed in one channel", [&] { return rokiThreshold_LTValGTVal_8u_C3R(s, 3, d, 3, {1, 1}, lo3, t3, hi3, t3); }, rokStatusBadThresholds},
        {"otsu null", [&] { return rokiComputeThreshold_Otsu_8u_C1R(s, 1, {1, 1}, nullptr); }, rokStatusNullPtr},
        {"otsu size before step", [&] { return rokiComputeThreshold_Otsu_8u_C1R(s, 0, {0, 1}, d); }, rokStatusBadSize},
        {"otsu step", [&] { return rokiComputeThreshold_Otsu_8u_C1R(s, 0, {1, 1}, d); }, rokStatusBadStep},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.call(), r.want) << r.what;
        for (Rok8u x : d) ASSERT_EQ(x, 9) << r.what << ": written";
    }
    // Equal thresholds are allowed in every channel.
    EXPECT_EQ(rokiThreshold_LTValGTVal_8u_C3R(s, 3, d, 3, {1, 1}, lo3, t3, lo3, t3), rokStatusOk);
}

// Otsu by the definition: every split t with both classes non-empty, the
// variance compared exactly as (N s0 - n0 S)^2 / (n0 (N - n0)) in 128-bit
// cross products (exact for images up to 2^18 pixels), the lowest t on ties.
int otsu_ref(const std::vector<Rok8u>& px) {
    using Wide = __int128;
    Wide hist[256] = {}, n = 0, sum = 0;
    for (Rok8u p : px) ++hist[p], ++n, sum += p;
    Wide n0 = 0, s0 = 0, best_num = -1, best_den = 1;
    int best = -1;
    for (int t = 0; t < 255; ++t) {
        n0 += hist[t];
        s0 += hist[t] * t;
        if (n0 == 0 || n0 == n) continue;
        const Wide diff = n * s0 - n0 * sum, num = diff * diff, den = n0 * (n - n0);
        if (best < 0 || num * best_den > best_num * den) best_num = num, best_den = den, best = t;
    }
    if (best < 0) return px[0];
    return best;
}

TEST(Threshold, OtsuLevel) {
    std::mt19937 rng(12);
    struct Img { const char* what; std::function<Rok8u(int)> pixel; int w, h; };
    auto normal = [&](double m, double sd) { return Rok8u(std::clamp(std::lround(std::normal_distribution<double>(m, sd)(rng)), 0L, 255L)); };
    const Img images[] = {
        {"one level", [](int) { return Rok8u(77); }, 13, 5},
        {"two levels", [](int i) { return Rok8u(i % 3 ? 10 : 200); }, 40, 3},
        {"0 and 255, ties", [](int i) { return Rok8u(i % 2 ? 0 : 255); }, 8, 8},
        {"uniform", [&](int) { return Rok8u(rng()); }, 256, 255},
        {"bimodal", [&](int i) { return i % 4 ? normal(60, 15) : normal(180, 25); }, 301, 7},
        {"narrow", [&](int) { return Rok8u(100 + rng() % 3); }, 71, 2},
        {"one pixel", [](int) { return Rok8u(3); }, 1, 1},
        // Large enough for the histograms' pair counting, with runs of equal
        // neighbours and odd widths through it.
        {"large bimodal", [&](int i) { return i % 7 < 3 ? Rok8u(40 + i / 997 % 5) : normal(170, 30); }, 521, 263},
    };
    for (const Img& im : images) {
        GuardedImage<Rok8u> s(im.w, im.h, 1, 5);
        std::vector<Rok8u> px;
        for (int y = 0; y < im.h; ++y)
            for (int x = 0; x < im.w; ++x) px.push_back(s.at(x, y) = im.pixel(y * im.w + x));
        Rok8u level = 0;
        ASSERT_EQ(rokiComputeThreshold_Otsu_8u_C1R(s.data(), s.step(), {im.w, im.h}, &level), rokStatusOk);
        EXPECT_EQ(int(level), otsu_ref(px)) << im.what;
    }
}

}  // namespace
}  // namespace rokt::pixel
